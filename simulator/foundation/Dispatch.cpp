#include "simulator/foundation/Dispatch.h"

#include <Block.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>
#include <utility>

#include "simulator/foundation/RunLoop.h"
#include "simulator/kernel/Call.h"
#include "simulator/kernel/Commands.h"

namespace simulator {
namespace {

// Marks a `dispatch_time_t` that counts by the wall clock. Apple's are opaque too.
constexpr dispatch_time_t wallTimes = 1ull << 62;

dispatch_queue_s& systemQueue(dispatch_queue_s::Type type, const char* label) {
  auto* const queue = new dispatch_queue_s(type, label);
  queue->makeImmortal();
  return *queue;
}

dispatch_queue_s& mainQueue() {
  static dispatch_queue_s& queue = systemQueue(dispatch_queue_s::Type::main, "com.apple.main-thread");
  return queue;
}

dispatch_queue_s& globalQueue() {
  static dispatch_queue_s& queue = systemQueue(dispatch_queue_s::Type::concurrent, "com.apple.root.default-qos");
  return queue;
}

}  // namespace

Dispatch::Dispatch(Machine& machine, RunLoop& runLoop)
    : machine_(machine), runLoop_(runLoop), idle_(machine.scheduler) {}

void Dispatch::submit(dispatch_queue_s& queue, dispatch_block_t block) {
  const Scheduler::Lock lock(machine_.scheduler);
  if (queue.type == dispatch_queue_s::Type::main) {
    // The run loop owns the block from here on, also when it is dropped unrun at the end of the process.
    const std::shared_ptr<void> owned(reinterpret_cast<void*>(block),
                                      [](void* copied) { Block_release(reinterpret_cast<dispatch_block_t>(copied)); });
    runLoop_.postToMainQueue(&queue, [owned] { reinterpret_cast<dispatch_block_t>(owned.get())(); });
    return;
  }
  queue.blocks.push_back(block);
  retain(&queue, "dispatch_async");
  if (queue.type == dispatch_queue_s::Type::serial && std::exchange(queue.serving, true)) return;
  enqueue(queue);
}

void Dispatch::enqueue(dispatch_queue_s& queue) {
  waiting_.push_back(&queue);
  // Workers that have been woken for the other queues that wait still count as idle.
  if (waiting_.size() <= idleWorkers_) {
    idle_.notifyOne();
  } else {
    machine_.scheduler.spawn("dispatch worker", [this] { work(); });
  }
}

void Dispatch::submitAfter(dispatch_time_t when, dispatch_queue_s& queue, dispatch_block_t block) {
  const Scheduler::Lock lock(machine_.scheduler);
  retain(&queue, "dispatch_after");
  arm(delayed_.emplace_back(Delayed{when, &queue, block, {}}));
}

void Dispatch::arm(Delayed& delayed) {
  const bool byWall = delayed.when & wallTimes;
  const Duration delay =
      Duration(delayed.when & ~wallTimes) - (byWall ? machine_.scheduler.wallTime() : machine_.scheduler.uptime());
  // On the live clock the wait has begun when the time was made, a moment ago.
  const Duration asked =
      delay + (machine_.scheduler.clock() == Clock::live ? std::chrono::milliseconds(100) : Duration(0));
  const auto submitLater = [this, queue = delayed.queue, block = delayed.block] {
    std::erase_if(delayed_, [block](const Delayed& each) { return each.block == block; });
    submit(*queue, block);
    release(queue, "dispatch_after");
  };
  delayed.timer = machine_.scheduler.at(machine_.scheduler.now() + delay, asked, Waiting::work, submitLater,
                                        byWall ? Counting::continuous : Counting::uptime);
}

void Dispatch::setClockForward(Duration by) {
  const Scheduler::Lock lock(machine_.scheduler);
  machine_.scheduler.setWallClockForward(by);
  for (Delayed& each : delayed_) {
    if (!(each.when & wallTimes)) continue;
    machine_.scheduler.cancel(each.timer);
    arm(each);
  }
}

void Dispatch::addCommands(Commands& commands) {
  commands.add("clock", [this](Arguments& line) -> Action {
    const double seconds = line.number("by");
    if (std::abs(seconds) > 1e9) line.fail("member \"by\" must be within a billion seconds");
    const Duration by(std::llround(seconds * 1e9));
    return [this, by] { setClockForward(by); };
  });
}

// A worker thread: serves one queue after the other, and waits when there is none.
void Dispatch::work() {
  for (;;) {
    dispatch_queue_s* queue = nullptr;
    {
      const Scheduler::Lock lock(machine_.scheduler);
      while (waiting_.empty()) {
        ++idleWorkers_;
        try {
          idle_.wait();
        } catch (...) {
          --idleWorkers_;
          throw;
        }
        --idleWorkers_;
        if (machine_.scheduler.ending()) return;
      }
      queue = waiting_.front();
      waiting_.pop_front();
    }
    serve(*queue);
  }
}

// Runs a serial queue's blocks until it has none, or one block of a concurrent queue.
void Dispatch::serve(dispatch_queue_s& queue) {
  // One block of the queue: given back when it has run, and when the process ends in the middle of it.
  struct Job {
    explicit Job(dispatch_queue_s& of) : queue(of), block(of.blocks.front()) { of.blocks.pop_front(); }
    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;
    ~Job() {
      Block_release(block);
      release(&queue, "dispatch_async");
    }
    dispatch_queue_s& queue;
    const dispatch_block_t block;
  };
  std::optional<Job> job;
  const auto next = [&] {
    const Scheduler::Lock lock(machine_.scheduler);
    job.emplace(queue);
  };
  next();
  for (;;) {
    job->block();
    machine_.scheduler.preempt();
    {
      const Scheduler::Lock lock(machine_.scheduler);
      if (queue.type != dispatch_queue_s::Type::serial || queue.blocks.empty()) {
        queue.serving = false;
        return;
      }
    }
    next();
  }
}

void Dispatch::processEnded(Leaks&) {
  waiting_.clear();
  idleWorkers_ = 0;
  for (const Delayed& each : std::exchange(delayed_, {})) {
    machine_.scheduler.cancel(each.timer);
    Block_release(each.block);
    release(each.queue, "dispatch_after");
  }
  // Blocks that no worker got to are given back with their queues.
  const auto queues = liveObjectsOf<dispatch_queue_s>();
  for (dispatch_queue_s* const queue : queues) retain(queue, "dispatch_async");
  for (dispatch_queue_s* const queue : queues) {
    for (const dispatch_block_t block : std::exchange(queue->blocks, {})) {
      Block_release(block);
      release(queue, "dispatch_async");
    }
    queue->serving = false;
  }
  for (dispatch_queue_s* const queue : queues) release(queue, "dispatch_async");
}

}  // namespace simulator

