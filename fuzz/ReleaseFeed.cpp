// Feed documents. Beyond not crashing: what is accepted is what a reader that keeps everything makes of the document,
// and nothing else is; the release, written down again, is read as the same one. Documents in which a key comes twice,
// with numbers beyond the other reader's or with null characters, which end it, are left to the last check.
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "fuzz/Target.h"
#include "updater/Release.h"

using nlohmann::json;

namespace {

std::optional<std::optional<Release>> decoded(std::string_view document) {
  try {
    return decodeNewestRelease(document);
  } catch (const json::exception&) {
    return std::nullopt;
  }
}

bool isSame(const Release& a, const Release& b) {
  return a.version == b.version && a.date == b.date && a.sizeBytes == b.sizeBytes && a.notes == b.notes &&
         a.dmgURL.absoluteString() == b.dmgURL.absoluteString();
}

// The document as the other reader has it; none when it is no JSON. `isPlain`: no key twice, no number that is too
// large.
std::optional<json> parsed(std::string_view document, bool& isPlain) {
  std::size_t keys = 0;
  try {
    json value = json::parse(document, [&keys](int, json::parse_event_t event, json&) {
      keys += event == json::parse_event_t::key ? 1 : 0;
      return true;
    });
    const auto count = [](const auto& self, const json& each) -> std::size_t {
      std::size_t found = each.is_object() ? each.size() : 0;
      if (each.is_structured()) {
        for (const json& element : each) found += self(self, element);
      }
      return found;
    };
    isPlain = keys == count(count, value);
    return value;
  } catch (const json::out_of_range&) {
    isPlain = false;
  } catch (const json::exception&) {
    isPlain = true;
  }
  return std::nullopt;
}

// What the document says by that reading; none when it is no feed.
std::optional<std::optional<Release>> expected(const json& document) {
  if (!document.is_array()) return std::nullopt;
  std::optional<Release> newest;
  for (const json& each : document) {
    if (!each.is_object()) return std::nullopt;
    Release release;
    std::string address;
    for (const auto& [key, into] : {std::pair{"version", &release.version}, std::pair{"date", &release.date},
                                    std::pair{"dmg_url", &address}, std::pair{"notes", &release.notes}}) {
      if (!each.contains(key) || !each[key].is_string()) return std::nullopt;
      *into = each[key];
    }
    if (!each.contains("size_bytes") || !each["size_bytes"].is_number_integer()) return std::nullopt;
    const json& size = each["size_bytes"];
    if (size.is_number_unsigned() && size.get<std::uint64_t>() > INT64_MAX) return std::nullopt;
    release.sizeBytes = size.get<std::int64_t>();
    release.dmgURL = NS::URL::URLWithString(address, true);
    if (address.empty() || !release.dmgURL) return std::nullopt;
    if (!newest) newest = release;
  }
  return newest;
}

const fuzz::Target target("ReleaseFeed", [](std::string_view document) {
  const auto result = decoded(document);
  bool isPlain = false;
  const auto value = parsed(document, isPlain);
  const bool hasNull = document.find('\0') != std::string_view::npos;
  fuzz::require(!hasNull || !result, "no feed has a null character");
  if (isPlain && !hasNull) {
    const auto wanted = value ? expected(*value) : std::nullopt;
    fuzz::require(result.has_value() == wanted.has_value(), "both readers take the document for a feed, or neither");
    if (result) {
      fuzz::require(result->has_value() == wanted->has_value(), "both find a release, or neither");
      fuzz::require(!*result || isSame(**result, **wanted), "both find the same release");
    }
  }
  if (!result || !*result) return;
  const Release& release = **result;
  const json again = json::array({{{"version", release.version},
                                   {"date", release.date},
                                   {"dmg_url", release.dmgURL.absoluteString()},
                                   {"size_bytes", release.sizeBytes},
                                   {"notes", release.notes}}});
  const auto second = decoded(again.dump());
  fuzz::require(second && *second && isSame(**second, release), "a release, written down, is read as the same one");
});

}  // namespace
