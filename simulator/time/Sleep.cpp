// Sleeps of the program's threads pass on the machine's clock. The linker hands the program's calls to us.
#include <ctime>

#include "simulator/machine/Machine.h"

extern "C" {

int __real_nanosleep(const timespec* requested, timespec* remaining);
int __wrap_nanosleep(const timespec* requested, timespec* remaining);

int __wrap_nanosleep(const timespec* requested, timespec* remaining) {
  if (!simulator::Scheduler::current()) return __real_nanosleep(requested, remaining);
  simulator::Machine::current().scheduler.sleep(std::chrono::seconds(requested->tv_sec) +
                                                std::chrono::nanoseconds(requested->tv_nsec));
  return 0;
}

}  // extern "C"
