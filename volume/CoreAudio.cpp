#include "volume/CoreAudio.h"

#include <AudioToolbox/AudioHardwareService.h>

#include "base/AppError.h"
#include "platform/CF.h"

namespace CoreAudio {

void require(OSStatus status, std::string_view operation) {
  if (status != kAudioHardwareNoError) throw AppError(operation, status);
}

namespace {

// A property of fixed size.
template <typename T>
T read(AudioObjectID object, const AudioObjectPropertyAddress& address, T initial) {
  UInt32 size = sizeof(T);
  const OSStatus status = AudioObjectGetPropertyData(object, &address, 0, nullptr, &size, &initial);
  require(status, "Reading property " + std::to_string(address.mSelector));
  return initial;
}

std::string readString(AudioObjectID object, AudioObjectPropertySelector selector) {
  const AudioObjectPropertyAddress address = propertyAddress(selector);
  CFStringRef string = nullptr;
  UInt32 size = sizeof(CFStringRef);
  const OSStatus status = AudioObjectGetPropertyData(object, &address, 0, nullptr, &size, static_cast<void*>(&string));
  require(status, "Reading string property " + std::to_string(selector));
  if (!string) throw AppError("String property " + std::to_string(selector) + " is empty");
  // The caller of the read releases what it returned.
  return CF::text(CF::adopt(string).get());
}

}  // namespace

AudioObjectID defaultOutputDevice() {
  return read(system, propertyAddress(kAudioHardwarePropertyDefaultOutputDevice), AudioObjectID{kAudioObjectUnknown});
}

AudioObjectID processObject(pid_t pid) {
  const AudioObjectPropertyAddress address = propertyAddress(kAudioHardwarePropertyTranslatePIDToProcessObject);
  AudioObjectID process = kAudioObjectUnknown;
  UInt32 size = sizeof(process);
  const OSStatus status = AudioObjectGetPropertyData(system, &address, sizeof(pid), &pid, &size, &process);
  require(status, "Looking up the process object for pid " + std::to_string(pid));
  // A process that Core Audio doesn't know is no error of the call.
  if (process == kAudioObjectUnknown) throw AppError("No Core Audio process object for pid " + std::to_string(pid));
  return process;
}

std::string name(AudioObjectID object) { return readString(object, kAudioObjectPropertyName); }

std::string deviceUID(AudioObjectID device) { return readString(device, kAudioDevicePropertyDeviceUID); }

bool hasSystemVolumeControl(AudioObjectID device) {
  const AudioObjectPropertyAddress address =
      propertyAddress(kAudioHardwareServiceDeviceProperty_VirtualMainVolume, kAudioObjectPropertyScopeOutput);
  if (!AudioObjectHasProperty(device, &address)) return false;
  Boolean settable = 0;
  require(AudioObjectIsPropertySettable(device, &address, &settable), "Checking volume control");
  return settable != 0;
}

bool isAlive(AudioObjectID device) {
  return read(device, propertyAddress(kAudioDevicePropertyDeviceIsAlive), UInt32{0}) != 0;
}

long streamCount(AudioObjectID device, AudioObjectPropertyScope scope) {
  const AudioObjectPropertyAddress address = propertyAddress(kAudioDevicePropertyStreams, scope);
  UInt32 size = 0;
  require(AudioObjectGetPropertyDataSize(device, &address, 0, nullptr, &size), "Counting streams");
  return static_cast<long>(size / sizeof(AudioObjectID));
}

AudioStreamBasicDescription outputStreamFormat(AudioObjectID device) {
  return read(device, propertyAddress(kAudioDevicePropertyStreamFormat, kAudioObjectPropertyScopeOutput),
              AudioStreamBasicDescription{});
}

AudioStreamBasicDescription tapFormat(AudioObjectID tap) {
  return read(tap, propertyAddress(kAudioTapPropertyFormat), AudioStreamBasicDescription{});
}

}  // namespace CoreAudio
