#include "simulator/kernel/Commands.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/Text.h"

namespace simulator {

Arguments::Arguments(nlohmann::json members, std::string where, std::filesystem::path folder)
    : members_(std::move(members)), where_(std::move(where)), folder_(std::move(folder)) {}

void Arguments::fail(const std::string& reason) const { throw ScenarioError(reason); }

void Arguments::wrongType(const char* name, const char* expected) const {
  fail("member \"" + where_ + name + "\" must be " + expected);
}

const nlohmann::json& Arguments::member(const char* name) {
  used_.insert(name);
  const auto found = members_.find(name);
  if (found == members_.end()) fail("missing member \"" + where_ + name + "\"");
  return *found;
}

std::string Arguments::text(const char* name) {
  const nlohmann::json& value = member(name);
  if (!value.is_string()) wrongType(name, "a text");
  return value.get<std::string>();
}

std::string Arguments::text(const char* name, const char* otherwise) { return has(name) ? text(name) : otherwise; }

std::filesystem::path Arguments::path(const char* name) { return folder_ / text(name); }

bool Arguments::flag(const char* name) {
  const nlohmann::json& value = member(name);
  if (!value.is_boolean()) wrongType(name, "true or false");
  return value.get<bool>();
}

bool Arguments::flag(const char* name, bool otherwise) { return has(name) ? flag(name) : otherwise; }

bool Arguments::truth(const char* name, bool otherwise) {
  if (!has(name)) return otherwise;
  const nlohmann::json& value = member(name);
  if (value.is_number_integer()) return value.get<std::int64_t>() != 0;
  return flag(name);
}

double Arguments::number(const char* name) {
  const nlohmann::json& value = member(name);
  if (!value.is_number()) wrongType(name, "a number");
  return value.get<double>();
}

double Arguments::number(const char* name, double otherwise) { return has(name) ? number(name) : otherwise; }

std::chrono::nanoseconds Arguments::duration(const char* name) {
  const double seconds = number(name);
  if (!(seconds >= 0) || seconds > 1e9) wrongType(name, "from 0 to a billion");
  return std::chrono::nanoseconds(std::llround(seconds * 1e9));
}

std::int64_t Arguments::bits64(const char* name) {
  const nlohmann::json& value = member(name);
  if (!value.is_number_integer()) wrongType(name, "an integer");
  return value.get<std::int64_t>();  // an unsigned number above the signed ones keeps its bits
}

std::uint64_t Arguments::count(const char* name, std::uint64_t otherwise) {
  if (!has(name)) return otherwise;
  const auto value = integer<std::int64_t>(name);
  if (value < 1) wrongType(name, "1 or more");
  return static_cast<std::uint64_t>(value);
}

std::vector<double> Arguments::numbers(const char* name, std::size_t count) {
  const nlohmann::json& value = member(name);
  std::vector<double> result;
  if (value.is_array()) {
    for (const auto& each : value) {
      if (each.is_number()) result.push_back(each.get<double>());
    }
  }
  if (result.size() != count || value.size() != count) {
    wrongType(name, count == 2 ? "a list of two numbers" : "a list of four numbers");
  }
  return result;
}

CGPoint Arguments::point(const char* name) {
  const auto values = numbers(name, 2);
  return CGPointMake(values[0], values[1]);
}

CGRect Arguments::rectangle(const char* name) {
  const auto values = numbers(name, 4);
  return CGRectMake(values[0], values[1], values[2], values[3]);
}

std::optional<Arguments> Arguments::object(const char* name) {
  if (!has(name) || member(name).is_null()) return std::nullopt;
  if (!member(name).is_object()) wrongType(name, "an object");
  return Arguments(member(name), where_ + name + ".", folder_);
}

std::vector<Arguments> Arguments::objects(const char* name) {
  const nlohmann::json& value = member(name);
  if (!value.is_array()) wrongType(name, "a list of objects");
  std::vector<Arguments> result;
  for (const auto& each : value) {
    if (!each.is_object()) wrongType(name, "a list of objects");
    result.emplace_back(each, where_ + name + "[" + std::to_string(result.size()) + "].", folder_);
  }
  return result;
}

std::vector<std::string> Arguments::texts(const char* name) {
  if (!has(name)) return {};
  const nlohmann::json& value = member(name);
  const auto isText = [](const nlohmann::json& each) { return each.is_string(); };
  if (!value.is_array() || !std::ranges::all_of(value, isText)) wrongType(name, "a list of texts");
  return value.get<std::vector<std::string>>();
}

nlohmann::json Arguments::json(const char* name) { return member(name); }

nlohmann::json Arguments::jsonObject(const char* name) {
  if (!member(name).is_object()) wrongType(name, "an object");
  return member(name);
}

nlohmann::json Arguments::json(const char* name, nlohmann::json otherwise) {
  return has(name) ? json(name) : std::move(otherwise);
}

void Arguments::finish() const {
  for (const auto& [name, value] : members_.items()) {
    if (!used_.contains(name)) fail("unknown member \"" + where_ + name + "\"");
  }
}

Line Commands::parse(std::string_view line, const std::filesystem::path& folder) const {
  // Values are copied and written depth by depth, on the stack.
  const auto shallow = [](int depth, nlohmann::json::parse_event_t, nlohmann::json&) {
    constexpr int deepest = 32;
    if (depth > deepest) throw ScenarioError("nested too deeply");
    return true;
  };
  // The parser would take it for the end.
  if (line.find('\0') != std::string_view::npos) throw ScenarioError("not JSON: it holds a NUL");
  nlohmann::json object;
  try {
    object = nlohmann::json::parse(line, shallow);
  } catch (const nlohmann::json::exception& error) {
    throw ScenarioError("not JSON: " + validText(error.what()));  // which quotes the line
  }
  if (!object.is_object()) throw ScenarioError("not a JSON object");
  Arguments arguments(std::move(object), {}, folder);
  const std::string name = arguments.text("do");
  const auto parser = parsers_.find(name);
  if (parser == parsers_.end()) throw ScenarioError("unknown \"do\": \"" + name + "\"");
  const bool races = arguments.flag("race", false);
  Action action = parser->second(arguments);
  arguments.finish();
  return {name, std::move(action), races};
}

}  // namespace simulator
