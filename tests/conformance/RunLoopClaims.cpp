// The main thread: its run loop's timers and blocks, the main queue, other queues, and the clocks that waits count on.
#include <CoreFoundation/CoreFoundation.h>
#include <dispatch/dispatch.h>
#include <sys/event.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <string>
#include <thread>
#include <vector>

#include "platform/CF.h"
#include "tests/conformance/Machine.h"

namespace {

using claims::letRun;
using claims::Mode;
using claims::runUntil;
using Events = std::vector<std::string>;

void onMainQueue(void (^block)()) { dispatch_async(dispatch_get_main_queue(), block); }

void onRunLoop(CFRunLoopMode mode, void (^block)()) {
  CFRunLoopPerformBlock(CFRunLoopGetMain(), mode, block);
  CFRunLoopWakeUp(CFRunLoopGetMain());
}

dispatch_time_t fromNow(double seconds) {
  return dispatch_time(DISPATCH_TIME_NOW, static_cast<std::int64_t>(seconds * static_cast<double>(NSEC_PER_SEC)));
}

// A timer on the main loop, from now on, until it goes out of scope.
class Timer {
 public:
  Timer(double delay, double interval, CFRunLoopMode mode, void (^handler)())
      : timer_(CF::adopt(CFRunLoopTimerCreateWithHandler(kCFAllocatorDefault, CFAbsoluteTimeGetCurrent() + delay,
                                                         interval, 0, 0, ^(CFRunLoopTimerRef) {
                                                           handler();
                                                         }))) {
    CFRunLoopAddTimer(CFRunLoopGetMain(), timer_.get(), mode);
  }
  ~Timer() { stop(); }
  Timer(const Timer&) = delete;
  Timer& operator=(const Timer&) = delete;

  void stop() { CFRunLoopTimerInvalidate(timer_.get()); }

 private:
  CF::Ref<CFRunLoopTimerRef> timer_;
};

// The main thread is busy for that long.
void work(double seconds) { std::this_thread::sleep_for(std::chrono::duration<double>(seconds)); }

}  // namespace

// ---- Timers ----

CLAIM(RunLoop, ATimerFiresOnceWithoutAnInterval, "A timer without an interval fires once.",
      "CFRunLoop.h, CFRunLoopTimerCreateWithHandler") {
  int fired = 0;
  int* const times = &fired;
  const Timer timer(0.02, 0, kCFRunLoopCommonModes, ^{
    ++*times;
  });
  EXPECT_EQ(fired, 0);
  EXPECT_TRUE(runUntil([&] { return fired > 0; }));
  letRun(0.1);
  EXPECT_EQ(fired, 1);
}

CLAIM(RunLoop, ATimerWhoseTimeHasComeFiresAtOnce, "A timer whose date lies in the past fires when the loop next runs.",
      "CFRunLoop.h, CFRunLoopTimerCreateWithHandler") {
  bool fired = false;
  bool* const seen = &fired;
  const Timer timer(-10, 0, kCFRunLoopCommonModes, ^{
    *seen = true;
  });
  EXPECT_FALSE(fired);
  EXPECT_TRUE(runUntil([&] { return fired; }, 1));
}

CLAIM(RunLoop, AMissedTimerFiresOnce,
      "A timer that repeats fires once for all the times that the loop was too busy for, and then keeps its rhythm.",
      "CFRunLoop.h, CFRunLoopTimerCreateWithHandler; Apple's Threading Programming Guide") {
  std::vector<CFAbsoluteTime> times;
  auto* const seen = &times;
  const CFAbsoluteTime began = CFAbsoluteTimeGetCurrent();
  const Timer timer(0.5, 0.5, kCFRunLoopCommonModes, ^{
    seen->push_back(CFAbsoluteTimeGetCurrent());
  });
  work(1.75);
  ASSERT_TRUE(runUntil([&] { return times.size() >= 3; }));
  EXPECT_NEAR(times[0] - began, 1.75, 0.2);  // for 0.5, 1 and 1.5
  EXPECT_NEAR(times[1] - began, 2, 0.2);
  EXPECT_NEAR(times[2] - began, 2.5, 0.2);
}

