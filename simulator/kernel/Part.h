// What every part of the simulated Mac is to the whole.
#pragma once

#include <cstddef>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <string>

namespace simulator {

class Commands;

// Things that were still alive when they should have been gone, by kind.
using Leaks = std::map<std::string, std::size_t>;

class Part {
 public:
  virtual ~Part() = default;

  // Adds the scenario lines that this part understands.
  virtual void addCommands(Commands&) {}
  // `settle` begins: what this part leaves to the background may first have to come through.
  virtual void willSettle() {}
  // The run ends here and now, without another destructor.
  virtual void runIsCutShort() {}
  // The Mac falls asleep: the last thing before nothing runs any more.
  virtual void willSleep() {}
  // It has woken up: the first thing that happens.
  virtual void didWake() {}
  // The program is launched.
  virtual void processWillStart() {}
  // The program's process ends now: counts what it registered with this part and did not take back.
  virtual void processWillEnd(Leaks&) {}
  // Its threads are gone: drops whatever it left behind, and counts what it should have given back itself.
  virtual void processEnded(Leaks&) {}
  // Adds what is visible of this part.
  virtual void snapshot(nlohmann::ordered_json&) {}
};

}  // namespace simulator
