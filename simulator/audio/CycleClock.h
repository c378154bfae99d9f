// The beat of a device's I/O: so many frames at so many frames a second.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "simulator/kernel/Scheduler.h"

namespace simulator {

class CycleClock {
 public:
  // `beat` is called at the beginning of each cycle, with the machine's lock held.
  CycleClock(Scheduler& scheduler, std::function<void()> beat) : scheduler_(scheduler), beat_(std::move(beat)) {}
  ~CycleClock() { stop(); }
  CycleClock(const CycleClock&) = delete;
  CycleClock& operator=(const CycleClock&) = delete;

  // The first cycle begins at once. Nothing happens when it runs already.
  void start(std::uint64_t frames, double rate);
  void stop();
  [[nodiscard]] bool isRunning() const { return next_.has_value(); }

  // Cycles since the clock was started.
  [[nodiscard]] std::uint64_t cycle() const { return cycle_; }

  // Something changed in what is heard: `settle` waits until two more cycles have passed, so that the change is
  // through. After that audio runs in the background.
  void disturb();

 private:
  void arm();
  void fire();

  Scheduler& scheduler_;
  const std::function<void()> beat_;
  std::uint64_t frames_ = 0;
  double rate_ = 0;
  Time start_{};
  std::uint64_t cycle_ = 0;
  int unsettled_ = 0;
  std::optional<Scheduler::TimerID> next_;
};

}  // namespace simulator