CLAIM(RunLoop, ATimerIsInvalidatedInItsOwnHandler, "A timer that is invalidated in its own handler fires no more.",
      "CFRunLoop.h, CFRunLoopTimerInvalidate") {
  int fired = 0;
  int* const times = &fired;
  const auto timer = CF::adopt(CFRunLoopTimerCreateWithHandler(kCFAllocatorDefault, CFAbsoluteTimeGetCurrent(), 0.02, 0,
                                                               0, ^(CFRunLoopTimerRef self) {
                                                                 ++*times;
                                                                 CFRunLoopTimerInvalidate(self);
                                                               }));
  CFRunLoopAddTimer(CFRunLoopGetMain(), timer.get(), kCFRunLoopCommonModes);
  EXPECT_TRUE(runUntil([&] { return fired > 0; }));
  letRun(0.1);
  EXPECT_EQ(fired, 1);
}

CLAIM(RunLoop, AnInvalidTimerDoesNotFire, "A timer that is invalidated before its time does not fire.",
      "CFRunLoop.h, CFRunLoopTimerInvalidate") {
  bool fired = false;
  bool* const seen = &fired;
  Timer timer(0.02, 0.02, kCFRunLoopCommonModes, ^{
    *seen = true;
  });
  timer.stop();
  letRun(0.1);
  EXPECT_FALSE(fired);
}

CLAIM(RunLoop, TheLoopKeepsItsTimers, "The loop keeps a timer that repeats: it needs no other reference.",
      "CFRunLoop.h, CFRunLoopAddTimer") {
  int fired = 0;
  int* const times = &fired;
  {
    const auto timer = CF::adopt(CFRunLoopTimerCreateWithHandler(kCFAllocatorDefault, CFAbsoluteTimeGetCurrent(), 0.02,
                                                                 0, 0, ^(CFRunLoopTimerRef self) {
                                                                   if (++*times == 3) CFRunLoopTimerInvalidate(self);
                                                                 }));
    CFRunLoopAddTimer(CFRunLoopGetMain(), timer.get(), kCFRunLoopCommonModes);
  }
  EXPECT_TRUE(runUntil([&] { return fired == 3; }));
}

CLAIM(RunLoop, TimersFireInTheirModes,
      "A timer of the default mode does not fire while an alert or a menu is open; one of the common modes does.",
      "CFRunLoop.h, CFRunLoopAddTimer; NSApplication.h, NSModalPanelRunLoopMode, NSEventTrackingRunLoopMode") {
  int inDefault = 0;
  int inCommon = 0;
  int* const defaults = &inDefault;
  int* const commons = &inCommon;
  const Timer one(0.02, 0.02, kCFRunLoopDefaultMode, ^{
    ++*defaults;
  });
  const Timer other(0.02, 0.02, kCFRunLoopCommonModes, ^{
    ++*commons;
  });
  for (const Mode mode : {Mode::modalPanel, Mode::eventTracking}) {
    inCommon = 0;
    letRun(0.2, mode);
    EXPECT_EQ(inDefault, 0);
    EXPECT_GT(inCommon, 3);
  }
  EXPECT_TRUE(runUntil([&] { return inDefault > 0; }));
}

// ---- Blocks of the loop ----

CLAIM(RunLoop, ABlockWaitsForItsMode,
      "A block of the default mode waits while an alert is open; one of the common modes does not.",
      "CFRunLoop.h, CFRunLoopPerformBlock") {
  Events events;
  Events* const seen = &events;
  onRunLoop(kCFRunLoopDefaultMode, ^{
    seen->push_back("default");
  });
  onRunLoop(kCFRunLoopCommonModes, ^{
    seen->push_back("common");
  });
  letRun(0.1, Mode::modalPanel);
  EXPECT_EQ(events, Events{"common"});
  EXPECT_TRUE(runUntil([&] { return events.size() == 2; }));
}

CLAIM(RunLoop, BlocksAreDoneInTurn, "Blocks of one mode are done in the order in which they were given.",
      "CFRunLoop.h, CFRunLoopPerformBlock; observed (Core Foundation's public sources)") {
  Events events;
  Events* const seen = &events;
  for (const char* const name : {"one", "two", "three"}) {
    onRunLoop(kCFRunLoopDefaultMode, ^{
      seen->push_back(name);
    });
  }
  EXPECT_TRUE(runUntil([&] { return events.size() == 3; }));
  EXPECT_EQ(events, (Events{"one", "two", "three"}));
}

