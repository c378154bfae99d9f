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
    if (!line.has("enabled") && !line.has("approved") && !line.has("error")) {
      line.fail("needs \"enabled\", \"approved\" or \"error\"");
    }
    std::optional<bool> enabled;
    if (line.has("enabled")) enabled = line.truth("enabled", false);
    std::optional<bool> approved;
    if (line.has("approved")) approved = line.flag("approved");
    std::optional<std::string> error;
    if (line.has("error") && !line.json("error").is_null()) error = line.text("error");
    return [this, enabled, approved, error, says = line.has("error")] {
      if (enabled) registered_ = *enabled;
      if (approved) approved_ = *approved;
      if (says) error_ = error;
    };
  });
}

void LoginItem::snapshot(nlohmann::ordered_json& state) { state["login_item"] = registered_ && approved_; }

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

// Makes the program a login item, or no longer one. One that the user has to approve is registered, but only the user
// can switch it on, in the System Settings: who registers it again is told that it is not permitted.
bool change(const char* api, bool registers, CFTypeRef service, Error& error) {
  const Call call(api, Call::On::mainThread);
  static_cast<void>(simulator::live<ServiceObject>(service, api));
  simulator::LoginItem& item = call.part<simulator::LoginItem>();
  std::optional<std::string> failure = item.takeError();
  const auto told = call.fault();
  if (told) {
    failure = "The operation couldn’t be completed. (SMAppServiceErrorDomain error " + std::to_string(*told) + ".)";
  } else if (!failure) {
    if (registers && item.registered() && !item.approved()) failure = "Operation not permitted";
    item.setRegistered(registers);
  }
  call.machine.trace.call(api, told ? *told : failure ? 1 : 0);
  error = failure ? Error(CF::adopt(static_cast<CFTypeRef>(new ErrorObject(*failure)))) : Error();
  return !failure;
}

}  // namespace

AppService AppService::mainAppService() {
  const Call call("SMAppService.mainAppService", Call::On::mainThread);
  static auto* const service = new ServiceObject;
  return AppService(CF::retain(static_cast<CFTypeRef>(service)));
}

AppServiceStatus AppService::status() const {
  const Call call("SMAppService.status", Call::On::mainThread);
  const auto& item = call.part<simulator::LoginItem>();
  if (!item.registered()) return AppServiceStatus::NotRegistered;
  return item.approved() ? AppServiceStatus::Enabled : AppServiceStatus::RequiresApproval;
}

void AppService::openSystemSettingsLoginItems() {
  const Call call("SMAppService.openSystemSettingsLoginItems", Call::On::mainThread);
  call.machine.trace.call("SMAppService.openSystemSettingsLoginItems");
}

bool AppService::registerAndReturnError(Error& error) const {
  return change(simulator::registering, true, get(), error);
}

bool AppService::unregisterAndReturnError(Error& error) const {
  return change(simulator::unregistering, false, get(), error);
}

}  // namespace NS
