#include "simulator/mac/Scenario.h"

#include <cmath>
#include <fstream>
#include <optional>
#include <utility>

#include "simulator/audio/Audio.h"
#include "simulator/desktop/Application.h"
#include "simulator/mac/Mac.h"
#include "simulator/system/SystemRoot.h"

namespace simulator {
namespace {

// Whether that part of the machine is to be rough; none: as it is.
std::optional<bool> roughness(Arguments& line, const char* part) {
  if (!line.has(part)) return std::nullopt;
  const std::string temper = line.text(part);
  if (temper != "smooth" && temper != "rough") {
    line.fail(std::string("member \"") + part + "\" must be \"smooth\" or \"rough\"");
  }
  return temper == "rough";
}

void addMachineCommands(Commands& commands, Mac& mac) {
  commands.add("launch", [&mac](Arguments&) -> Action { return [&mac] { mac.process.launch(); }; });

  commands.add("quit", [&mac](Arguments&) -> Action { return [&mac] { mac.part<Application>().quit(); }; });

  commands.add("advance", [&mac](Arguments& line) -> Action {
    const double seconds = line.number("seconds");
    if (!(seconds >= 0) || seconds > 1e9) line.fail("member \"seconds\" must be from 0 to a billion");
    const Duration duration(std::llround(seconds * 1e9));
    return [&mac, duration] { mac.scheduler.advance(duration); };
  });

  commands.add("settle", [&mac](Arguments&) -> Action {
    return [&mac] {
      for (const auto& part : mac.parts()) part->willSettle();
      if (!mac.scheduler.settle()) mac.fatal("The program does not come to rest");
    };
  });

  commands.add("snapshot", [&mac](Arguments& line) -> Action {
    const std::string name = line.text("name");
    return [&mac, name] {
      auto record = mac.trace.record("snapshot");
      record.text("name", name);
      const auto state = mac.snapshot();
      for (const auto& [key, value] : state.items()) {
        record.json(key, value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
      }
    };
  });

  commands.add("temper", [&mac](Arguments& line) -> Action {
    const std::optional<bool> threads = roughness(line, "threads");
    const std::optional<bool> audio = roughness(line, "audio");
    if (!threads && !audio) line.fail("needs \"threads\" or \"audio\"");
    return [&mac, audio, threads] {
      if (audio) mac.part<Audio>().setRough(*audio);
      if (threads) mac.scheduler.setRough(*threads);
    };
  });

  commands.add("missing", [&mac](Arguments& line) -> Action {
    if (line.has("library") == line.has("symbol")) line.fail("needs \"library\" or \"symbol\"");
    if (line.has("symbol")) {
      return [&mac, symbol = line.text("symbol")] { mac.part<SystemRoot>().removeSymbol(symbol); };
    }
    return [&mac, library = line.text("library")] {
      if (!mac.part<SystemRoot>().removeLibrary(library))
        throw ScenarioError("there is no library \"" + library + "\"");
    };
  });
}

}  // namespace

Scenario::Scenario(Mac& mac) : mac_(mac) {
  addMachineCommands(commands_, mac);
  commands_.add("fail", [&mac](Arguments& line) -> Action {
    const std::string call = line.text("call");
    if (!mac.faults.knows(call)) line.fail("there is no call \"" + call + "\" that can be made to fail");
    const auto status = line.integer<std::int32_t>("status");
    const std::uint64_t nth = line.count("nth", 1);
    const std::uint64_t times = line.count("times", 1);
    return [=, &mac] { mac.faults.fail(call, status, nth, times); };
  });
  commands_.add("during", [this, &mac](Arguments& line) -> Action {
    const std::string call = line.text("call");
    if (!mac.faults.knows(call)) line.fail("there is no call \"" + call + "\" that can be interrupted");
    const nlohmann::json inner = line.jsonObject("line");
    // Time does not pass in the middle of a call.
    for (const char* const waiting : {"advance", "settle", "launch"}) {
      if (inner.value("do", nlohmann::json()) == waiting) line.fail("member \"line\" must not let anything run");
    }
    const auto happens = [&mac, call, action = commands_.parse(inner.dump())] {
      try {
        action();
      } catch (const ScenarioError& error) {
        // The call is the program's, which has no part in this mistake.
        mac.fatal("during " + call + ": " + error.what());
      }
    };
    const std::uint64_t nth = line.count("nth", 1);
    const std::uint64_t times = line.count("times", 1);
    return [=, &mac] { mac.faults.interrupt(call, happens, nth, times); };
  });
  commands_.addNotYetSimulated("slide");
  for (const auto& part : mac.parts()) part->addCommands(commands_);
}

void Scenario::addFile(const std::string& path) {
  std::ifstream file(path);
  if (!file) throw ScenarioError(path + ":1: the file cannot be read");
  add(file, path);
}

void Scenario::add(std::istream& lines, const std::string& name) {
  std::string line;
  for (std::size_t number = 1; std::getline(lines, line); ++number) {
    if (line.ends_with('\r')) line.pop_back();
    const auto start = line.find_first_not_of(" \t");
    if (start == std::string::npos || line.compare(start, 2, "//") == 0) continue;
    const std::string where = name + ":" + std::to_string(number) + ": ";
    try {
      steps_.push_back({where, line, commands_.parse(line)});
    } catch (const ScenarioError& error) {
      throw ScenarioError(where + error.what());
    }
  }
}

void Scenario::play() {
  for (const Step& step : std::exchange(steps_, {})) {
    try {
      carryOut(step);
    } catch (const ScenarioError& error) {
      throw ScenarioError(step.where + error.what());
    }
  }
}

void Scenario::perform(const std::string& line) { carryOut({"", line, commands_.parse(line)}); }

void Scenario::carryOut(const Step& step) {
  mac_.introduce();
  mac_.trace.record("do").json("line", step.line);
  step.action();
  mac_.runReady();
}

}  // namespace simulator
