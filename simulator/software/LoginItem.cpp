#include "simulator/software/LoginItem.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "platform/AppService.h"
#include "simulator/foundation/Foundation.h"
#include "simulator/kernel/Call.h"
#include "simulator/kernel/Commands.h"

namespace simulator {
namespace {

constexpr const char* registering = "SMAppService.register";
constexpr const char* unregistering = "SMAppService.unregister";

}  // namespace

LoginItem::LoginItem(Machine& machine) { machine.faults.declare({registering, unregistering}); }

std::optional<std::string> LoginItem::takeError() { return std::exchange(error_, std::nullopt); }

void LoginItem::addCommands(Commands& commands) {
  commands.add("login-item", [this](Arguments& line) -> Action {
    if (!line.has("enabled") && !line.has("error")) line.fail("needs \"enabled\" or \"error\"");
    std::optional<bool> enabled;
    if (line.has("enabled")) enabled = line.truth("enabled", false);
    std::optional<std::string> error;
    if (line.has("error") && !line.json("error").is_null()) error = line.text("error");
    return [this, enabled, error, says = line.has("error")] {
      if (enabled) enabled_ = *enabled;
      if (says) error_ = error;
    };
  });
}

void LoginItem::snapshot(nlohmann::ordered_json& state) { state["login_item"] = enabled_; }

}  // namespace simulator

// ---- SMAppService ----

namespace NS {
namespace {

using simulator::Call;
using simulator::ErrorObject;

struct ServiceObject : simulator::Object {
  ServiceObject() { makeImmortal(); }
  std::string_view kind() const override { return "SMAppService"; }
};

// Makes the program a login item, or no longer one.
bool change(const char* api, bool enabled, CFTypeRef service, Error& error) {
  const Call call(api, Call::On::mainThread);
  static_cast<void>(simulator::live<ServiceObject>(service, api));
  simulator::LoginItem& item = call.part<simulator::LoginItem>();
  std::optional<std::string> failure = item.takeError();
  const auto told = call.fault();
  const int status = told ? *told : failure ? 1 : 0;  // kSMErrorInternalFailure
  if (told)
    failure = "The operation couldn’t be completed. (SMAppServiceErrorDomain error " + std::to_string(*told) + ".)";
  call.machine.trace.call(api, status);
  if (failure) {
    error = Error(CF::adopt(static_cast<CFTypeRef>(new ErrorObject(*failure))));
    return false;
  }
  error = {};
  item.setEnabled(enabled);
  return true;
}

}  // namespace

AppService AppService::mainAppService() {
  const Call call("SMAppService.mainAppService", Call::On::mainThread);
  static auto* const service = new ServiceObject;
  return AppService(CF::retain(static_cast<CFTypeRef>(service)));
}

AppServiceStatus AppService::status() const {
  const Call call("SMAppService.status", Call::On::mainThread);
  return call.part<simulator::LoginItem>().enabled() ? AppServiceStatus::Enabled : AppServiceStatus::NotRegistered;
}

bool AppService::registerAndReturnError(Error& error) const {
  return change(simulator::registering, true, get(), error);
}

bool AppService::unregisterAndReturnError(Error& error) const {
  return change(simulator::unregistering, false, get(), error);
}

}  // namespace NS
