#include "platform/AudioTap.h"

#import <CoreAudio/AudioHardwareTapping.h>
#import <CoreAudio/CATapDescription.h>
#import <Foundation/Foundation.h>

#include "platform/macos/Conversions.h"
#include "platform/macos/Text.h"

namespace CA {

static_assert(static_cast<long>(TapMuteBehavior::Unmuted) == CATapUnmuted);
static_assert(static_cast<long>(TapMuteBehavior::Muted) == CATapMuted);
static_assert(static_cast<long>(TapMuteBehavior::MutedWhenTapped) == CATapMutedWhenTapped);

static CATapDescription* object(const TapDescription& description) {
  return (__bridge CATapDescription*)description.get();
}

TapDescription TapDescription::initExcludingProcesses(const std::vector<AudioObjectID>& processes,
                                                      const std::string& deviceUID, long stream) {
  @autoreleasepool {
    CATapDescription* const description = [[CATapDescription alloc] initExcludingProcesses:NS::numbers(processes)
                                                                              andDeviceUID:NS::string(deviceUID)
                                                                                withStream:stream];
    return TapDescription(CF::adopt((__bridge_retained CFTypeRef)description));
  }
}

void TapDescription::setName(const std::string& name) const {
  @autoreleasepool {
    object(*this).name = NS::string(name);
  }
}

void TapDescription::setUUID(const NS::UUID& uuid) const {
  @autoreleasepool {
    object(*this).UUID = (__bridge NSUUID*)uuid.get();
  }
}

void TapDescription::setPrivate(bool isPrivate) const {
  @autoreleasepool {
    object(*this).privateTap = isPrivate;
  }
}

void TapDescription::setMuteBehavior(TapMuteBehavior behavior) const {
  @autoreleasepool {
    object(*this).muteBehavior = static_cast<CATapMuteBehavior>(behavior);
  }
}

NS::UUID TapDescription::UUID() const {
  @autoreleasepool {
    return NS::UUID(CF::adopt((__bridge_retained CFTypeRef)object(*this).UUID));
  }
}

OSStatus AudioHardwareCreateProcessTap(const TapDescription& description, AudioObjectID* tap) {
  @autoreleasepool {
    return ::AudioHardwareCreateProcessTap(object(description), tap);
  }
}

OSStatus AudioHardwareDestroyProcessTap(AudioObjectID tap) {
  @autoreleasepool {
    return ::AudioHardwareDestroyProcessTap(tap);
  }
}

}  // namespace CA
