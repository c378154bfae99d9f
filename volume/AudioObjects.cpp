#include "volume/AudioObjects.h"

#include <dispatch/dispatch.h>

#include <cstddef>
#include <vector>

#include "base/Log.h"
#include "volume/CoreAudio.h"

using CoreAudio::require;

namespace {

// For teardown, which always goes on to its next step.
void check(OSStatus status, const char* step) {
  static const os_log_t logger = makeLogger("AudioRouter");
  if (status != kAudioHardwareNoError) os_log_error(logger, "%{public}s failed (OSStatus %d)", step, status);
}

Block<AudioObjectPropertyListenerBlock> listenerBlock(const std::function<void()>& changed) {
  const std::function<void()> call = changed;  // of a reference a block would keep no more than the reference
  return Block<AudioObjectPropertyListenerBlock>(^(UInt32, const AudioObjectPropertyAddress*) {
    call();
  });
}

}  // namespace

ProcessTap::ProcessTap(const CA::TapDescription& description) {
  require(CA::AudioHardwareCreateProcessTap(description, &id_), "Creating the process tap");
}

ProcessTap::~ProcessTap() { check(CA::AudioHardwareDestroyProcessTap(id_), "Destroying the process tap"); }

AggregateDevice::AggregateDevice(CFDictionaryRef description) {
  require(AudioHardwareCreateAggregateDevice(description, &id_), "Creating the aggregate device");
}

AggregateDevice::~AggregateDevice() {
  check(AudioHardwareDestroyAggregateDevice(id_), "Destroying the aggregate device");
}

PropertyListener::PropertyListener(AudioObjectID object, const AudioObjectPropertyAddress& address,
                                   const std::function<void()>& changed)
    : object_(object),
      address_(address),
      block_(listenerBlock(changed)),
      status_(AudioObjectAddPropertyListenerBlock(object_, &address_, dispatch_get_main_queue(), block_.get())) {}

PropertyListener::~PropertyListener() {
  if (status_ != kAudioHardwareNoError) return;
  // There is nothing to be done about one that cannot be removed: its object may be gone.
  AudioObjectRemovePropertyListenerBlock(object_, &address_, dispatch_get_main_queue(), block_.get());
}

IOProc::IOProc(AudioObjectID device, AudioDeviceIOBlock block) : device_(device) {
  // Without a queue the block runs on the device's real-time thread itself.
  require(AudioDeviceCreateIOProcIDWithBlock(&id_, device, nullptr, block), "Creating the I/O proc");
}

IOProc::~IOProc() {
  check(AudioDeviceStop(device_, id_), "Stopping the aggregate device");
  check(AudioDeviceDestroyIOProcID(device_, id_), "Destroying the I/O proc");
}

void IOProc::switchInputsOff(long count) {
  const auto streams = static_cast<UInt32>(count + 1);
  const std::size_t size = offsetof(AudioHardwareIOProcStreamUsage, mStreamIsOn) + streams * sizeof(UInt32);
  std::vector<std::max_align_t> storage(size / sizeof(std::max_align_t) + 1);
  auto* const usage = reinterpret_cast<AudioHardwareIOProcStreamUsage*>(storage.data());
  usage->mIOProc = reinterpret_cast<void*>(id_);
  usage->mNumberStreams = streams;
  usage->mStreamIsOn[count] = 1;
  constexpr AudioObjectPropertyAddress address =
      CoreAudio::propertyAddress(kAudioDevicePropertyIOProcStreamUsage, kAudioObjectPropertyScopeInput);
  require(AudioObjectSetPropertyData(device_, &address, 0, nullptr, static_cast<UInt32>(size), usage),
          "Switching the device's own inputs off");
}

void IOProc::start(const std::function<void(OSStatus)>& failed) {
  const std::function<void(OSStatus)> call = failed;  // of a reference a block would keep no more than the reference
  const AudioObjectID device = device_;
  const AudioDeviceIOProcID id = id_;
  // When it is only now that a thread gets to it, both may be gone; then Core Audio refuses.
  dispatch_async(dispatch_get_global_queue(QOS_CLASS_USER_INITIATED, 0), ^{
    const OSStatus status = AudioDeviceStart(device, id);
    if (status == kAudioHardwareNoError) return;
    dispatch_async(dispatch_get_main_queue(), ^{
      call(status);
    });
  });
}
