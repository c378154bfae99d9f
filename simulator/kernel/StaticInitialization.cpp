// Local statics of the program. While one is being initialised no other fiber may be chosen: it could come to the same
// static, and the C++ runtime, which knows host threads only, would take that for a recursion. The linker hands the
// compiler's calls around an initialisation (the Itanium ABI's guards) to us.
#include "simulator/kernel/Scheduler.h"

using simulator::Scheduler;

extern "C" {

// The names are the linker's: --wrap gives them.
// NOLINTBEGIN(bugprone-reserved-identifier)
int __real___cxa_guard_acquire(void* guard);
void __real___cxa_guard_release(void* guard);
void __real___cxa_guard_abort(void* guard);
int __wrap___cxa_guard_acquire(void* guard);
void __wrap___cxa_guard_release(void* guard);
void __wrap___cxa_guard_abort(void* guard);

// True when the caller is to initialise the static.
int __wrap___cxa_guard_acquire(void* guard) {
  const int initialises = __real___cxa_guard_acquire(guard);
  if (initialises) Scheduler::keepRunning(true);
  return initialises;
}

void __wrap___cxa_guard_release(void* guard) {
  __real___cxa_guard_release(guard);
  Scheduler::keepRunning(false);
}

void __wrap___cxa_guard_abort(void* guard) {
  __real___cxa_guard_abort(guard);
  Scheduler::keepRunning(false);
}
// NOLINTEND(bugprone-reserved-identifier)

}  // extern "C"
