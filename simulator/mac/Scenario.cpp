#include "simulator/mac/Scenario.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <optional>
#include <utility>

#include "simulator/audio/Audio.h"
#include "simulator/desktop/Application.h"
#include "simulator/displays/Displays.h"
#include "simulator/mac/Mac.h"
#include "simulator/software/Applications.h"
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

bool letsTimePass(const Line& line) { return line.name == "advance" || line.name == "settle"; }

void addMachineCommands(Commands& commands, Mac& mac) {
  commands.add("launch", [&mac](Arguments&) -> Action {
    return [&mac] {
      // An installation that was cut short can have left nothing to open.
      if (std::filesystem::exists(mac.part<Applications>().bundle())) mac.process.launch();
    };
  });

  commands.add("quit", [&mac](Arguments&) -> Action { return [&mac] { mac.part<Application>().quit(); }; });

  commands.add("advance", [&mac](Arguments& line) -> Action {
    const Duration duration = line.duration("seconds");
    return [&mac, duration] { mac.scheduler.advance(duration); };
  });

  commands.add("sleep", [&mac](Arguments& line) -> Action {
    const Duration duration = line.duration("seconds");
    std::optional<Duration> monitors;
    if (line.has("wakes-after")) monitors = line.duration("wakes-after");
    return [&mac, duration, monitors] {
      if (mac.scheduler.clock() == Clock::live) throw ScenarioError("real time cannot be slept through");
      if (monitors) mac.part<Displays>().setMonitorsWakeAfter(*monitors);
      for (const auto& part : mac.parts()) part->willSleep();
      mac.scheduler.sleepThrough(duration);
      for (const auto& part : mac.parts()) part->didWake();
    };
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
    if (line.has("status") && line.json("status").is_null()) return [call, &mac] { mac.faults.mend(call); };
    // As a signed number, or as IOKit's headers write theirs.
    const auto wide = line.integer<std::int64_t>("status");
    if (wide < std::numeric_limits<std::int32_t>::min() || wide > std::numeric_limits<std::uint32_t>::max())
      line.fail("member \"status\" must be a number of 32 bits");
    const auto status = static_cast<std::int32_t>(wide);
    const std::uint64_t nth = line.count("nth", 1);
    const std::uint64_t times = line.count("times", 1);
    return [=, &mac] { mac.faults.fail(call, status, nth, times); };
  });
  commands_.add("during", [this, &mac](Arguments& line) -> Action {
    const std::string call = line.text("call");
    if (!mac.faults.knows(call)) line.fail("there is no call \"" + call + "\" that can be interrupted");
    const std::string text = line.jsonObject("line").dump();
    const Line inner = commands_.parse(text, line.folder());
    // Time does not pass in the middle of a call.
    if (letsTimePass(inner) || inner.name == "launch") line.fail("member \"line\" must not let anything run");
    if (inner.races) line.fail("member \"line\" happens in the middle of the call, not at another moment");
    const auto happens = [this, &mac, step = Step{"during " + call + ": ", text, inner}] {
      try {
        carryOut(step);
      } catch (const ScenarioError& error) {
        mac.noteMistake(error.what());
      }
    };
    const std::uint64_t nth = line.count("nth", 1);
    const std::uint64_t times = line.count("times", 1);
    return [=, &mac] { mac.faults.interrupt(call, happens, nth, times); };
  });
  for (const auto& part : mac.parts()) part->addCommands(commands_);
}

void Scenario::addFile(const std::string& path) {
  std::ifstream file(path);
  if (!file || std::filesystem::is_directory(path)) throw ScenarioError(path + ":1: the file cannot be read");
  add(file, path, std::filesystem::path(path).parent_path());
}

void Scenario::add(std::istream& lines, const std::string& name, const std::filesystem::path& folder) {
  std::string line;
  for (std::size_t number = 1; std::getline(lines, line); ++number) {
    constexpr std::string_view byteOrderMark = "\xEF\xBB\xBF";
    if (line.starts_with(byteOrderMark)) line.erase(0, byteOrderMark.size());
    if (line.ends_with('\r')) line.pop_back();
    const auto start = line.find_first_not_of(" \t");
    if (start == std::string::npos || line.compare(start, 2, "//") == 0) continue;
    const std::string where = name + ":" + std::to_string(number) + ": ";
    try {
      steps_.push_back(stepOf(where, line, folder));
    } catch (const ScenarioError& error) {
      throw ScenarioError(where + error.what());
    }
  }
}

Scenario::Step Scenario::stepOf(const std::string& where, const std::string& line,
                                const std::filesystem::path& folder) const {
  Step step{where, line, commands_.parse(line, folder)};
  // It passes from where it stands.
  if (letsTimePass(step.parsed)) step.parsed.races = false;
  return step;
}

void Scenario::play(const std::function<bool(std::size_t lines)>& afterEach) {
  mac_.introduce();
  const auto steps = std::exchange(steps_, {});
  for (auto step = steps.begin(); step != steps.end();) {
    const auto first = step;
    begin(*step++);
    // What races is known before anything runs that it could meet.
    while (step != steps.end() && step->parsed.races) begin(*step++);
    finish(*std::prev(step));
    if (afterEach && !afterEach(static_cast<std::size_t>(step - first))) return;
  }
  mac_.scheduler.finishRaces();
}

void Scenario::perform(const std::string& line) {
  const Step step = stepOf("", line, {});
  begin(step);
  finish(step);
}

void Scenario::finish(const Step& step) {
  mac_.runReady();
  if (const auto mistake = mac_.takeMistake(); mistake && !forgives_) throw ScenarioError(step.where + *mistake);
}

void Scenario::begin(const Step& step) {
  if (step.parsed.races) return mac_.scheduler.race([this, step] { carryOut(step); });
  if (!letsTimePass(step.parsed)) mac_.scheduler.finishRaces();
  carryOut(step);
}

void Scenario::carryOut(const Step& step) {
  mac_.introduce();
  mac_.trace.record("do").json("line", step.line);
  // What goes wrong while time passes is the mistake of a line that raced, and says so.
  if (letsTimePass(step.parsed)) return step.parsed.action();
  try {
    step.parsed.action();
  } catch (const ScenarioError& error) {
    if (forgives_) return;
    throw ScenarioError(step.where + error.what());
  }
}

}  // namespace simulator
