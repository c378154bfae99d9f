#include "simulator/audio/Tap.h"

#include <algorithm>

namespace simulator {

Tap::Tap(AudioObjectID number, const OutputDevice& device, const TapDescription& description, bool isHeard)
    : AudioObject(number),
      uid(description.uuid),
      name(description.name),
      isPrivate(description.isPrivate),
      mute(description.mute),
      hears(isHeard),
      excluded(description.excluded),
      output(device.number),
      format_(device.tapFormat()) {}

bool Tap::covers(const Player& player) const {
  return player.plays(output) && std::ranges::find(excluded, player.id) == excluded.end();
}

PropertyValue Tap::property(const AudioObjectPropertyAddress& address, std::span<const std::byte>) const {
  if (isProperty(address, kAudioObjectPropertyName)) return PropertyValue::string(name);
  if (isProperty(address, kAudioTapPropertyUID)) return PropertyValue::string(uid);
  if (isProperty(address, kAudioTapPropertyFormat)) return PropertyValue::of(format_);
  throw AudioError{kAudioHardwareUnknownPropertyError};
}

}  // namespace simulator
