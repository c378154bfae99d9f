// Typed access to the properties of Core Audio objects.
//
// Each operation either answers the value or throws an AppError that names what failed; none logs, and nothing is
// cached: every call asks Core Audio afresh. Usable from any thread but the I/O thread.
#pragma once

#include <CoreAudio/CoreAudio.h>
#include <sys/types.h>

#include <string>
#include <string_view>

namespace CoreAudio {

// Throws an AppError, "<operation> failed (OSStatus <status>)", for a status other than success.
void require(OSStatus status, std::string_view operation);

inline constexpr AudioObjectID system = kAudioObjectSystemObject;

constexpr AudioObjectPropertyAddress propertyAddress(
    AudioObjectPropertySelector selector, AudioObjectPropertyScope scope = kAudioObjectPropertyScopeGlobal,
    AudioObjectPropertyElement element = kAudioObjectPropertyElementMain) {
  return {selector, scope, element};
}

// The device that the system plays to by default; 0 when there is none.
AudioObjectID defaultOutputDevice();

// The object that stands for the process; never 0.
AudioObjectID processObject(pid_t pid);

// The name that people see, in UTF-8.
std::string name(AudioObjectID object);

// The identifier that a device keeps across restarts of the Mac, in UTF-8.
std::string deviceUID(AudioObjectID device);

// Whether the device's main output volume can be set. One that can only be read counts as none.
bool hasSystemVolumeControl(AudioObjectID device);

// Whether the device can be used; one that cannot will mostly be gone soon.
bool isAlive(AudioObjectID device);

// How many streams the device has in that direction (kAudioObjectPropertyScopeInput or ...Output).
long streamCount(AudioObjectID device, AudioObjectPropertyScope scope);

// The format of the device's first output stream.
AudioStreamBasicDescription outputStreamFormat(AudioObjectID device);

// The format in which a process tap delivers.
AudioStreamBasicDescription tapFormat(AudioObjectID tap);

}  // namespace CoreAudio
