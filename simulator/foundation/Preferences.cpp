#include "simulator/foundation/Preferences.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <limits>
#include <sstream>
#include <utility>

#include "platform/UserDefaults.h"
#include "simulator/foundation/CoreFoundation.h"
#include "simulator/foundation/PropertyList.h"
#include "simulator/kernel/Call.h"
#include "simulator/kernel/Commands.h"

namespace simulator {
namespace {

// Property lists have no null.
bool holdsNull(const nlohmann::json& value) {
  return value.is_null() || (value.is_structured() && std::ranges::any_of(value, holdsNull));
}

}  // namespace

Preferences::Preferences(Machine& machine, std::filesystem::path folder)
    : machine_(machine), folder_(std::move(folder)) {}

std::filesystem::path Preferences::file() const { return folder_ / (machine_.process.program().identifier + ".plist"); }

const nlohmann::json* Preferences::value(const std::string& key) const {
  const auto found = values_.find(key);
  return found == values_.end() ? nullptr : &*found;
}

void Preferences::set(const std::string& key, nlohmann::json value) {
  if (value.is_null()) {
    values_.erase(key);
  } else {
    values_[key] = std::move(value);
  }
}

void Preferences::load() {
  std::ifstream in(file());
  std::ostringstream text;
  text << in.rdbuf();
  values_ = in ? readPropertyList(text.str()) : nlohmann::json::object();
}

void Preferences::save() const {
  if (values_.empty() && !std::filesystem::exists(file())) return;
  std::filesystem::create_directories(file().parent_path());
  std::ofstream(file()) << writePropertyList(values_);
}

void Preferences::addCommands(Commands& commands) {
  commands.add("preference", [this](Arguments& line) -> Action {
    const nlohmann::json given = line.json("value");
    if (given.is_structured() && holdsNull(given)) line.fail("member \"value\" must not hold null");
    return [this, key = line.text("key"), value = given] {
      const Scheduler::Lock lock(machine_.scheduler);
      set(key, value);
    };
  });
}

// As on a Mac the file is written some time after a change, at the latest when the process has ended. The next process
// finds what is in it.
void Preferences::processEnded(Leaks&) {
  save();
  load();
}

void Preferences::snapshot(nlohmann::ordered_json& state) { state["preferences"] = values_; }

}  // namespace simulator

// ---- NSUserDefaults ----

namespace NS {
namespace {

using simulator::Call;

struct UserDefaultsObject : simulator::Object {
  UserDefaultsObject() { makeImmortal(); }
  std::string_view kind() const override { return "NSUserDefaults"; }
};

void write(const Call& call, const UserDefaults& defaults, const char* name, const std::string& key,
           const nlohmann::json& value) {
  simulator::live<UserDefaultsObject>(defaults.get(), name);
  call.part<simulator::Preferences>().set(simulator::requireUTF8(key, name), value);
  call.machine.trace.record("preference").text("key", key).json("value", value.dump());
}

// What a program reads. An integer above the signed ones does not turn into a negative one.
CFTypeRef createValue(const nlohmann::json& value) {
  constexpr std::uint64_t most = std::numeric_limits<std::int64_t>::max();
  const bool isTooLarge = value.is_number_unsigned() && value.get<std::uint64_t>() > most;
  return simulator::createPropertyList(isTooLarge ? nlohmann::json(value.get<double>()) : value);
}

}  // namespace

UserDefaults UserDefaults::standardUserDefaults() {
  static auto* const defaults = new UserDefaultsObject;
  return UserDefaults(CF::retain(static_cast<CFTypeRef>(defaults)));
}

CF::Ref<CFTypeRef> UserDefaults::objectForKey(const std::string& key) const {
  const Call call("NSUserDefaults.objectForKey");
  simulator::live<UserDefaultsObject>(get(), "NSUserDefaults.objectForKey");
  const nlohmann::json* const value =
      call.part<simulator::Preferences>().value(simulator::requireUTF8(key, "NSUserDefaults.objectForKey"));
  return CF::adopt(value ? createValue(*value) : nullptr);
}

bool UserDefaults::boolForKey(const std::string& key) const {
  const Call call("NSUserDefaults.boolForKey");
  simulator::live<UserDefaultsObject>(get(), "NSUserDefaults.boolForKey");
  const nlohmann::json* const value =
      call.part<simulator::Preferences>().value(simulator::requireUTF8(key, "NSUserDefaults.boolForKey"));
  if (!value) return false;
  if (value->is_boolean()) return value->get<bool>();
  if (value->is_number()) return value->get<double>() != 0;
  // Of texts, the two that Apple's header names.
  return *value == "YES" || *value == "1";
}

void UserDefaults::setInteger(long value, const std::string& key) const {
  write(Call("NSUserDefaults.setInteger"), *this, "NSUserDefaults.setInteger", key, value);
}

void UserDefaults::setBool(bool value, const std::string& key) const {
  write(Call("NSUserDefaults.setBool"), *this, "NSUserDefaults.setBool", key, value);
}

}  // namespace NS
