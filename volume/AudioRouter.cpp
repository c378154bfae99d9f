#include "volume/AudioRouter.h"

#include <unistd.h>

#include <array>
#include <charconv>
#include <string>
#include <utility>
#include <vector>

#include "app/AppError.h"
#include "platform/CF.h"
#include "platform/UUID.h"
#include "volume/CoreAudio.h"

namespace {

constexpr const char* objectName = "Dalvane";

using Entry = std::pair<const char*, CF::Ref<CFTypeRef>>;

CF::Ref<CFTypeRef> value(const std::string& text) { return CF::retain<CFTypeRef>(CF::string(text).get()); }

CF::Ref<CFTypeRef> value(bool flag) { return CF::retain<CFTypeRef>(flag ? kCFBooleanTrue : kCFBooleanFalse); }

CF::Ref<CFDictionaryRef> dictionary(const std::vector<Entry>& entries) {
  std::vector<CF::Ref<CFStringRef>> names;
  std::vector<const void*> keys;
  std::vector<const void*> values;
  for (const auto& [key, entry] : entries) {
    keys.push_back(names.emplace_back(CF::string(key)).get());
    values.push_back(entry.get());
  }
  return CF::adopt(CFDictionaryCreate(kCFAllocatorDefault, keys.data(), values.data(),
                                      static_cast<CFIndex>(keys.size()), &kCFTypeDictionaryKeyCallBacks,
                                      &kCFTypeDictionaryValueCallBacks));
}

// A list of one dictionary.
CF::Ref<CFTypeRef> listOfOne(const std::vector<Entry>& entries) {
  const CF::Ref<CFDictionaryRef> element = dictionary(entries);
  const void* elements[] = {element.get()};
  return CF::adopt<CFTypeRef>(CFArrayCreate(kCFAllocatorDefault, elements, 1, &kCFTypeArrayCallBacks));
}

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
  return dictionary({
      {kAudioAggregateDeviceNameKey, value(std::string(objectName))},
      {kAudioAggregateDeviceUIDKey, value(NS::UUID::make().UUIDString())},
      {kAudioAggregateDeviceMainSubDeviceKey, value(deviceUID)},
      {kAudioAggregateDeviceIsPrivateKey, value(true)},
      {kAudioAggregateDeviceIsStackedKey, value(false)},
      {kAudioAggregateDeviceTapAutoStartKey, value(true)},
      {kAudioAggregateDeviceSubDeviceListKey, listOfOne({{kAudioSubDeviceUIDKey, value(deviceUID)}})},
      {kAudioAggregateDeviceTapListKey,
       listOfOne({{kAudioSubTapUIDKey, value(tapUID)}, {kAudioSubTapDriftCompensationKey, value(true)}})},
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