// ---- The calls ----

extern "C" {

dispatch_queue_main_t dispatch_get_main_queue(void) { return &simulator::mainQueue(); }

dispatch_queue_global_t dispatch_get_global_queue(intptr_t, uintptr_t flags) {
  // The header keeps the flags for later: any but 0 may answer null.
  return flags == 0 ? &simulator::globalQueue() : nullptr;
}

dispatch_queue_t dispatch_queue_create(const char* label, dispatch_queue_attr_t) {
  const simulator::Call call("dispatch_queue_create");
  return new dispatch_queue_s(dispatch_queue_s::Type::serial, label ? label : "");
}

void dispatch_retain(dispatch_queue_t object) { simulator::retain(object, "dispatch_retain"); }
void dispatch_release(dispatch_queue_t object) { simulator::release(object, "dispatch_release"); }

void dispatch_async(dispatch_queue_t queue, dispatch_block_t block) {
  const simulator::Call call("dispatch_async");
  call.part<simulator::Dispatch>().submit(simulator::live<dispatch_queue_s>(queue, "dispatch_async"),
                                          Block_copy(block));
}

dispatch_time_t dispatch_time(dispatch_time_t when, int64_t delta) {
  if (when == DISPATCH_TIME_FOREVER) return when;
  const auto now = static_cast<std::uint64_t>(simulator::Call::unguarded().scheduler.uptime().count());
  return (when == DISPATCH_TIME_NOW ? now : when) + static_cast<std::uint64_t>(delta);
}

dispatch_time_t dispatch_walltime(const struct timespec* when, int64_t delta) {
  if (when) simulator::fatal("dispatch_walltime: only times from now on are simulated");
  const simulator::Time now = simulator::Call::unguarded().scheduler.wallTime();
  return simulator::wallTimes | static_cast<std::uint64_t>(std::max<std::int64_t>(now.count() + delta, 0));
}

void dispatch_after(dispatch_time_t when, dispatch_queue_t queue, dispatch_block_t block) {
  const simulator::Call call("dispatch_after");
  if (when == DISPATCH_TIME_FOREVER) return;
  call.part<simulator::Dispatch>().submitAfter(when, simulator::live<dispatch_queue_s>(queue, "dispatch_after"),
                                               Block_copy(block));
}

void dispatch_assert_queue(dispatch_queue_t queue) {
  const auto& asserted = simulator::live<dispatch_queue_s>(queue, "dispatch_assert_queue");
  if (asserted.type != dispatch_queue_s::Type::main) simulator::fatal("dispatch_assert_queue: not simulated here");
  if (!simulator::Call::unguarded().process.onMainThread()) {
    simulator::fatal("dispatch_assert_queue: the main queue's code runs off the main thread");
  }
}

}  // extern "C"
