// The main run loop: what is waiting to be done on the main thread, in which modes it may be done, and in what order.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <deque>
#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/Block.h"
#include "simulator/kernel/Object.h"
#include "simulator/kernel/Part.h"
#include "simulator/kernel/Scheduler.h"

struct __CFRunLoop : simulator::Object {
  std::string_view kind() const override { return "CFRunLoop"; }
};

// The event tap's port, or any other whose messages go to the main run loop.
struct __CFMachPort : simulator::Object {
  std::string_view kind() const override { return "CFMachPort"; }
  void willDie() override { invalidate(); }
  void invalidate();

  bool valid = true;
  bool scheduled = false;           // has a source on the main run loop
  unsigned int modes = 0;           // the modes of that source
  std::function<void()> onInvalid;  // tells the port's owner in the machine
};

struct __CFRunLoopSource : simulator::Object {
  explicit __CFRunLoopSource(__CFMachPort* messages);
  ~__CFRunLoopSource() override;
  std::string_view kind() const override { return "CFRunLoopSource"; }

  __CFMachPort* const port;
};

struct __CFRunLoopTimer : simulator::Object {
  std::string_view kind() const override { return "CFRunLoopTimer"; }
  ~__CFRunLoopTimer() override;

  simulator::Time fireDate{0};      // on the uptime clock, as Core Foundation keeps it
  simulator::Duration interval{0};  // 0: fires once
  void (^handler)(CFRunLoopTimerRef) = nullptr;
  bool valid = true;
  unsigned int modes = 0;  // 0: not on the run loop
  simulator::Scheduler::TimerID alarm{};
};

namespace simulator {

class Machine;

// The modes that the main thread's loop runs in, as bits.
using Modes = unsigned int;
inline constexpr Modes defaultMode = 1;
inline constexpr Modes eventTrackingMode = 2;  // while a menu is open
inline constexpr Modes modalPanelMode = 4;     // while an alert is shown
inline constexpr Modes commonModes = defaultMode | eventTrackingMode | modalPanelMode;

class RunLoop : public Part {
 public:
  explicit RunLoop(Machine& machine);

  // Adds work for the main thread, to be done in one of `modes`. Work of one `lane` (anything that identifies a
  // source) is done in the order in which it was added; among lanes the run's seed chooses.
  void post(const void* lane, Modes modes, std::function<void()> work);
  // The same for work of the main queue, which is serial: while a piece of it runs, and be it for as long as an alert
  // stands, no other begins. Done in the common modes.
  void postToMainQueue(const void* lane, std::function<void()> work);
  // Takes back what was posted on a lane and is not done.
  void remove(const void* lane);
  // Does one piece of work on the main thread, waiting until there is some.
  void runOnce(Modes mode);

  // For how long a piece of work has held the main thread up at most, without the loops that it ran itself, and how
  // many pieces there were.
  [[nodiscard]] Duration longestWork() const { return longestWork_; }
  [[nodiscard]] std::uint64_t works() const { return works_; }

  // Keeps the block until the loop next goes round in one of `modes`, which it does for another piece of work, or when
  // it is woken up.
  void addBlock(Modes modes, void (^block)());
  void wakeUp();

  void addTimer(__CFRunLoopTimer& timer, Modes modes);
  void removeTimer(__CFRunLoopTimer& timer);

  [[nodiscard]] static Modes modesOf(CFRunLoopMode mode, const char* call);

  void processWillEnd(Leaks& leaks) override;
  void processEnded(Leaks& leaks) override;

 private:
  struct Work {
    const void* lane;
    Modes modes;
    bool onMainQueue;
    std::function<void()> perform;
  };
  struct PerformedBlock {
    Modes modes;
    Block<void (^)()> block;
    bool ready;  // the loop has been woken up since
  };

  void add(Work work);
  std::function<void()> takeWork(Modes mode);
  [[nodiscard]] std::vector<std::size_t> choices(Modes mode) const;
  void performBlocks(Modes mode);
  void arm(__CFRunLoopTimer& timer);
  void fire(__CFRunLoopTimer& timer);

  Machine& machine_;
  std::deque<Work> pending_;
  bool servesMainQueue_ = false;
  Duration longestWork_{0};
  std::uint64_t works_ = 0;
  Duration inInnerLoops_{0};  // so much of the work that is being done
  std::deque<PerformedBlock> blocks_;
  std::set<__CFRunLoopTimer*> timers_;
  WaitQueue waiting_;
};

}  // namespace simulator
