// CATapDescription, and the two Core Audio calls that exist for Objective-C alone.
#pragma once

#include <CoreAudio/CoreAudio.h>

#include <string>
#include <vector>

#include "platform/Object.h"
#include "platform/UUID.h"

namespace CA {

// What happens to the direct path of the sound that is tapped.
enum class TapMuteBehavior : long {
  Unmuted = 0,          // it is heard
  Muted = 1,            // it is not heard
  MutedWhenTapped = 2,  // it is not heard while somebody reads the tap
};

// Describes a process tap before it is created. Usable from any thread, one at a time.
class TapDescription : public NS::Object {
 public:
  // The mix of every process but `processes` (their Core Audio objects), as sent to the device's stream with that
  // index, in the stream's format.
  static TapDescription initExcludingProcesses(const std::vector<AudioObjectID>& processes,
                                               const std::string& deviceUID, long stream);

  void setName(const std::string& name) const;
  void setUUID(const NS::UUID& uuid) const;
  // A private tap is seen by the process alone that creates it.
  void setPrivate(bool isPrivate) const;
  void setMuteBehavior(TapMuteBehavior behavior) const;

  [[nodiscard]] NS::UUID UUID() const;

 private:
  using Object::Object;
};

// Creates a tap; its object is the caller's to destroy. Answers 0 or the reason why not.
OSStatus AudioHardwareCreateProcessTap(const TapDescription& description, AudioObjectID* tap);
OSStatus AudioHardwareDestroyProcessTap(AudioObjectID tap);

}  // namespace CA
