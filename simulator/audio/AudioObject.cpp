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

AudioStreamBasicDescription streamFormat(double rate, UInt32 channels, const SampleLayout& layout) {
  const bool isInterleaved = (layout.flags & kAudioFormatFlagIsNonInterleaved) == 0;
  const UInt32 frameSize = layout.bits / 8 * (isInterleaved ? channels : 1);
  return {.mSampleRate = rate,
          .mFormatID = layout.id,
          .mFormatFlags = layout.flags,
          .mBytesPerPacket = frameSize,
          .mFramesPerPacket = 1,
          .mBytesPerFrame = frameSize,
          .mChannelsPerFrame = channels,
          .mBitsPerChannel = layout.bits,
          .mReserved = 0};
}

}  // namespace simulator
