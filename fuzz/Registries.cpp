// I/O Registries: entries with attributes of any kind, in any order. Beyond not crashing: the walk finds exactly the
// channels that a plain reading of the registry has, with their identities and in their order; and what the finder is
// shown entry by entry is what the walk through the machine's registry finds.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "brightness/DDCChannel.h"
#include "fuzz/Target.h"
#include "platform/Text.h"
#include "simulator/displays/Registry.h"
#include "simulator/foundation/CoreFoundation.h"
#include "simulator/kernel/Call.h"

using nlohmann::json;

namespace {

using Entries = std::vector<std::shared_ptr<const simulator::RegistryEntry>>;

json valueOf(fuzz::Input& input) {
  switch (input.number<std::uint8_t>() % 10) {
    case 0:
      return static_cast<std::int64_t>(input.number<std::uint64_t>());
    case 1:
      return validText(input.text());
    case 2:
      return input.truth();
    case 3:
      return static_cast<double>(static_cast<std::int64_t>(input.number<std::uint64_t>())) / 16;
    case 4:
      return json::array();
    default:
      return input.number<std::uint32_t>();
  }
}

json dictionaryOf(fuzz::Input& input, std::initializer_list<const char*> keys) {
  json dictionary = json::object();
  const auto given = input.number<std::uint8_t>();
  int bit = 0;
  for (const char* const key : keys) {
    if ((given >> bit++ & 1) == 0) dictionary[key] = valueOf(input);
  }
  return dictionary;
}

std::shared_ptr<simulator::RegistryEntry> entryOf(fuzz::Input& input, int depth) {
  constexpr const char* names[] = {"AppleCLCD2", "IOMobileFramebufferShim", "DCPAVServiceProxy", "DCPAVServiceProxy"};
  auto entry = std::make_shared<simulator::RegistryEntry>();
  const auto kind = input.number<std::uint8_t>();
  entry->name = kind % 8 < 7 ? names[kind % 4] : validText(input.text().substr(0, 100));
  if (kind & 16) {
    entry->properties["DisplayAttributes"] = valueOf(input);
  } else {
    entry->properties["DisplayAttributes"]["ProductAttributes"] =
        kind & 32 ? valueOf(input) : dictionaryOf(input, {"LegacyManufacturerID", "ProductID", "SerialNumber"});
  }
  if (kind & 64) entry->properties["Location"] = valueOf(input);
  if (kind & 128) entry->properties["Location"] = "External";
  for (auto children = input.number<std::uint8_t>() % 3; children > 0 && depth < 8 && !input.isUsedUp(); --children) {
    entry->children.push_back(entryOf(input, depth + 1));
  }
  return entry;
}

// ---- The plain reading ----

std::optional<std::uint32_t> expectedNumber(const json& attributes, const char* key) {
  if (!attributes.contains(key) || !attributes[key].is_number()) return std::nullopt;
  const auto whole = std::trunc(attributes[key].get<long double>());
  if (whole < 0 || whole > UINT32_MAX) return std::nullopt;
  return static_cast<std::uint32_t>(whole);
}

std::optional<DisplayIdentity> expectedIdentity(const json& properties) {
  const json& display = properties["DisplayAttributes"];
  if (!display.is_object() || !display.contains("ProductAttributes")) return std::nullopt;
  const json& product = display["ProductAttributes"];
  if (!product.is_object()) return std::nullopt;
  const auto vendor = expectedNumber(product, "LegacyManufacturerID");
  const auto model = expectedNumber(product, "ProductID");
  const auto serial = expectedNumber(product, "SerialNumber");
  if (!vendor || !model || !serial) return std::nullopt;
  return DisplayIdentity{*vendor, *model, *serial};
}

void readPlainly(const Entries& entries, std::optional<DisplayIdentity>& last, std::vector<DisplayIdentity>& found) {
  for (const auto& entry : entries) {
    if (entry->name == "AppleCLCD2" || entry->name == "IOMobileFramebufferShim") {
      last = expectedIdentity(entry->properties);
    } else if (entry->name == "DCPAVServiceProxy" && last &&
               entry->properties.value("Location", json()) == "External") {
      found.push_back(*last);
    }
    readPlainly(entry->children, last, found);
  }
}

// ---- The program's ----

void showToFinder(const Entries& entries, DDCChannel::IdentityFinder& finder, std::vector<DisplayIdentity>& found) {
  for (const auto& entry : entries) {
    const auto identity = finder.visit(entry->name, [&entry](CFStringRef name) {
      const auto property = entry->properties.find(CF::text(name));
      return CF::adopt(property == entry->properties.end() ? CFTypeRef{} : simulator::createPropertyList(*property));
    });
    if (identity) found.push_back(*identity);
    showToFinder(entry->children, finder, found);
  }
}

std::vector<DisplayIdentity> walked(const Entries& entries) {
  std::vector<DisplayIdentity> found;
  fuzz::onMachine([&] {
    simulator::Call::unguarded().part<simulator::Registry>().replaceAll(entries);
    static IOAVServiceAPI api;
    api.createWithService = [](CFAllocatorRef, io_service_t) { return CFRetain(CF::number(1).get()); };
    DDCChannel::Queues queues;
    for (const auto& [identity, channel] : DDCChannel::externalChannels(api, queues)) found.push_back(identity);
    fuzz::require(std::ranges::all_of(found, [&](const auto& each) { return queues.contains(each); }),
                  "each identity has its queue");
  });
  return found;
}

const fuzz::Target target("Registries", [](std::string_view bytes) {
  fuzz::Input input(bytes);
  const bool goesThroughMachine = input.number<std::uint8_t>() % 8 == 0;
  Entries entries;
  while (!input.isUsedUp() && entries.size() < 64) entries.push_back(entryOf(input, 0));
  std::vector<DisplayIdentity> expected;
  std::optional<DisplayIdentity> last;
  readPlainly(entries, last, expected);
  std::vector<DisplayIdentity> found;
  DDCChannel::IdentityFinder finder;
  showToFinder(entries, finder, found);
  fuzz::require(found == expected, "the finder finds what a plain reading has");
  if (goesThroughMachine) fuzz::require(walked(entries) == expected, "the walk finds what a plain reading has");
});

}  // namespace
