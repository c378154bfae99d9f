#include "simulator/audio/CycleClock.h"

#include <algorithm>
#include <cmath>

namespace simulator {

void CycleClock::start(std::uint64_t frames, double rate) {
  if (isRunning()) return;
  frames_ = frames;
  rate_ = rate;
  start_ = scheduler_.now();
  cycle_ = 0;
  unsettled_ = 3;  // the one that begins now, too
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

void CycleClock::arm() {
  // Counted from the start, so that the rounding to nanoseconds does not add up.
  const long double elapsed = static_cast<long double>(cycle_ * frames_) * 1e9L / static_cast<long double>(rate_);
  const Time time = start_ + Duration(std::llround(elapsed));
  const Waiting waiting = unsettled_ > 0 ? Waiting::work : Waiting::background;
  next_ = scheduler_.at(time, Duration::zero(), waiting, [this] { fire(); });
}

void CycleClock::fire() {
  if (unsettled_ > 0) --unsettled_;
  ++cycle_;
  arm();  // before the beat, which may stop the clock
  beat_();
}

}  // namespace simulator
