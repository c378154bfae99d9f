#include "simulator/audio/Speaker.h"

#include <algorithm>
#include <cmath>

namespace simulator {

void Speaker::play(std::span<const float> samples, std::size_t channels, double rate, bool direct) {
  float level = 0;
  for (const float sample : samples) level = std::max(level, std::abs(sample));
  level_ = level;
  direct_ = direct;
  if (listener_) listener_(samples, channels, rate);
}

}  // namespace simulator
