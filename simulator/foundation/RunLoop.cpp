#include "simulator/foundation/RunLoop.h"

#include <Block.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>
#include <vector>

#include "platform/CF.h"
#include "simulator/foundation/Dispatch.h"
#include "simulator/kernel/Call.h"

using simulator::Call;
using simulator::commonModes;
using simulator::defaultMode;
using simulator::Machine;

// ---- Objects ----

void __CFMachPort::invalidate() {
  if (!std::exchange(valid, false)) return;
  if (const auto action = std::exchange(onInvalid, nullptr)) action();
}

__CFRunLoopSource::__CFRunLoopSource(__CFMachPort* messages) : port(messages) {
  simulator::retain(port, "CFMachPortCreateRunLoopSource");
}

__CFRunLoopSource::~__CFRunLoopSource() { simulator::release(port, "CFRelease"); }

__CFRunLoopTimer::~__CFRunLoopTimer() {
  if (handler) Block_release(handler);
}

namespace simulator {

// ---- The loop ----

RunLoop::RunLoop(Machine& machine) : machine_(machine), waiting_(machine.scheduler) {
  machine.faults.declare({"CFMachPortCreateRunLoopSource", "CFRunLoopTimerCreateWithHandler"});
}

void RunLoop::post(const void* lane, Modes modes, std::function<void()> work) {
  add({.lane = lane, .modes = modes, .onMainQueue = false, .perform = std::move(work)});
}

void RunLoop::postToMainQueue(const void* lane, std::function<void()> work) {
  add({.lane = lane, .modes = commonModes, .onMainQueue = true, .perform = [this, work = std::move(work)] {
         struct Serving {
           explicit Serving(bool& serves) : flag(serves) { flag = true; }
           ~Serving() { flag = false; }
           Serving(const Serving&) = delete;
           Serving& operator=(const Serving&) = delete;
           bool& flag;
         };
         const Serving serving(servesMainQueue_);
         work();
       }});
}

void RunLoop::add(Work work) {
  const Scheduler::Lock lock(machine_.scheduler);
  pending_.push_back(std::move(work));
  waiting_.notifyOne();
}

void RunLoop::remove(const void* lane) {
  std::erase_if(pending_, [lane](const Work& work) { return work.lane == lane; });
}

void RunLoop::runOnce(Modes mode) {
  const Time called = machine_.scheduler.uptime();
  const auto work = takeWork(mode);
  const Time begun = machine_.scheduler.uptime();
  const Duration outside = std::exchange(inInnerLoops_, Duration::zero());
  if (work) {
    work();
  } else {
    performBlocks(mode);
  }
  const Time ended = machine_.scheduler.uptime();
  longestWork_ = std::max(longestWork_, ended - begun - inInnerLoops_);
  ++works_;
  inInnerLoops_ = outside + (ended - called);
}

// The next work, waiting until there is some; nothing when blocks are to be performed.
std::function<void()> RunLoop::takeWork(Modes mode) {
  const Scheduler::Lock lock(machine_.scheduler);
  for (;;) {
    const std::vector<std::size_t> works = choices(mode);
    const bool hasBlocks =
        std::ranges::any_of(blocks_, [mode](const auto& each) { return each.ready && (each.modes & mode); });
    const std::size_t count = works.size() + (hasBlocks ? 1 : 0);
    if (count == 0) {
      waiting_.wait();
      continue;
    }
    const std::size_t chosen = machine_.scheduler.choose(count);
    if (chosen == works.size()) return nullptr;
    // The loop wakes up for this work, so that it gets to its blocks afterwards.
    for (PerformedBlock& each : blocks_) each.ready = true;
    const auto work = pending_.begin() + static_cast<std::ptrdiff_t>(works[chosen]);
    auto perform = std::move(work->perform);
    pending_.erase(work);
    return perform;
  }
}

// Of each lane the first work, if this mode does it.
std::vector<std::size_t> RunLoop::choices(Modes mode) const {
  std::vector<const void*> lanes;
  std::vector<std::size_t> found;
  for (std::size_t i = 0; i < pending_.size(); ++i) {
    if (std::ranges::find(lanes, pending_[i].lane) != lanes.end()) continue;
    lanes.push_back(pending_[i].lane);
    if ((pending_[i].modes & mode) && !(pending_[i].onMainQueue && servesMainQueue_)) found.push_back(i);
  }
  return found;
}

void RunLoop::addBlock(Modes modes, void (^block)()) {
  const Scheduler::Lock lock(machine_.scheduler);
  blocks_.push_back({modes, Block<void (^)()>(block), false});
}

void RunLoop::wakeUp() {
  const Scheduler::Lock lock(machine_.scheduler);
  for (PerformedBlock& each : blocks_) each.ready = true;
  waiting_.notifyOne();
}

// As Core Foundation does, takes all blocks away first: a loop that one of them runs performs none of the others.
void RunLoop::performBlocks(Modes mode) {
  std::deque<PerformedBlock> batch;
  {
    const Scheduler::Lock lock(machine_.scheduler);
    std::swap(batch, blocks_);
  }
  std::deque<PerformedBlock> left;
  for (; !batch.empty(); batch.pop_front()) {
    if (batch.front().ready && (batch.front().modes & mode)) {
      batch.front().block.get()();
    } else {
      left.push_back(std::move(batch.front()));
    }
  }
  const Scheduler::Lock lock(machine_.scheduler);
  blocks_.insert(blocks_.begin(), std::make_move_iterator(left.begin()), std::make_move_iterator(left.end()));
}

Modes RunLoop::modesOf(CFRunLoopMode mode, const char* call) {
  if (CFEqual(mode, kCFRunLoopCommonModes)) return commonModes;
  if (CFEqual(mode, kCFRunLoopDefaultMode)) return defaultMode;
  simulator::fatal(std::string(call) + ": this run loop mode is not simulated");
}

// ---- Timers ----

void RunLoop::addTimer(__CFRunLoopTimer& timer, Modes modes) {
  if (!timer.valid) return;
  timer.modes |= modes;
  if (!timers_.insert(&timer).second) return;
  retain(&timer, "CFRunLoopAddTimer");
  arm(timer);
}

void RunLoop::arm(__CFRunLoopTimer& timer) {
  const Duration delay = timer.fireDate - machine_.scheduler.uptime();
  const bool periodic = timer.interval > Duration::zero();
  timer.alarm =
      machine_.scheduler.after(delay, periodic ? Waiting::background : Waiting::work, [this, &timer] { fire(timer); });
}

void RunLoop::fire(__CFRunLoopTimer& timer) {
  post(&timer, timer.modes, [this, &timer] {
    const auto held = CF::retain(&timer);  // the handler may invalidate it
    timer.handler(&timer);
    const Scheduler::Lock lock(machine_.scheduler);
    if (timer.valid) {
      if (timer.interval > Duration::zero()) {
        // Fire dates that went by meanwhile are skipped; the rhythm stays.
        do {
          timer.fireDate += timer.interval;
        } while (timer.fireDate <= machine_.scheduler.uptime());
        arm(timer);
      } else {
        removeTimer(timer);
      }
    }
  });
}

void RunLoop::removeTimer(__CFRunLoopTimer& timer) {
  if (!std::exchange(timer.valid, false)) return;
  machine_.scheduler.cancel(timer.alarm);
  remove(&timer);
  if (timers_.erase(&timer) > 0) release(&timer, "CFRunLoopTimerInvalidate");
}

// ---- The process ----

void RunLoop::processWillEnd(Leaks& leaks) {
  // A timer that fires once may be under way; one that repeats should have been stopped.
  const auto left =
      std::ranges::count_if(timers_, [](const auto* timer) { return timer->interval > Duration::zero(); });
  if (left > 0) leaks["timer"] += static_cast<std::size_t>(left);
}

void RunLoop::processEnded(Leaks&) {
  pending_.clear();
  blocks_.clear();
  while (!timers_.empty()) removeTimer(**timers_.begin());
}

}  // namespace simulator