CLAIM(RunLoop, ABlockHoldsUpThoseTakenUpWithIt,
      "Blocks that the loop has taken up together wait for each other, also for one that runs the loop inside itself.",
      "observed (Core Foundation's public sources)") {
  Events events;
  Events* const seen = &events;
  onRunLoop(kCFRunLoopDefaultMode, ^{
    letRun(0.1, Mode::modalPanel);
    seen->push_back("one");
  });
  onRunLoop(kCFRunLoopCommonModes, ^{
    seen->push_back("two");
  });
  EXPECT_TRUE(runUntil([&] { return events.size() == 2; }));
  EXPECT_EQ(events, (Events{"one", "two"}));
}

CLAIM(RunLoop, ABlockThatABlockGivesIsDoneLater,
      "A block that is given in a block is done when the loop comes round again.",
      "CFRunLoop.h, CFRunLoopPerformBlock") {
  Events events;
  Events* const seen = &events;
  onRunLoop(kCFRunLoopDefaultMode, ^{
    onRunLoop(kCFRunLoopDefaultMode, ^{
      seen->push_back("inner");
    });
    seen->push_back("outer");
  });
  EXPECT_TRUE(runUntil([&] { return events.size() == 2; }));
  EXPECT_EQ(events, (Events{"outer", "inner"}));
}

// ---- The main queue ----

CLAIM(MainQueue, IsServedByTheRunLoop, "What is handed to the main queue is done on the main thread, by its run loop.",
      "dispatch/queue.h, dispatch_get_main_queue") {
  Events events;
  Events* const seen = &events;
  onMainQueue(^{
    dispatch_assert_queue(dispatch_get_main_queue());
    seen->push_back("done");
  });
  EXPECT_EQ(events, Events{});
  EXPECT_TRUE(runUntil([&] { return !events.empty(); }));
}

CLAIM(MainQueue, KeepsItsOrder, "Blocks of the main queue are done in the order in which they were given.",
      "dispatch/queue.h, dispatch_async") {
  Events events;
  Events* const seen = &events;
  for (const char* const name : {"one", "two", "three"}) {
    onMainQueue(^{
      seen->push_back(name);
    });
  }
  EXPECT_TRUE(runUntil([&] { return events.size() == 3; }));
  EXPECT_EQ(events, (Events{"one", "two", "three"}));
}

CLAIM(MainQueue, IsServedInModalLoops, "The main queue is served while an alert or a menu is open.",
      "observed: the main queue is drained in the common modes") {
  for (const Mode mode : {Mode::modalPanel, Mode::eventTracking}) {
    bool done = false;
    bool* const seen = &done;
    onMainQueue(^{
      *seen = true;
    });
    letRun(0.1, mode);
    EXPECT_TRUE(done);
  }
}

CLAIM(MainQueue, IsSerialAroundLoopsInsideIt,
      "While a block of the main queue runs, no other begins, not even when the block runs the loop inside itself, as "
      "an alert does.",
      "dispatch/queue.h: the main queue is serial; observed in loops") {
  Events events;
  Events* const seen = &events;
  onMainQueue(^{
    onMainQueue(^{
      seen->push_back("inner");
    });
    letRun(0.1, Mode::modalPanel);
    letRun(0.1);
    seen->push_back("outer");
  });
  EXPECT_TRUE(runUntil([&] { return events.size() == 2; }));
  EXPECT_EQ(events, (Events{"outer", "inner"}));
}

CLAIM(MainQueue, LeavesTheLoopToOthersMeanwhile,
      "While a block of the main queue runs the loop inside itself, timers and blocks of the loop are done.",
      "CFRunLoop.h, CFRunLoopPerformBlock; observed") {
  Events events;
  Events* const seen = &events;
  bool fired = false;
  bool* const hasFired = &fired;
  const Timer timer(0.02, 0, kCFRunLoopCommonModes, ^{
    *hasFired = true;
  });
  onMainQueue(^{
    onRunLoop(kCFRunLoopCommonModes, ^{
      seen->push_back("of the loop");
    });
    letRun(0.1, Mode::modalPanel);
    seen->push_back(*hasFired ? "of the queue, after the timer" : "of the queue");
  });
  EXPECT_TRUE(runUntil([&] { return events.size() == 2; }));
  EXPECT_EQ(events, (Events{"of the loop", "of the queue, after the timer"}));
}

