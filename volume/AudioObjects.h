// Owners of the Core Audio objects that an audio router is made of.
//
// Each is built by its constructor, which throws an AppError naming the step when Core Audio refuses, and taken down by
// its destructor, which logs what Core Audio refuses and goes on. So whatever was built when a later step fails goes
// again in reverse order. Main thread only, but for the one call that may wait.
#pragma once

#include <CoreAudio/CoreAudio.h>

#include <functional>

#include "platform/AudioTap.h"
#include "platform/Block.h"

// A process tap.
class ProcessTap {
 public:
  explicit ProcessTap(const CA::TapDescription& description);
  ~ProcessTap();
  ProcessTap(const ProcessTap&) = delete;
  ProcessTap& operator=(const ProcessTap&) = delete;

  [[nodiscard]] AudioObjectID id() const { return id_; }

 private:
  AudioObjectID id_ = kAudioObjectUnknown;
};

// An aggregate device.
class AggregateDevice {
 public:
  // `description` has the keys of Core Audio's kAudioAggregateDevice...Key.
  explicit AggregateDevice(CFDictionaryRef description);
  ~AggregateDevice();
  AggregateDevice(const AggregateDevice&) = delete;
  AggregateDevice& operator=(const AggregateDevice&) = delete;

  [[nodiscard]] AudioObjectID id() const { return id_; }

 private:
  AudioObjectID id_ = kAudioObjectUnknown;
};

// A call on the main queue whenever a property of an object has changed. What is on its way when this goes may still
// arrive. Unlike the others it is no error when Core Audio refuses: nothing is called then.
class PropertyListener {
 public:
  PropertyListener(AudioObjectID object, const AudioObjectPropertyAddress& address,
                   const std::function<void()>& changed);
  ~PropertyListener();
  PropertyListener(const PropertyListener&) = delete;
  PropertyListener& operator=(const PropertyListener&) = delete;

  // kAudioHardwareNoError, or why nothing is called.
  [[nodiscard]] OSStatus status() const { return status_; }

 private:
  AudioObjectID object_;
  AudioObjectPropertyAddress address_;
  Block<AudioObjectPropertyListenerBlock> block_;
  OSStatus status_;
};

// An I/O callback of a device, called on the device's real-time thread once it is started.
class IOProc {
 public:
  // Doesn't start it yet. The device must outlive this.
  IOProc(AudioObjectID device, AudioDeviceIOBlock block);
  // Stops it first, so that the block isn't running when it goes.
  ~IOProc();
  IOProc(const IOProc&) = delete;
  IOProc& operator=(const IOProc&) = delete;

  // Closes the device's first `count` input streams for this callback, and leaves open the one behind them, the last.
  // It sees no data for those that are closed, which keep their places. To be called before `start`. Throws an AppError
  // when Core Audio refuses, as it does when the device has another number of input streams.
  void switchInputsOff(long count);

  // Starts it on a thread of its own: a device that starts with its tap may let the caller wait until the first sound
  // is played. `failed` is called on the main queue when Core Audio refuses, also when this is gone by then.
  void start(const std::function<void(OSStatus)>& failed);

 private:
  AudioObjectID device_;
  AudioDeviceIOProcID id_ = nullptr;
};
