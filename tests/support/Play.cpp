#include "tests/support/Play.h"

#include <sstream>

#include "desk/Desk.h"
#include "simulator/mac/Mac.h"
#include "simulator/mac/Scenario.h"

using nlohmann::json;

std::vector<json> Played::of(std::string_view what) const {
  std::vector<json> found;
  for (const json& record : records) {
    if (record["what"] == what) found.push_back(record);
  }
  return found;
}

std::vector<json> Played::calls(std::string_view api) const {
  std::vector<json> found;
  for (const json& record : of("call")) {
    if (record["api"] == api) found.push_back(record);
  }
  return found;
}

std::vector<std::string> Played::logs(std::string_view without) const {
  std::vector<std::string> texts;
  for (const json& record : of("log")) {
    if (record["category"] == without) continue;
    texts.push_back(record["level"].get<std::string>() + " " + record["category"].get<std::string>() + ": " +
                    record["text"].get<std::string>());
  }
  return texts;
}

std::vector<std::string> Played::writes(int display) const {
  std::vector<std::string> messages;
  for (const json& record : calls("IOAVServiceWriteI2C")) {
    if (record["args"]["display"] == display) {
      messages.push_back(record["t"].dump() + " " + record["args"]["bytes"].get<std::string>());
    }
  }
  return messages;
}

std::vector<int> Played::lights(int display) const {
  std::vector<int> values;
  for (const json& record : of("monitor")) {
    if (record["display"] == display) values.push_back(record["brightness"]);
  }
  return values;
}

std::vector<bool> Played::swallowed() const {
  std::vector<bool> result;
  for (const json& record : of("input")) result.push_back(record["swallowed"]);
  return result;
}

Played playScenario(const std::string& scenario, std::uint64_t seed, simulator::Clock clock,
                    const Preparation& preparation) {
  Played played;
  simulator::Program program = dalvaneProgram();
  if (preparation.program) program.main = preparation.program;
  {
    simulator::Mac machine(program, {.clock = clock,
                                     .seed = seed,
                                     .trace =
                                         [&played](std::string_view line) {
                                           played.bytes += line;
                                           played.bytes += '\n';
                                         },
                                     .fatal = {}});
    if (preparation.setUp) preparation.setUp(machine);
    try {
      simulator::Scenario steps(machine);
      std::istringstream lines(scenario);
      steps.add(lines, "test");
      steps.play();
      played.status = machine.shutDown() ? 0 : 1;
    } catch (const simulator::ScenarioError& error) {
      played.status = 2;
      played.error = error.what();
    }
  }
  std::istringstream lines(played.bytes);
  for (std::string line; std::getline(lines, line);) played.records.push_back(json::parse(line));
  return played;
}
