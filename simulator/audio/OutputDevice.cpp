#include "simulator/audio/OutputDevice.h"

#include <AudioToolbox/AudioHardwareService.h>

#include <utility>

namespace simulator {

OutputDevice::OutputDevice(AudioObjectID id, std::int64_t scenarioNumber, OutputSettings settings,
                           std::vector<AudioObjectID> streams, Scheduler& scheduler,
                           std::function<void(OutputDevice&)> beat)
    : AudioObject(id),
      number(scenarioNumber),
      clock(scheduler, [this, beat = std::move(beat)] { beat(*this); }),
      settings_(std::move(settings)),
      streams_(std::move(streams)) {}

void OutputDevice::change(OutputSettings settings, std::vector<AudioObjectID> streams) {
  clock.stop();
  speaker.fallSilent();
  missing_ = 0;
  settings_ = std::move(settings);
  streams_ = std::move(streams);
}

void OutputDevice::beginCycle(std::vector<float> direct, bool isDirect, std::size_t parts) {
  mix_ = std::move(direct);
  direct_ = isDirect;
  missing_ = parts;
  if (missing_ == 0) speaker.play(mix_, settings_.channels, settings_.rate, direct_);
}

void OutputDevice::add(std::uint64_t cycle, const std::vector<float>& samples) {
  if (cycle != clock.cycle() || missing_ == 0 || samples.size() != mix_.size()) return;
  for (std::size_t i = 0; i < mix_.size(); ++i) mix_[i] += samples[i];
  if (--missing_ == 0) speaker.play(mix_, settings_.channels, settings_.rate, direct_);
}

void OutputDevice::endCycle() {
  if (missing_ == 0) return;
  overloads_ += missing_;
  missing_ = 0;
  speaker.play(mix_, settings_.channels, settings_.rate, direct_);
}

PropertyValue OutputDevice::property(const AudioObjectPropertyAddress& address, std::span<const std::byte>) const {
  constexpr AudioObjectPropertyScope input = kAudioObjectPropertyScopeInput;
  constexpr AudioObjectPropertyScope output = kAudioObjectPropertyScopeOutput;
  const auto firstOutput = streams_.begin() + static_cast<std::ptrdiff_t>(settings_.inputs);

  if (isProperty(address, kAudioObjectPropertyName)) return PropertyValue::string(settings_.name);
  if (isProperty(address, kAudioDevicePropertyDeviceUID)) return PropertyValue::string(settings_.uid);
  if (isProperty(address, kAudioDevicePropertyDeviceIsAlive)) return PropertyValue::of(UInt32{settings_.isAlive});
  if (isProperty(address, kAudioDevicePropertyNominalSampleRate)) return PropertyValue::of(settings_.rate).settable();
  if (isProperty(address, kAudioDevicePropertyStreams)) return PropertyValue::list(streams_);
  if (isProperty(address, kAudioDevicePropertyStreams, input)) {
    return PropertyValue::list(std::vector(streams_.begin(), firstOutput));
  }
  if (isProperty(address, kAudioDevicePropertyStreams, output)) {
    return PropertyValue::list(std::vector(firstOutput, streams_.end()));
  }
  if (isProperty(address, kAudioDevicePropertyStreamFormat, output)) return PropertyValue::of(format());
  if (isProperty(address, kAudioHardwareServiceDeviceProperty_VirtualMainVolume, output) &&
      settings_.volume != OutputSettings::Volume::none) {
    const auto full = PropertyValue::of(Float32{1});
    return settings_.volume == OutputSettings::Volume::settable ? PropertyValue(full).settable() : full;
  }
  throw AudioError{kAudioHardwareUnknownPropertyError};
}

}  // namespace simulator
