#include "volume/AudioRouter.h"

#include <unistd.h>

#include <string>
#include <utility>

#include "base/AppError.h"
#include "base/Log.h"
#include "platform/CFCollections.h"
#include "platform/UUID.h"
#include "volume/CoreAudio.h"
#include "volume/StreamFormat.h"

namespace {

constexpr const char* objectName = "Dalvane";

CA::TapDescription tapDescription(const std::string& deviceUID) {
  // The router's own output goes to the same device: tapping it too would feed the sound back.
  const AudioObjectID own = CoreAudio::processObject(getpid());
  const CA::TapDescription description = CA::TapDescription::initExcludingProcesses({own}, deviceUID, 0);
  description.setName(objectName);
  description.setUUID(NS::UUID::make());
  description.setPrivate(true);
  // Sound falls back to the direct path whenever nothing reads the tap.
  description.setMuteBehavior(CA::TapMuteBehavior::MutedWhenTapped);
  return description;
}

CF::Ref<CFDictionaryRef> aggregateDescription(const std::string& deviceUID, const std::string& tapUID) {
  using CF::value;
  const auto subDevice = CF::dictionary({{CFSTR(kAudioSubDeviceUIDKey), value(deviceUID)}});
  const auto tap = CF::dictionary(
      {{CFSTR(kAudioSubTapUIDKey), value(tapUID)}, {CFSTR(kAudioSubTapDriftCompensationKey), value(true)}});
  return CF::dictionary({
      {CFSTR(kAudioAggregateDeviceNameKey), value(std::string(objectName))},
      {CFSTR(kAudioAggregateDeviceUIDKey), value(NS::UUID::make().UUIDString())},
      {CFSTR(kAudioAggregateDeviceMainSubDeviceKey), value(deviceUID)},
      {CFSTR(kAudioAggregateDeviceIsPrivateKey), value(true)},
      {CFSTR(kAudioAggregateDeviceIsStackedKey), value(false)},
      {CFSTR(kAudioAggregateDeviceTapAutoStartKey), value(true)},
      {CFSTR(kAudioAggregateDeviceSubDeviceListKey), CF::listOf(subDevice.get())},
      {CFSTR(kAudioAggregateDeviceTapListKey), CF::listOf(tap.get())},
  });
}

}  // namespace

AudioRouter::AudioRouter(AudioObjectID device, float gain, Events events)
    : device_(device),
      state_(std::make_shared<RenderState>(gain, CoreAudio::streamCount(device, kAudioObjectPropertyScopeInput))),
      events_(std::make_shared<const Events>(std::move(events))) {
  // What was built when this throws goes with the members.
  start();
}

void AudioRouter::start() {
  const std::string uid = CoreAudio::deviceUID(device_);
  const CA::TapDescription description = tapDescription(uid);
  tap_.emplace(description);
  const AudioStreamBasicDescription tapFormat = CoreAudio::tapFormat(tap_->id());
  format_ = CoreAudio::outputStreamFormat(device_);
  requireCompatible(tapFormat, format_);
  aggregate_.emplace(aggregateDescription(uid, description.UUID().UUIDString()).get());
  // The block keeps the state and never the router. Calling it counts no reference.
  const std::shared_ptr<RenderState> state = state_;
  ioProc_.emplace(aggregate_->id(), ^(const AudioTimeStamp*, const AudioBufferList* input, const AudioTimeStamp*,
                                      AudioBufferList* output, const AudioTimeStamp*) {
    render(*state, *input, *output);
  });
  // The device's own inputs come first among the aggregate device's. They would be its microphones.
  if (state_->tapBufferIndex > 0) ioProc_->switchInputsOff(state_->tapBufferIndex);
  listenForStop(aggregate_->id());
  ioProc_->start([events = std::weak_ptr(events_)](OSStatus status) {
    if (const auto told = events.lock()) told->startFailed(AppError("Starting the aggregate device", status));
  });
}

// The device may have taken another format and its first one again: then nothing of it tells that I/O was stopped.
void AudioRouter::listenForStop(AudioObjectID aggregate) {
  const OSStatus status = stopListener_
                              .emplace(aggregate, CoreAudio::propertyAddress(kAudioDevicePropertyIOStoppedAbnormally),
                                       [events = std::weak_ptr(events_)] {
                                         if (const auto told = events.lock()) told->stopped();
                                       })
                              .status();
  if (status == kAudioHardwareNoError) return;
  static const os_log_t logger = makeLogger("AudioRouter");
  os_log_error(logger, "Could not watch the aggregate device (OSStatus %d)", status);
}

void AudioRouter::stop() {
  events_.reset();
  ioProc_.reset();
  stopListener_.reset();
  aggregate_.reset();
  tap_.reset();
}

void AudioRouter::setGain(float gain) { state_->targetGain.store(gain, std::memory_order_relaxed); }

bool AudioRouter::fitsDevice() const {
  try {
    return CoreAudio::isAlive(device_) &&
           CoreAudio::streamCount(device_, kAudioObjectPropertyScopeInput) == state_->tapBufferIndex &&
           isCompatible(format_, CoreAudio::outputStreamFormat(device_));
  } catch (const AppError&) {
    return false;  // such as when it is gone
  }
}
