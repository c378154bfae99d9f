#include "volume/StreamFormat.h"

#include <array>
#include <charconv>
#include <string>

#include "base/AppError.h"

namespace {

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

// The one sample layout that is rendered.
bool isInterleavedFloat32(const AudioStreamBasicDescription& format) {
  constexpr AudioFormatFlags layout = kAudioFormatFlagIsFloat | kAudioFormatFlagIsNonInterleaved;
  return format.mFormatID == kAudioFormatLinearPCM && (format.mFormatFlags & layout) == kAudioFormatFlagIsFloat &&
         format.mBitsPerChannel == 32;
}

}  // namespace

bool isCompatible(const AudioStreamBasicDescription& tap, const AudioStreamBasicDescription& output) {
  return isInterleavedFloat32(tap) && isInterleavedFloat32(output) && tap.mChannelsPerFrame != 0 &&
         tap.mChannelsPerFrame == output.mChannelsPerFrame && tap.mSampleRate == output.mSampleRate;
}

void requireCompatible(const AudioStreamBasicDescription& tap, const AudioStreamBasicDescription& output) {
  if (!isCompatible(tap, output)) {
    throw AppError("Tap format " + text(tap) + " does not match output format " + text(output));
  }
}
