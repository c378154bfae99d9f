// What an output device makes audible: the sum of all that really reaches it, cycle by cycle.
#pragma once

#include <functional>
#include <span>

namespace simulator {

class Speaker {
 public:
  // One cycle of interleaved samples as they came out.
  using Listener = std::function<void(std::span<const float> samples, std::size_t channels, double rate)>;

  // `direct`: whether sound of a process is in it that came straight from the process.
  void play(std::span<const float> samples, std::size_t channels, double rate, bool direct);
  void fallSilent() { level_ = 0, direct_ = false; }

  // Is told of every cycle that is carried out from now on, of its level and of whether sound was in it that came
  // straight from a process.
  using Meter = std::function<void(float level, bool direct)>;
  void setMeter(Meter meter) { meter_ = std::move(meter); }

  // The largest magnitude of a sample in the last cycle.
  [[nodiscard]] float level() const { return level_; }
  [[nodiscard]] bool direct() const { return direct_; }

  // Hears every cycle from now on; an empty one ends it.
  void setListener(Listener listener) { listener_ = std::move(listener); }
  [[nodiscard]] bool isHeard() const { return listener_ != nullptr; }

 private:
  float level_ = 0;
  bool direct_ = false;
  Listener listener_;
  Meter meter_;
};

}  // namespace simulator
