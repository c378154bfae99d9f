#include "simulator/audio/CycleClock.h"

#include <algorithm>
#include <cmath>

namespace simulator {

void CycleClock::start(std::uint64_t frames, double rate) {
  if (isRunning()) return;
  frames_ = frames;
  rate_ = rate;
  start_ = scheduler_.uptime();
  cycle_ = 0;
  unsettled_ = 3;  // the one that begins now, too
  calm_ = 0;
  arm();
}

void CycleClock::stop() {
  if (next_) scheduler_.cancel(*next_);
  next_.reset();
}

void CycleClock::disturb() {
  if (!next_) return;
  unsettled_ = std::max(unsettled_, 2);
  scheduler_.cancel(*next_);
  arm();
}

std::uint64_t CycleClock::skippableUntil(Time time) const {
  if (beginning(cycle_) > time) return 0;
  const auto elapsed = static_cast<long double>((time - beginning(cycle_)).count());
  auto cycles = static_cast<std::uint64_t>(elapsed * rate_ / (static_cast<long double>(frames_) * 1e9L));
  while (beginning(cycle_ + cycles + 1) <= time) ++cycles;
  while (cycles > 0 && beginning(cycle_ + cycles) > time) --cycles;
  return cycles;
}

void CycleClock::skip(std::uint64_t cycles) {
  cycle_ += cycles;
  scheduler_.cancel(*next_);
  arm();
}

// On the machine's clock. Counted from the start, so that the rounding to nanoseconds does not add up.
Time CycleClock::beginning(std::uint64_t cycle) const {
  const long double elapsed = static_cast<long double>(cycle * frames_) * 1e9L / static_cast<long double>(rate_);
  return start_ + (scheduler_.now() - scheduler_.uptime()) + Duration(std::llround(elapsed));
}

void CycleClock::arm() {
  const Time time = beginning(cycle_);
  const Waiting waiting = unsettled_ > 0 ? Waiting::work : Waiting::background;
  next_ = scheduler_.at(time, Duration::zero(), waiting, [this] { fire(); });
}

void CycleClock::fire() {
  if (unsettled_ > 0) --unsettled_;
  ++cycle_;
  ++calm_;
  arm();  // before the beat, which may stop the clock
  beat_();
}

}  // namespace simulator
