#include "simulator/kernel/Process.h"

#include <utility>

#include "simulator/kernel/Call.h"
#include "simulator/kernel/Object.h"

namespace simulator {

Process::Process(Machine& machine, Program program) : machine_(machine), program_(std::move(program)) {
  machine_.scheduler.setThreadsEnded([this] { cleanUp(); });
}

bool Process::onMainThread() const { return mainThread_ != nullptr && Scheduler::current() == mainThread_; }

void Process::launch() {
  const Scheduler::Lock lock(machine_.scheduler);
  if (running_ || ending_) return;
  running_ = true;
  for (const auto& part : machine_.parts()) part->processWillStart();
  machine_.scheduler.spawn("main", [this] {
    {
      const Scheduler::Lock started(machine_.scheduler);
      mainThread_ = Scheduler::current();
    }
    exit(program_.main());
  });
}

void Process::exit(int status) {
  const Scheduler::Lock lock(machine_.scheduler);
  if (running_) {
    machine_.trace.record("exit").number("status", status);
    end();
  }
  throw ProcessEnd{};
}

void Process::kill() {
  {
    const Scheduler::Lock lock(machine_.scheduler);
    if (running_) end();
  }
  machine_.runReady();
}

void Process::end() {
  running_ = false;
  ending_ = true;
  for (const auto& part : machine_.parts()) part->processWillEnd(leaks_);
  machine_.trace.setMuted(true);
  machine_.scheduler.endThreads();
}

void Process::cleanUp() {
  mainThread_ = nullptr;
  for (const auto& part : machine_.parts()) part->processEnded(leaks_);
  for (const auto& [kind, count] : liveObjects()) leaks_[kind] += count;
  forgetLiveObjects();
  machine_.trace.setMuted(false);
  ending_ = false;
}

}  // namespace simulator
