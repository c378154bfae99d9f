// Texts of property lists. Beyond not crashing: what is read, written and read again is the same, and so is what goes
// through Core Foundation's objects and back.
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "fuzz/Target.h"
#include "platform/CF.h"
#include "simulator/foundation/CoreFoundation.h"
#include "simulator/foundation/PropertyList.h"

using nlohmann::json;

namespace {

// Numbers that Core Foundation has no form of, in this machine.
bool isTooLarge(const json& value) {
  if (value.is_number_unsigned()) return value.get<std::uint64_t>() > INT64_MAX;
  for (const json& each : value.is_structured() ? value : json::array()) {
    if (isTooLarge(each)) return true;
  }
  return false;
}

// As text, in which no number differs from itself.
std::string textOf(const json& value) { return value.dump(-1, ' ', false, json::error_handler_t::replace); }

const fuzz::Target target("PropertyLists", [](std::string_view text) {
  json value;
  try {
    value = simulator::readPropertyList(text);
  } catch (const std::runtime_error&) {
    return;
  }
  const std::string written = simulator::writePropertyList(value);
  fuzz::require(textOf(simulator::readPropertyList(written)) == textOf(value), "a property list comes back as it was");
  if (isTooLarge(value)) return;
  const auto object = CF::adopt(simulator::createPropertyList(value));
  fuzz::require(textOf(simulator::jsonOf(object.get())) == textOf(value), "its objects hold what it says");
});

}  // namespace
