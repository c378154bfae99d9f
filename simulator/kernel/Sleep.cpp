// Sleeps of the program's threads pass on the machine's clock: those of the C library, whose calls the linker hands to
// us, and waits for a kernel queue's timer.
#include <fcntl.h>
#include <sys/event.h>

#include <cerrno>
#include <ctime>
#include <map>

#include "simulator/kernel/Call.h"

using simulator::Call;
using simulator::Time;

namespace {

struct Timer {
  Time due{};
  simulator::Duration asked{};
  simulator::Counting counting{};
};

// The timers of the program's queues, by the queues' file descriptors.
std::map<int, Timer>& timers() {
  static auto* const all = new std::map<int, Timer>;
  return *all;
}

Time timeOn(const simulator::Scheduler& scheduler, simulator::Counting counting) {
  return counting == simulator::Counting::continuous ? scheduler.now() : scheduler.uptime();
}

Timer timerOf(const struct kevent& change, const simulator::Scheduler& scheduler) {
  if (change.filter != EVFILT_TIMER || change.flags != (EV_ADD | EV_ONESHOT) ||
      (change.fflags & ~static_cast<unsigned>(NOTE_MACH_CONTINUOUS_TIME)) != NOTE_SECONDS) {
    simulator::fatal("kevent: only timers that fire once after some seconds are simulated");
  }
  // "Without NOTE_ABSOLUTE (interval timer mode): continues to tick across sleep" (sys/event.h)
  const auto counting = change.fflags & static_cast<unsigned>(NOTE_MACH_CONTINUOUS_TIME)
                            ? simulator::Counting::continuous
                            : simulator::Counting::uptime;
  const auto asked = std::chrono::seconds(change.data);
  return {.due = timeOn(scheduler, counting) + asked, .asked = asked, .counting = counting};
}

}  // namespace

extern "C" {

int __real_nanosleep(const timespec* requested, timespec* remaining);
int __wrap_nanosleep(const timespec* requested, timespec* remaining);

int __wrap_nanosleep(const timespec* requested, timespec* remaining) {
  if (!simulator::Scheduler::current()) return __real_nanosleep(requested, remaining);
  simulator::Call::unguarded().scheduler.sleep(std::chrono::seconds(requested->tv_sec) +
                                               std::chrono::nanoseconds(requested->tv_nsec));
  return 0;
}

int kqueue(void) {
  const Call call("kqueue");
  if (const auto fault = call.fault()) {
    errno = *fault;
    return -1;
  }
  return open("/dev/null", O_RDONLY | O_CLOEXEC);
}

int kevent(int kq, const struct kevent* changelist, int nchanges, struct kevent* eventlist, int nevents,
           const timespec* timeout) {
  const Call call("kevent");
  if (nchanges > 1 || nevents != 1 || timeout) simulator::fatal("kevent: this use is not simulated");
  if (fcntl(kq, F_GETFD) == -1) return -1;  // EBADF
  simulator::Scheduler& scheduler = call.machine.scheduler;
  if (nchanges == 1) timers()[kq] = timerOf(*changelist, scheduler);
  const auto timer = timers().find(kq);
  if (timer == timers().end()) simulator::fatal("kevent waits for nothing, and so for ever");
  const Timer waited = timer->second;
  const auto left = waited.due - timeOn(scheduler, waited.counting);
  // The whole wait is what counts for `settle`.
  const auto waiting =
      waited.asked < simulator::Scheduler::longWait ? simulator::Waiting::work : simulator::Waiting::background;
  if (const auto fault = call.fault()) {
    // Half way; the timer that the interrupted call has set runs on.
    scheduler.sleep(left / 2, waiting, waited.counting);
    errno = *fault;
    return -1;
  }
  timers().erase(timer);
  scheduler.sleep(left, waiting, waited.counting);
  *eventlist = {.ident = 0, .filter = EVFILT_TIMER, .flags = 0, .fflags = 0, .data = 1, .udata = nullptr};
  return 1;
}

}  // extern "C"
