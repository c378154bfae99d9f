#include "volume/AudioRouter.h"

#include <unistd.h>

#include <array>
#include <charconv>
#include <string>

#include "base/AppError.h"
#include "platform/CFCollections.h"
#include "platform/UUID.h"
#include "volume/CoreAudio.h"

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

std::string text(const AudioStreamBasicDescription& format) {
  std::array<char, 32> rate{};  // the shortest digits that read back as the same number
  const auto end = std::to_chars(rate.data(), rate.data() + rate.size(), format.mSampleRate).ptr;
  return "AudioStreamBasicDescription(mSampleRate: " + std::string(rate.data(), end) +
         ", mFormatID: " + std::to_string(format.mFormatID) + ", mFormatFlags: " + std::to_string(format.mFormatFlags) +
         ", mBytesPerPacket: " + std::to_string(format.mBytesPerPacket) +
         ", mFramesPerPacket: " + std::to_string(format.mFramesPerPacket) +
         ", mBytesPerFrame: " + std::to_string(format.mBytesPerFrame) +
         ", mChannelsPerFrame: " + std::to_string(format.mChannelsPerFrame) +
         ", mBitsPerChannel: " + std::to_string(format.mBitsPerChannel) +
         ", mReserved: " + std::to_string(format.mReserved) + ")";
}

// The one sample layout that is rendered: interleaved 32-bit floats.
bool isInterleavedFloat32(const AudioStreamBasicDescription& format) {
  constexpr AudioFormatFlags layout = kAudioFormatFlagIsFloat | kAudioFormatFlagIsNonInterleaved;
  return format.mFormatID == kAudioFormatLinearPCM && (format.mFormatFlags & layout) == kAudioFormatFlagIsFloat &&
         format.mBitsPerChannel == 32;
}

// Nothing is converted: both ends must have the same layout and rate.
void requireCompatible(const AudioStreamBasicDescription& tap, const AudioStreamBasicDescription& output) {
  const bool compatible = isInterleavedFloat32(tap) && isInterleavedFloat32(output) && tap.mChannelsPerFrame != 0 &&
                          tap.mChannelsPerFrame == output.mChannelsPerFrame && tap.mSampleRate == output.mSampleRate;
  if (!compatible) throw AppError("Tap format " + text(tap) + " does not match output format " + text(output));
}

}  // namespace

AudioRouter::AudioRouter(AudioObjectID device, float gain)
    : state_(std::make_shared<RenderState>(gain, CoreAudio::streamCount(device, kAudioObjectPropertyScopeInput))) {
  // What was built when this throws goes with the members.
  start(device);
}

void AudioRouter::start(AudioObjectID device) {
  const std::string uid = CoreAudio::deviceUID(device);
  const CA::TapDescription description = tapDescription(uid);
  tap_.emplace(description);
  const AudioStreamBasicDescription tapFormat = CoreAudio::tapFormat(tap_->id());
  requireCompatible(tapFormat, CoreAudio::outputStreamFormat(device));
  aggregate_.emplace(aggregateDescription(uid, description.UUID().UUIDString()).get());
  // The block keeps the state and never the router. Calling it counts no reference.
  const std::shared_ptr<RenderState> state = state_;
  ioProc_.emplace(aggregate_->id(), ^(const AudioTimeStamp*, const AudioBufferList* input, const AudioTimeStamp*,
                                      AudioBufferList* output, const AudioTimeStamp*) {
    render(*state, *input, *output);
  });
  ioProc_->start();
}

void AudioRouter::stop() {
  ioProc_.reset();
  aggregate_.reset();
  tap_.reset();
}

void AudioRouter::setGain(float gain) { state_->targetGain.store(gain, std::memory_order_relaxed); }
