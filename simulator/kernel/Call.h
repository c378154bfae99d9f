// A call from the program into the machine.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "simulator/kernel/Machine.h"

namespace simulator {

// Stops the run: the program broke a rule of the platform, or stopped itself.
[[noreturn]] void fatal(std::string_view text);

// The beginning of every function of the platform: another thread may be chosen first, and the machine's lock is held
// until the call returns.
class Call {
 public:
  // Also fatal off the main thread, for calls that belong there.
  enum class On { anyThread, mainThread };

  // Fatal on a real-time thread, and where there is no machine.
  explicit Call(const char* name, On thread = On::anyThread);

  // Whether there is a machine to call. Objects of the platform can be used without one.
  [[nodiscard]] static bool isPossible() { return Machine::current_ != nullptr; }

  // The machine, for what is no call: waits, and looks at the clock. No other thread is chosen and no lock is held.
  [[nodiscard]] static Machine& unguarded() { return machineOrAbort(); }

  // The status that this call has been told to fail with, counted as one call.
  [[nodiscard]] std::optional<std::int32_t> fault() const { return machine.faults.take(name_); }

  template <typename T>
  [[nodiscard]] T& part() const {
    return machine.part<T>();
  }

  Machine& machine;

 private:
  friend void fatal(std::string_view text);
  static Machine& machineOrAbort();
  static Machine& enter(const char* name);

  const char* name_;
  Scheduler::Lock lock_;
};

}  // namespace simulator
