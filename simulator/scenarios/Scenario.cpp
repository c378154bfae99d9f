#include "simulator/scenarios/Scenario.h"

#include <cmath>
#include <fstream>
#include <optional>
#include <utility>

#include "simulator/audio/Audio.h"
#include "simulator/desktop/Application.h"
#include "simulator/machine/Machine.h"

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

void addMachineCommands(Commands& commands) {
  commands.add("launch", [](Arguments&) -> Action { return [](Machine& machine) { machine.process.launch(); }; });

  commands.add("quit", [](Arguments&) -> Action { return [](Machine& machine) { machine.application->quit(); }; });

  commands.add("advance", [](Arguments& line) -> Action {
    const double seconds = line.number("seconds");
    if (!(seconds >= 0) || seconds > 1e9) line.fail("member \"seconds\" must be from 0 to a billion");
    const Duration duration(std::llround(seconds * 1e9));
    return [duration](Machine& machine) { machine.scheduler.advance(duration); };
  });

  commands.add("settle", [](Arguments&) -> Action {
    return [](Machine& machine) {
      for (Part* const part : machine.parts) part->willSettle();
      if (!machine.scheduler.settle()) machine.fatal("The program does not come to rest");
    };
  });

  commands.add("snapshot", [](Arguments& line) -> Action {
    const std::string name = line.text("name");
    return [name](Machine& machine) {
      auto record = machine.trace.record("snapshot");
      record.text("name", name);
      const auto state = machine.snapshot();
      for (const auto& [key, value] : state.items()) {
        record.json(key, value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
      }
    };
  });

  commands.add("temper", [](Arguments& line) -> Action {
    const std::optional<bool> threads = roughness(line, "threads");
    const std::optional<bool> audio = roughness(line, "audio");
    if (!threads && !audio) line.fail("needs \"threads\" or \"audio\"");
    return [threads, audio](Machine& machine) {
      if (threads) machine.scheduler.setRough(*threads);
      if (audio) machine.audio->setRough(*audio);
    };
  });

  commands.add("missing", [](Arguments& line) -> Action {
    if (line.has("library") == line.has("symbol")) line.fail("needs \"library\" or \"symbol\"");
    if (line.has("symbol")) {
      return [symbol = line.text("symbol")](Machine& machine) { machine.root.removeSymbol(symbol); };
    }
    return [library = line.text("library")](Machine& machine) {
      if (!machine.root.removeLibrary(library)) throw ScenarioError("there is no library \"" + library + "\"");
    };
  });
}

}  // namespace

Scenario::Scenario(Machine& machine) : machine_(machine) {
  addMachineCommands(commands_);
  commands_.add("fail", [&machine](Arguments& line) -> Action {
    const std::string call = line.text("call");
    if (!machine.faults.knows(call)) line.fail("there is no call \"" + call + "\" that can be made to fail");
    const auto status = line.integer<std::int32_t>("status");
    const std::uint64_t nth = line.count("nth", 1);
    const std::uint64_t times = line.count("times", 1);
    return [=](Machine& played) { played.faults.fail(call, status, nth, times); };
  });
  commands_.add("during", [this, &machine](Arguments& line) -> Action {
    const std::string call = line.text("call");
    if (!machine.faults.knows(call)) line.fail("there is no call \"" + call + "\" that can be interrupted");
    const nlohmann::json inner = line.jsonObject("line");
    // Time does not pass in the middle of a call.
    for (const char* const waiting : {"advance", "settle", "launch"}) {
      if (inner.value("do", nlohmann::json()) == waiting) line.fail("member \"line\" must not let anything run");
    }
    const auto happens = [call, action = commands_.parse(inner.dump())](Machine& played) {
      try {
        action(played);
      } catch (const ScenarioError& error) {
        // The call is the program's, which has no part in this mistake.
        played.fatal("during " + call + ": " + error.what());
      }
    };
    const std::uint64_t nth = line.count("nth", 1);
    const std::uint64_t times = line.count("times", 1);
    return [=](Machine& played) { played.faults.interrupt(call, [&played, happens] { happens(played); }, nth, times); };
  });
  for (Part* const part : machine.parts) part->addCommands(commands_);
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
  machine_.introduce();
  machine_.trace.record("do").json("line", step.line);
  step.action(machine_);
  machine_.runReady();
}

}  // namespace simulator
