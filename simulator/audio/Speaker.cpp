#include "simulator/audio/Speaker.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <limits>

namespace simulator {

void Speaker::play(std::span<const float> samples, std::size_t channels, double rate, bool direct) {
  // Magnitudes are in the same order as their bits, and those are compared many at a time.
  std::uint32_t level = 0;
  for (const float sample : samples) level = std::max(level, std::bit_cast<std::uint32_t>(sample) & 0x7FFF'FFFFU);
  // What is no number any more, or none that is finite, is as loud as it gets.
  constexpr float loudest = std::numeric_limits<float>::max();
  level_ = std::bit_cast<float>(std::min(level, std::bit_cast<std::uint32_t>(loudest)));
  direct_ = direct;
  if (meter_) meter_(level_, direct_);
  if (listener_) listener_(samples, channels, rate);
}

}  // namespace simulator
