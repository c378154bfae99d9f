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

  // ---- Cycles that need not be carried out ----

  // Something has happened, other than cycles.
  void interrupt() { calm_ = 0; }
  // For two cycles nothing has happened but cycles, so another one would be like the last.
  [[nodiscard]] bool isCalm() const { return calm_ >= 2 && unsettled_ == 0; }
  // What brings the next cycle; none when it is not running.
  [[nodiscard]] std::optional<Scheduler::TimerID> timer() const { return next_; }
  // How many cycles begin up to that time, apart from the last of them.
  [[nodiscard]] std::uint64_t skippableUntil(Time time) const;
  // Counts so many cycles without a beat.
  void skip(std::uint64_t cycles);

 private:
  [[nodiscard]] Time beginning(std::uint64_t cycle) const;
  void arm();
  void fire();

  Scheduler& scheduler_;
  const std::function<void()> beat_;
  std::uint64_t frames_ = 0;
  double rate_ = 0;
  Time start_{};  // on the uptime clock: while the Mac sleeps no device runs
  std::uint64_t cycle_ = 0;
  int unsettled_ = 0;
  std::uint64_t calm_ = 0;  // cycles since something happened
  std::optional<Scheduler::TimerID> next_;
};

}  // namespace simulator