// ---- The calls ----

namespace {

// CFAbsoluteTime counts seconds from 2001; the machine is switched on at this moment.
constexpr double powerOn = 8.0e8;

__CFRunLoop& mainRunLoop() {
  static __CFRunLoop* const loop = [] {
    auto* const made = new __CFRunLoop;
    made->makeImmortal();
    return made;
  }();
  return *loop;
}

}  // namespace

extern "C" {

CFAbsoluteTime CFAbsoluteTimeGetCurrent(void) {
  return powerOn + std::chrono::duration<double>(Call::unguarded().scheduler.wallTime()).count();
}

CFRunLoopRef CFRunLoopGetMain(void) { return &mainRunLoop(); }

void CFRunLoopAddSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFRunLoopMode mode) {
  const Call call("CFRunLoopAddSource");
  (void)simulator::live<__CFRunLoop>(rl, "CFRunLoopAddSource");
  auto& added = simulator::live<__CFRunLoopSource>(source, "CFRunLoopAddSource");
  if (!added.port->valid) return;
  if (!added.port->scheduled) CFRetain(source);
  added.port->scheduled = true;
  added.port->modes |= simulator::RunLoop::modesOf(mode, "CFRunLoopAddSource");
}

void CFRunLoopRemoveSource(CFRunLoopRef rl, CFRunLoopSourceRef source, CFRunLoopMode mode) {
  const Call call("CFRunLoopRemoveSource");
  (void)simulator::live<__CFRunLoop>(rl, "CFRunLoopRemoveSource");
  auto& removed = simulator::live<__CFRunLoopSource>(source, "CFRunLoopRemoveSource");
  if (!removed.port->scheduled) return;
  removed.port->modes &= ~simulator::RunLoop::modesOf(mode, "CFRunLoopRemoveSource");
  if (removed.port->modes != 0) return;
  removed.port->scheduled = false;
  CFRelease(source);
}

