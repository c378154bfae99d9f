// Scenario files. Beyond not crashing: each line is understood or refused with ScenarioError, and is understood again
// when its JSON is written in another way; and on a machine on which no program runs, nothing that is understood breaks
// a rule, whatever comes before it.
#include <algorithm>
#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "fuzz/Target.h"
#include "simulator/mac/Mac.h"
#include "simulator/mac/Scenario.h"

using nlohmann::json;

namespace {

simulator::Options strict() {
  return {.clock = {}, .seed = {}, .trace = {}, .fatal = [] { std::abort(); }};
}

simulator::Program nothing() {
  return {.main = [] { return 0; }, .name = "Fuzz", .identifier = "example.fuzz", .version = "1"};
}

bool isUnderstood(simulator::Scenario& scenario, const std::string& lines) {
  std::istringstream stream(lines);
  try {
    scenario.add(stream, "fuzz");
    return true;
  } catch (const simulator::ScenarioError& error) {
    fuzz::require(std::string_view(error.what()).starts_with("fuzz:"), "it is said where it is wrong");
    return false;
  }
}

// What would only take long, or needs a program.
bool isWorthPlaying(const std::string& line) {
  const json object = json::parse(line, nullptr, false);
  if (!object.is_object()) return true;
  const std::string what = object.value("do", "");
  if (what == "launch" || what == "bundle" || what == "image" || what == "feed") return false;
  const auto seconds = object.find("seconds");
  return seconds == object.end() || !seconds->is_number() || seconds->get<double>() <= 3;
}

const fuzz::Target target("ScenarioLines", [](std::string_view bytes) {
  static std::unique_ptr<simulator::Mac> reader;
  if (!reader) reader = std::make_unique<simulator::Mac>(nothing(), strict());
  std::string understood;
  std::istringstream lines{std::string(bytes)};
  bool isPlayed = true;
  int count = 0;
  for (std::string line; std::getline(lines, line) && count < 16; ++count) {
    simulator::Scenario scenario(*reader);
    if (!isUnderstood(scenario, line)) continue;
    const json object = json::parse(line, nullptr, false);
    if (object.is_object()) fuzz::require(isUnderstood(scenario, object.dump(-1, ' ', true)), "JSON is JSON");
    isPlayed = isPlayed && isWorthPlaying(line);
    understood += line + "\n";
  }
  if (!isPlayed || understood.empty()) return;
  reader.reset();  // there is one machine at a time
  simulator::Mac machine(nothing(), strict());
  simulator::Scenario scenario(machine);
  fuzz::require(isUnderstood(scenario, understood), "what is understood alone is understood among others");
  try {
    scenario.play();
  } catch (const simulator::ScenarioError&) {
    return;  // a line that makes no sense where it stands
  }
  static_cast<void>(machine.snapshot().dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
  fuzz::require(machine.shutDown(), "nothing is left over where nothing ran");
});

}  // namespace
