// An output device: what a scenario says of it, its properties, and its cycles.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "simulator/audio/AudioObject.h"
#include "simulator/audio/CycleClock.h"
#include "simulator/audio/Speaker.h"

namespace simulator {

struct OutputSettings {
  enum class Volume { none, fixed, settable };

  std::optional<std::string> uid;   // none: the device answers a null string
  std::optional<std::string> name;  // the same
  Volume volume = Volume::none;
  double rate = 48000;
  std::uint32_t channels = 2;
  std::uint32_t inputs = 0;       // input streams, of one channel each
  SampleLayout layout;            // what its output stream says of its samples, which are floats all the same
  std::optional<double> tapRate;  // at which a tap of it comes up; none: the device's
  std::optional<std::uint32_t> tapChannels;  // the same
  SampleLayout tapLayout;                    // what a tap of it says of its samples
  std::uint32_t frames = 512;                // a cycle
  bool isAlive = true;                       // false: it is still there but cannot be used

  friend bool operator==(const OutputSettings&, const OutputSettings&) = default;
};

class OutputDevice : public AudioObject {
 public:
  // `streams`: as many fresh numbers as the device has streams, input streams first. `beat` is called for each cycle.
  OutputDevice(AudioObjectID id, std::int64_t number, OutputSettings settings, std::vector<AudioObjectID> streams,
               Scheduler& scheduler, std::function<void(OutputDevice&)> beat);

  ~OutputDevice() override { clock.stop(); }

  const std::int64_t number;  // in the scenario
  Speaker speaker;
  CycleClock clock;

  [[nodiscard]] const OutputSettings& settings() const { return settings_; }
  // Takes new settings, and new numbers for the streams. Cycles start afresh.
  void change(OutputSettings settings, std::vector<AudioObjectID> streams);

  [[nodiscard]] AudioStreamBasicDescription format() const {
    return streamFormat(settings_.rate, settings_.channels, settings_.layout);
  }
  [[nodiscard]] AudioStreamBasicDescription tapFormat() const {
    return streamFormat(settings_.tapRate.value_or(settings_.rate), settings_.tapChannels.value_or(settings_.channels),
                        settings_.tapLayout);
  }

  // ---- The cycle that is being put together ----

  // Begins with the sound that came straight from processes; `parts` I/O threads will add theirs.
  void beginCycle(std::vector<float> direct, bool isDirect, std::size_t parts);
  // What an I/O thread made in that cycle. Too late when the next has begun.
  void add(std::uint64_t cycle, const std::vector<float>& samples);
  // Gives up waiting for I/O threads that missed the end of their cycle.
  void endCycle();

  // Cycles that an I/O thread missed.
  [[nodiscard]] std::uint64_t overloads() const { return overloads_; }

  [[nodiscard]] PropertyValue property(const AudioObjectPropertyAddress& address,
                                       std::span<const std::byte> qualifier) const override;

 private:
  OutputSettings settings_;
  std::vector<AudioObjectID> streams_;  // input streams first
  std::vector<float> mix_;
  bool direct_ = false;
  std::size_t missing_ = 0;
  std::uint64_t overloads_ = 0;
};

}  // namespace simulator