CLAIM(MainQueue, GoesOnInsideABlockOfTheLoop,
      "Where a block of the loop runs the loop inside itself, the main queue is served.",
      "observed: no block of the queue is running then") {
  Events events;
  Events* const seen = &events;
  onRunLoop(kCFRunLoopDefaultMode, ^{
    onMainQueue(^{
      seen->push_back("of the queue");
    });
    letRun(0.1, Mode::modalPanel);
    seen->push_back("of the loop");
  });
  EXPECT_TRUE(runUntil([&] { return events.size() == 2; }));
  EXPECT_EQ(events, (Events{"of the queue", "of the loop"}));
}

STOPS(MainQueue, IsAssertedOffTheMainThread, "Code that asserts the main queue stops the process on another queue.",
      "dispatch/queue.h, dispatch_assert_queue") {
  dispatch_async(dispatch_get_global_queue(QOS_CLASS_DEFAULT, 0), ^{
    dispatch_assert_queue(dispatch_get_main_queue());
  });
  work(1);
}

// ---- Other queues and waits ----

CLAIM(Dispatch, AQueueIsSerial, "A queue made with the serial attribute does its blocks one after the other, in order.",
      "dispatch/queue.h, DISPATCH_QUEUE_SERIAL") {
  const dispatch_queue_t queue = dispatch_queue_create("claims", DISPATCH_QUEUE_SERIAL);
  std::atomic<int> running = 0;
  std::atomic<int> overlaps = 0;
  std::atomic<int> done = 0;
  std::atomic<int> outOfOrder = 0;
  auto* const now = &running;
  auto* const overlapping = &overlaps;
  auto* const count = &done;
  auto* const wrong = &outOfOrder;
  for (int i = 0; i < 5; ++i) {
    dispatch_async(queue, ^{
      if (++*now > 1) ++*overlapping;
      work(0.002);
      if (*count != i) ++*wrong;
      --*now;
      ++*count;
    });
  }
  EXPECT_TRUE(runUntil([&] { return done == 5; }));
  EXPECT_EQ(overlaps, 0);
  EXPECT_EQ(outOfOrder, 0);
  dispatch_release(queue);
}

CLAIM(Dispatch, AQueueWaitsForNoOther, "A queue does its blocks while a block of another one is being done.",
      "dispatch/queue.h: serial queues are processed concurrently with respect to each other") {
  const dispatch_queue_t queues[] = {dispatch_queue_create("one", DISPATCH_QUEUE_SERIAL),
                                     dispatch_queue_create("other", DISPATCH_QUEUE_SERIAL)};
  std::atomic<int> done = 0;
  auto* const count = &done;
  // There is one thread that has nothing to do any more.
  dispatch_async(queues[0], ^{
    ++*count;
  });
  EXPECT_TRUE(runUntil([&] { return done == 1; }));
  work(0.1);
  std::atomic<bool> otherIsDone = false;
  auto* const isOtherDone = &otherIsDone;
  dispatch_async(queues[0], ^{
    for (int i = 0; i < 100 && !*isOtherDone; ++i) work(0.01);
    if (*isOtherDone) ++*count;
  });
  dispatch_async(queues[1], ^{
    *isOtherDone = true;
  });
  EXPECT_TRUE(runUntil([&] { return done == 2; }));
  for (const dispatch_queue_t queue : queues) dispatch_release(queue);
}

CLAIM(Dispatch, AQueueLivesUntilItsBlocksAreDone, "A queue that is released with blocks in it does them first.",
      "dispatch/object.h, dispatch_release; dispatch/queue.h, dispatch_async") {
  std::atomic<int> done = 0;
  auto* const count = &done;
  const dispatch_queue_t queue = dispatch_queue_create("claims", DISPATCH_QUEUE_SERIAL);
  dispatch_retain(queue);
  for (int i = 0; i < 3; ++i) {
    dispatch_async(queue, ^{
      work(0.002);
      ++*count;
    });
  }
  dispatch_release(queue);
  dispatch_release(queue);
  EXPECT_TRUE(runUntil([&] { return done == 3; }));
}

