// os_unfair_lock: the word holds whether it is locked; those who wait are in the machine's care.
#include <os/lock.h>

#include <atomic>
#include <unordered_map>

#include "simulator/kernel/Call.h"

namespace {

using simulator::Call;
using simulator::Clock;
using simulator::Scheduler;

// Null where there is no machine.
Scheduler* schedulerIfAny() { return Call::isPossible() ? &Call::unguarded().scheduler : nullptr; }

std::atomic_ref<std::uint32_t> word(os_unfair_lock_t lock) { return std::atomic_ref(lock->_os_unfair_lock_opaque); }

// The owner as the lock's word holds it; never 0.
std::uint32_t self() {
  return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(Scheduler::current()) >> 4) | 1U;
}

}  // namespace

extern "C" {

void os_unfair_lock_lock(os_unfair_lock_t lock) {
  Scheduler* const scheduler = schedulerIfAny();
  if (scheduler) scheduler->preempt();
  std::uint32_t owner = 0;
  constexpr int patience = 100;
  int tries = 0;
  while (!word(lock).compare_exchange_strong(owner, self(), std::memory_order_acquire)) {
    if (owner == self()) simulator::fatal("os_unfair_lock_lock: the thread holds this lock already");
    if (scheduler && scheduler->clock() == Clock::deterministic) {
      if (scheduler->ending()) return;  // its holder may never come back
      // Its holder is ready, unless it sleeps with the lock held: then time has to pass. Others that wait for the lock
      // are ready too, but to let one another go first for ever would stop time.
      if (++tries > patience || !scheduler->yield()) scheduler->sleep(std::chrono::microseconds(10));
    } else {
      word(lock).wait(owner, std::memory_order_relaxed);
    }
    owner = 0;
  }
}

void os_unfair_lock_unlock(os_unfair_lock_t lock) {
  Scheduler* const scheduler = schedulerIfAny();
  if (word(lock).load(std::memory_order_relaxed) != self() && !(scheduler && scheduler->ending())) {
    simulator::fatal("os_unfair_lock_unlock: the thread does not hold this lock");
  }
  word(lock).store(0, std::memory_order_release);
  word(lock).notify_all();
  if (scheduler) scheduler->preempt();
}

}  // extern "C"
