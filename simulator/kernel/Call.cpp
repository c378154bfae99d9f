#include "simulator/kernel/Call.h"

#include <cstdio>
#include <cstdlib>
#include <string>

#include "simulator/kernel/RealTime.h"

namespace simulator {

void fatal(std::string_view text) {
  if (Call::isPossible()) Call::machineOrAbort().fatal(text);
  std::fprintf(stderr, "fatal: %.*s\n", static_cast<int>(text.size()), text.data());
  std::abort();
}

Machine& Call::machineOrAbort() {
  if (Machine::current_) return *Machine::current_;
  std::fputs("A platform call was made without a simulated Mac.\n", stderr);
  std::abort();
}

Machine& Call::enter(const char* name) {
  Machine& entered = machineOrAbort();
  if (RealTime::active()) entered.fatal(std::string(name) + " was called on a real-time thread");
  entered.scheduler.preempt();
  entered.faults.note(name);
  return entered;
}

Call::Call(const char* name, On thread) : machine(enter(name)), name_(name), lock_(machine.scheduler) {
  if (thread == On::mainThread && !machine.process.onMainThread()) {
    fatal(std::string(name) + " was called off the main thread");
  }
}

}  // namespace simulator
