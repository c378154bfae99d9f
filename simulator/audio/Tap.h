// Process taps: a copy of what processes play to a device, and what becomes of the original.
#pragma once

#include <string>
#include <vector>

#include "platform/AudioTap.h"
#include "simulator/audio/AudioObject.h"
#include "simulator/audio/OutputDevice.h"
#include "simulator/audio/Player.h"
#include "simulator/kernel/Object.h"

namespace simulator {

// A CATapDescription.
struct TapDescription : Object {
  std::string_view kind() const override { return "CATapDescription"; }

  std::vector<AudioObjectID> excluded;  // processes that are not tapped
  std::string deviceUID;
  long stream = 0;  // index among the device's output streams
  std::string name;
  std::string uuid;
  bool isPrivate = false;
  CA::TapMuteBehavior mute = CA::TapMuteBehavior::Unmuted;
};

class Tap : public AudioObject {
 public:
  // `hears`: the user allowed the recording; without that a tap delivers silence.
  Tap(AudioObjectID id, const OutputDevice& device, const TapDescription& description, bool hears);

  const std::string uid;
  const std::string name;
  const bool isPrivate;
  const CA::TapMuteBehavior mute;
  const bool hears;
  const std::vector<AudioObjectID> excluded;
  // The device that is tapped, by its number in the scenario: the device itself can go.
  const std::int64_t output;

  [[nodiscard]] bool covers(const Player& player) const;
  // The device came back or changed: the tap follows its stream's format.
  void follow(const OutputDevice& device) { format_ = device.tapFormat(); }
  [[nodiscard]] const AudioStreamBasicDescription& format() const { return format_; }

  [[nodiscard]] PropertyValue property(const AudioObjectPropertyAddress& address,
                                       std::span<const std::byte> qualifier) const override;

 private:
  AudioStreamBasicDescription format_;
};

}  // namespace simulator
