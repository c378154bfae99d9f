#include "updater/Release.h"

#include <cstddef>
#include <limits>
#include <nlohmann/json.hpp>
#include <utility>

using nlohmann::json;

namespace {

[[noreturn]] void failType(const std::string& expected, const json& value) {
  throw json::type_error::create(302, "type must be " + expected + ", but is " + value.type_name(), &value);
}

std::string decodeString(const json& object, const char* key) {
  const json& value = object.at(key);
  if (!value.is_string()) failType("string", value);
  return value.get<std::string>();
}

// A number with a fraction or an exponent is no integer, whatever its value.
std::int64_t decodeInteger(const json& object, const char* key) {
  const json& value = object.at(key);
  if (!value.is_number_integer()) failType("integer", value);
  if (value.is_number_unsigned() &&
      value.get<std::uint64_t>() > std::uint64_t{std::numeric_limits<std::int64_t>::max()}) {
    throw json::out_of_range::create(406, "number does not fit 64 signed bits", &value);
  }
  return value.get<std::int64_t>();
}

NS::URL decodeURL(const json& object, const char* key) {
  NS::URL url = NS::URL::URLWithString(decodeString(object, key), false);
  if (!url) throw json::other_error::create(501, "invalid URL string", &object.at(key));
  return url;
}

Release decodeRelease(const json& object) {
  if (!object.is_object()) failType("object", object);
  Release release;
  release.version = decodeString(object, "version");
  release.date = decodeString(object, "date");
  release.dmgURL = decodeURL(object, "dmg_url");
  release.sizeBytes = decodeInteger(object, "size_bytes");
  release.notes = decodeString(object, "notes");
  return release;
}

}  // namespace

std::optional<Release> decodeNewestRelease(std::string_view document) {
  std::optional<Release> newest;
  // Called as the parser goes along; answering false drops what was just parsed. The parser's depth is 0 for the
  // document, 1 for its elements and 2 for their members.
  const auto filter = [&newest](int depth, json::parse_event_t event, json& parsed) {
    using Event = json::parse_event_t;
    if (depth == 0 && (event == Event::object_start || event == Event::value)) {
      failType("array", event == Event::value ? parsed : json::object());
    }
    if (depth == 1 && (event == Event::array_start || event == Event::value)) {
      failType("object", event == Event::value ? parsed : json::array());
    }
    if (depth == 1 && event == Event::object_end) {
      Release release = decodeRelease(parsed);
      if (!newest) newest = std::move(release);
      return false;
    }
    // No member that counts is a container.
    return depth < 2 || (event != Event::object_start && event != Event::array_start);
  };
  static_cast<void>(json::parse(document, filter));
  return newest;
}
