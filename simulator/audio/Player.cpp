#include "simulator/audio/Player.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace simulator {

void Player::play(std::int64_t output, const Sound& sound) {
  output_ = output;
  sound_ = sound;
  phase_ = 0;
}

const std::vector<float>& Player::next(std::size_t frames, double rate) {
  block_.resize(frames);
  if (sound_.tone == 0) {
    std::ranges::fill(block_, static_cast<float>(sound_.level));
    return block_;
  }
  // A pointer that turns by the same angle for each frame; its height is the sample. It starts afresh in each block, so
  // that rounding does not add up.
  constexpr double turn = 2 * std::numbers::pi;
  const double turns = sound_.tone / rate;
  const double cosine = std::cos(turn * turns);
  const double sine = std::sin(turn * turns);
  double x = sound_.level * std::cos(turn * phase_);
  double y = sound_.level * std::sin(turn * phase_);
  for (float& sample : block_) {
    sample = static_cast<float>(y);
    const double nextX = x * cosine - y * sine;
    y = x * sine + y * cosine;
    x = nextX;
  }
  turnBy(frames, rate);
  return block_;
}

void Player::turnBy(std::size_t frames, double rate) {
  const double turns = sound_.tone / rate;
  phase_ = std::fmod(phase_ + turns * static_cast<double>(frames), 1.0);
}

void Player::skip(std::uint64_t blocks, std::size_t frames, double rate) {
  if (sound_.tone == 0) return;
  // One by one, because each is rounded.
  for (; blocks > 0; --blocks) turnBy(frames, rate);
}

PropertyValue Player::property(const AudioObjectPropertyAddress& address, std::span<const std::byte>) const {
  if (isProperty(address, kAudioProcessPropertyPID)) return PropertyValue::of(pid);
  throw AudioError{kAudioHardwareUnknownPropertyError};
}

}  // namespace simulator
