#include "platform/AudioTap.h"

#import <CoreAudio/AudioHardwareTapping.h>
#import <CoreAudio/CATapDescription.h>
#import <Foundation/Foundation.h>

namespace CA {

static_assert(static_cast<long>(TapMuteBehavior::Unmuted) == CATapUnmuted);
static_assert(static_cast<long>(TapMuteBehavior::Muted) == CATapMuted);
static_assert(static_cast<long>(TapMuteBehavior::MutedWhenTapped) == CATapMutedWhenTapped);

static CATapDescription* object(const TapDescription& description) {
  return (__bridge CATapDescription*)description.get();
}

static NSArray<NSNumber*>* numbers(const std::vector<AudioObjectID>& processes) {
  NSMutableArray<NSNumber*>* result = [NSMutableArray array];
  for (const AudioObjectID process : processes) [result addObject:@(process)];
  return result;
}

TapDescription TapDescription::initExcludingProcesses(const std::vector<AudioObjectID>& processes,
                                                      const std::string& deviceUID, long stream) {
  return TapDescription(
      CF::adopt((__bridge_retained CFTypeRef)[[CATapDescription alloc] initExcludingProcesses:numbers(processes)
                                                                                 andDeviceUID:@(deviceUID.c_str())
                                                                                   withStream:stream]));
}

void TapDescription::setName(const std::string& name) const { object(*this).name = @(name.c_str()); }

void TapDescription::setUUID(const NS::UUID& uuid) const { object(*this).UUID = (__bridge NSUUID*)uuid.get(); }

void TapDescription::setPrivate(bool isPrivate) const { object(*this).privateTap = isPrivate; }

void TapDescription::setMuteBehavior(TapMuteBehavior behavior) const {
  object(*this).muteBehavior = static_cast<CATapMuteBehavior>(behavior);
}

NS::UUID TapDescription::UUID() const { return NS::UUID(CF::adopt((__bridge_retained CFTypeRef)object(*this).UUID)); }

OSStatus AudioHardwareCreateProcessTap(const TapDescription& description, AudioObjectID* tap) {
  return ::AudioHardwareCreateProcessTap(object(description), tap);
}

OSStatus AudioHardwareDestroyProcessTap(AudioObjectID tap) { return ::AudioHardwareDestroyProcessTap(tap); }

}  // namespace CA