CLAIM(Dispatch, TheGlobalQueueIsOffTheMainThread, "A global queue does its blocks while the main thread is busy.",
      "dispatch/queue.h, dispatch_get_global_queue") {
  std::atomic<bool> done = false;
  auto* const seen = &done;
  dispatch_async(dispatch_get_global_queue(QOS_CLASS_UTILITY, 0), ^{
    *seen = true;
  });
  for (int i = 0; i < 1000 && !done; ++i) work(0.005);  // without its loop
  EXPECT_TRUE(done);
}

CLAIM(Dispatch, ABlockComesAfterItsDelay, "A block that is to wait is not done before its time.",
      "dispatch/queue.h, dispatch_after") {
  const CFAbsoluteTime began = CFAbsoluteTimeGetCurrent();
  double waited = 0;
  double* const seen = &waited;
  dispatch_after(fromNow(0.1), dispatch_get_main_queue(), ^{
    *seen = CFAbsoluteTimeGetCurrent() - began;
  });
  EXPECT_TRUE(runUntil([&] { return waited > 0; }));
  EXPECT_GE(waited, 0.099);
  EXPECT_LT(waited, 1);
}

CLAIM(Dispatch, TheWallClockCountsToo, "A time on the wall clock is waited for as well as one of the machine's uptime.",
      "dispatch/time.h, dispatch_walltime") {
  const CFAbsoluteTime began = CFAbsoluteTimeGetCurrent();
  double waited = 0;
  double* const seen = &waited;
  dispatch_after(dispatch_walltime(nullptr, 100 * static_cast<std::int64_t>(NSEC_PER_MSEC)), dispatch_get_main_queue(),
                 ^{
                   *seen = CFAbsoluteTimeGetCurrent() - began;
                 });
  EXPECT_TRUE(runUntil([&] { return waited > 0; }));
  EXPECT_GE(waited, 0.09);
  EXPECT_LT(waited, 1);
}

CLAIM(Dispatch, ForEverStaysForEver, "A time for ever from now is for ever, whatever is added to it.",
      "dispatch/time.h, dispatch_time") {
  EXPECT_EQ(dispatch_time(DISPATCH_TIME_FOREVER, 5), DISPATCH_TIME_FOREVER);
  const dispatch_time_t now = dispatch_time(DISPATCH_TIME_NOW, 0);
  EXPECT_GT(dispatch_time(now, static_cast<std::int64_t>(NSEC_PER_SEC)), now);
}

CLAIM(Dispatch, AThreadSleepsAtLeastItsTime, "A thread that sleeps wakes up no sooner than it wanted.",
      "man 2 nanosleep") {
  const CFAbsoluteTime began = CFAbsoluteTimeGetCurrent();
  const timespec time = {.tv_sec = 0, .tv_nsec = 30'000'000};
  EXPECT_EQ(nanosleep(&time, nullptr), 0);
  EXPECT_GE(CFAbsoluteTimeGetCurrent() - began, 0.029);
}

CLAIM(Dispatch, AKernelQueueIsAClock,
      "A kernel queue's timer in seconds, on the time that goes on while the Mac sleeps, is waited for by kevent.",
      "man 2 kqueue, EVFILT_TIMER; sys/event.h, NOTE_MACH_CONTINUOUS_TIME") {
  const int queue = kqueue();
  ASSERT_GE(queue, 0);
  struct kevent timer = {};
  timer.ident = 1;
  timer.filter = EVFILT_TIMER;
  timer.flags = EV_ADD | EV_ONESHOT;
  timer.fflags = NOTE_SECONDS | NOTE_MACH_CONTINUOUS_TIME;
  timer.data = 1;
  struct kevent fired = {};
  const CFAbsoluteTime began = CFAbsoluteTimeGetCurrent();
  EXPECT_EQ(kevent(queue, &timer, 1, &fired, 1, nullptr), 1);
  EXPECT_EQ(fired.filter, EVFILT_TIMER);
  EXPECT_GE(CFAbsoluteTimeGetCurrent() - began, 0.99);
  close(queue);
}
