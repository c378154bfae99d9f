#include "simulator/audio/AudioObject.h"

#include "simulator/foundation/CoreFoundation.h"

namespace simulator {

void PropertyValue::write(void* destination) const {
  if (!isString_) {
    if (!bytes_.empty()) std::memcpy(destination, bytes_.data(), bytes_.size());
    return;
  }
  const CFStringRef string = text_ ? new __CFString(*text_) : nullptr;
  std::memcpy(destination, &string, sizeof string);
}

bool isProperty(const AudioObjectPropertyAddress& address, AudioObjectPropertySelector selector,
                AudioObjectPropertyScope scope) {
  return address.mSelector == selector && address.mScope == scope &&
         address.mElement == kAudioObjectPropertyElementMain;
}

AudioStreamBasicDescription floatFormat(double rate, UInt32 channels) {
  const auto frameSize = static_cast<UInt32>(channels * sizeof(float));
  return {.mSampleRate = rate,
          .mFormatID = kAudioFormatLinearPCM,
          .mFormatFlags = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked,
          .mBytesPerPacket = frameSize,
          .mFramesPerPacket = 1,
          .mBytesPerFrame = frameSize,
          .mChannelsPerFrame = channels,
          .mBitsPerChannel = 32,
          .mReserved = 0};
}

}  // namespace simulator