CFRunLoopTimerRef CFRunLoopTimerCreateWithHandler(CFAllocatorRef, CFAbsoluteTime fireDate, CFTimeInterval interval,
                                                  CFOptionFlags, CFIndex, void (^block)(CFRunLoopTimerRef timer)) {
  const Call call("CFRunLoopTimerCreateWithHandler");
  if (call.fault()) return nullptr;
  auto* const timer = new __CFRunLoopTimer;
  // Rounded to the microsecond: a double of this size holds no more. The date counts as the uptime that is left to it.
  timer->fireDate = std::chrono::microseconds(std::llround((fireDate - powerOn) * 1e6)) -
                    call.machine.scheduler.wallTime() + call.machine.scheduler.uptime();
  timer->interval = interval > 0
                        ? std::chrono::duration_cast<simulator::Duration>(std::chrono::duration<double>(interval))
                        : simulator::Duration::zero();
  timer->handler = Block_copy(block);
  return timer;
}

void CFRunLoopAddTimer(CFRunLoopRef rl, CFRunLoopTimerRef timer, CFRunLoopMode mode) {
  const Call call("CFRunLoopAddTimer");
  (void)simulator::live<__CFRunLoop>(rl, "CFRunLoopAddTimer");
  call.part<simulator::RunLoop>().addTimer(simulator::live<__CFRunLoopTimer>(timer, "CFRunLoopAddTimer"),
                                           simulator::RunLoop::modesOf(mode, "CFRunLoopAddTimer"));
}

void CFRunLoopPerformBlock(CFRunLoopRef rl, CFTypeRef mode, void (^block)(void)) {
  const Call call("CFRunLoopPerformBlock");
  (void)simulator::live<__CFRunLoop>(rl, "CFRunLoopPerformBlock");
  call.part<simulator::RunLoop>().addBlock(
      simulator::RunLoop::modesOf(static_cast<CFRunLoopMode>(mode), "CFRunLoopPerformBlock"), block);
}

void CFRunLoopWakeUp(CFRunLoopRef rl) {
  const Call call("CFRunLoopWakeUp");
  (void)simulator::live<__CFRunLoop>(rl, "CFRunLoopWakeUp");
  call.part<simulator::RunLoop>().wakeUp();
}

void CFRunLoopTimerInvalidate(CFRunLoopTimerRef timer) {
  const Call call("CFRunLoopTimerInvalidate");
  call.part<simulator::RunLoop>().removeTimer(simulator::live<__CFRunLoopTimer>(timer, "CFRunLoopTimerInvalidate"));
}

CFRunLoopSourceRef CFMachPortCreateRunLoopSource(CFAllocatorRef, CFMachPortRef port, CFIndex) {
  const Call call("CFMachPortCreateRunLoopSource");
  auto& messages = simulator::live<__CFMachPort>(port, "CFMachPortCreateRunLoopSource");
  if (call.fault() || !messages.valid) return nullptr;
  return new __CFRunLoopSource(&messages);
}

void CFMachPortInvalidate(CFMachPortRef port) {
  const Call call("CFMachPortInvalidate");
  auto& invalidated = simulator::live<__CFMachPort>(port, "CFMachPortInvalidate");
  if (invalidated.valid) call.machine.trace.call("CFMachPortInvalidate");
  invalidated.invalidate();
}

}  // extern "C"
