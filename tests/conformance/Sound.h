// Core Audio as claims use it: properties, a tap, and an aggregate device with it.
#pragma once

#include <CoreAudio/CoreAudio.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <utility>

#include "platform/AudioTap.h"
#include "platform/CF.h"
#include "platform/CFCollections.h"

namespace claims {

// ---- Properties ----

constexpr AudioObjectPropertyAddress at(AudioObjectPropertySelector selector,
                                        AudioObjectPropertyScope scope = kAudioObjectPropertyScopeGlobal) {
  return {selector, scope, kAudioObjectPropertyElementMain};
}

// A property's status and value.
template <typename T>
std::pair<OSStatus, T> read(AudioObjectID object, const AudioObjectPropertyAddress& address, T value = {}) {
  UInt32 size = sizeof value;
  const OSStatus status = AudioObjectGetPropertyData(object, &address, 0, nullptr, &size, static_cast<void*>(&value));
  return {status, value};
}
inline std::pair<OSStatus, UInt32> sizeOf(AudioObjectID object, const AudioObjectPropertyAddress& address) {
  UInt32 size = 0;
  const OSStatus status = AudioObjectGetPropertyDataSize(object, &address, 0, nullptr, &size);
  return {status, size};
}
inline std::string readText(AudioObjectID object, AudioObjectPropertySelector selector) {
  const auto [status, text] = read<CFStringRef>(object, at(selector));
  EXPECT_EQ(status, kAudioHardwareNoError);
  return CF::text(CF::adopt(text).get());
}

inline AudioObjectID defaultOutput() {
  return read<AudioObjectID>(kAudioObjectSystemObject, at(kAudioHardwarePropertyDefaultOutputDevice)).second;
}

inline AudioObjectID processObject(pid_t pid) {
  constexpr AudioObjectPropertyAddress address = at(kAudioHardwarePropertyTranslatePIDToProcessObject);
  AudioObjectID object = 7;
  UInt32 size = sizeof object;
  EXPECT_EQ(AudioObjectGetPropertyData(kAudioObjectSystemObject, &address, sizeof pid, &pid, &size, &object),
            kAudioHardwareNoError);
  return object;
}

// ---- Objects that go when they are destroyed ----

// A process tap of everything that other programs play to the default output.
struct Tap {
  explicit Tap(CA::TapMuteBehavior muting = CA::TapMuteBehavior::Unmuted)
      : description(CA::TapDescription::initExcludingProcesses({processObject(getpid())}, device, 0)) {
    description.setName("Claims");
    description.setPrivate(true);
    description.setMuteBehavior(muting);
    status = CA::AudioHardwareCreateProcessTap(description, &tap);
  }
  ~Tap() {
    if (status == kAudioHardwareNoError) EXPECT_EQ(CA::AudioHardwareDestroyProcessTap(tap), kAudioHardwareNoError);
  }
  Tap(const Tap&) = delete;
  Tap& operator=(const Tap&) = delete;

  std::string device = readText(defaultOutput(), kAudioDevicePropertyDeviceUID);
  CA::TapDescription description;
  AudioObjectID tap = kAudioObjectUnknown;
  OSStatus status = kAudioHardwareNoError;
};

// A device of the tap's own device and the tap.
struct Aggregate {
  // With the sound its start waits until somebody plays.
  enum class Starts { atOnce, withTheSound };

  Aggregate(const Tap& tap, Starts starts) {
    const auto main = CF::dictionary({{CFSTR(kAudioSubDeviceUIDKey), CF::value(tap.device)}});
    const auto input = CF::dictionary({{CFSTR(kAudioSubTapUIDKey), CF::value(tap.description.UUID().UUIDString())},
                                       {CFSTR(kAudioSubTapDriftCompensationKey), CF::value(true)}});
    const auto whole =
        CF::dictionary({{CFSTR(kAudioAggregateDeviceNameKey), CF::value(std::string("Claims"))},
                        {CFSTR(kAudioAggregateDeviceUIDKey), CF::value(NS::UUID::make().UUIDString())},
                        {CFSTR(kAudioAggregateDeviceMainSubDeviceKey), CF::value(tap.device)},
                        {CFSTR(kAudioAggregateDeviceIsPrivateKey), CF::value(true)},
                        {CFSTR(kAudioAggregateDeviceIsStackedKey), CF::value(false)},
                        {CFSTR(kAudioAggregateDeviceTapAutoStartKey), CF::value(starts == Starts::withTheSound)},
                        {CFSTR(kAudioAggregateDeviceSubDeviceListKey), CF::listOf(main.get())},
                        {CFSTR(kAudioAggregateDeviceTapListKey), CF::listOf(input.get())}});
    status = AudioHardwareCreateAggregateDevice(whole.get(), &device);
  }
  ~Aggregate() {
    if (status == kAudioHardwareNoError) EXPECT_EQ(AudioHardwareDestroyAggregateDevice(device), kAudioHardwareNoError);
  }
  Aggregate(const Aggregate&) = delete;
  Aggregate& operator=(const Aggregate&) = delete;

  AudioObjectID device = kAudioObjectUnknown;
  OSStatus status = kAudioHardwareNoError;
};

}  // namespace claims
