#include "simulator/audio/Speaker.h"

#include <algorithm>
#include <bit>
#include <cstdint>

namespace simulator {

void Speaker::play(std::span<const float> samples, std::size_t channels, double rate, bool direct) {
  // Magnitudes are in the same order as their bits, and those are compared many at a time.
  std::uint32_t level = 0;
  for (const float sample : samples) level = std::max(level, std::bit_cast<std::uint32_t>(sample) & 0x7FFF'FFFFU);
  level_ = std::bit_cast<float>(level);
  direct_ = direct;
  if (listener_) listener_(samples, channels, rate);
}

}  // namespace simulator
