// The one kind of sound that a router passes on, condition by condition.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "base/AppError.h"
#include "volume/StreamFormat.h"

namespace {

using Format = AudioStreamBasicDescription;

Format stereo() {
  return {.mSampleRate = 48000,
          .mFormatID = kAudioFormatLinearPCM,
          .mFormatFlags = kAudioFormatFlagIsFloat | kAudioFormatFlagIsPacked,
          .mBytesPerPacket = 8,
          .mFramesPerPacket = 1,
          .mBytesPerFrame = 8,
          .mChannelsPerFrame = 2,
          .mBitsPerChannel = 32,
          .mReserved = 0};
}

struct Change {
  std::string name;
  std::function<void(Format&)> make;
};

// What no format may be, whichever of the two has it.
const std::vector<Change> unsuitable = {
    {"not linear", [](Format& format) { format.mFormatID = 'ac-3'; }},
    {"integers", [](Format& format) { format.mFormatFlags = 4 | kAudioFormatFlagIsPacked; }},
    {"one buffer a channel", [](Format& format) { format.mFormatFlags |= kAudioFormatFlagIsNonInterleaved; }},
    {"64 bits", [](Format& format) { format.mBitsPerChannel = 64; }},
};

}  // namespace

TEST(StreamFormat, InterleavedFloatsOfOneRateAreCompatible) {
  EXPECT_TRUE(isCompatible(stereo(), stereo()));
  EXPECT_NO_THROW(requireCompatible(stereo(), stereo()));
}

TEST(StreamFormat, EachOfTheTwoMustBeSuitable) {
  for (const Change& change : unsuitable) {
    Format changed = stereo();
    change.make(changed);
    EXPECT_FALSE(isCompatible(changed, stereo())) << "tap: " << change.name;
    EXPECT_FALSE(isCompatible(stereo(), changed)) << "output: " << change.name;
    EXPECT_FALSE(isCompatible(changed, changed)) << "both: " << change.name;
    EXPECT_THROW(requireCompatible(changed, stereo()), AppError) << change.name;
  }
}

TEST(StreamFormat, TheNumberOfChannelsMustAgree) {
  Format mono = stereo();
  mono.mChannelsPerFrame = 1;
  EXPECT_FALSE(isCompatible(mono, stereo()));
  EXPECT_FALSE(isCompatible(stereo(), mono));
  EXPECT_TRUE(isCompatible(mono, mono));
}

TEST(StreamFormat, ThereMustBeChannels) {
  Format none = stereo();
  none.mChannelsPerFrame = 0;
  EXPECT_FALSE(isCompatible(none, none));
}

TEST(StreamFormat, TheRateMustBeExactlyTheSame) {
  Format faster = stereo();
  faster.mSampleRate = 48000.001;
  EXPECT_FALSE(isCompatible(faster, stereo()));
  EXPECT_FALSE(isCompatible(stereo(), faster));
  EXPECT_TRUE(isCompatible(faster, faster));
}

// How samples are packed into bytes follows from the rest; other flags say nothing about what is rendered.
TEST(StreamFormat, NothingElseMatters) {
  Format other = stereo();
  other.mFormatFlags = kAudioFormatFlagIsFloat | 64;
  other.mBytesPerPacket = 0;
  other.mFramesPerPacket = 7;
  other.mBytesPerFrame = 0;
  other.mReserved = 9;
  EXPECT_TRUE(isCompatible(other, stereo()));
  EXPECT_TRUE(isCompatible(stereo(), other));
}

TEST(StreamFormat, TheErrorShowsBothInFull) {
  Format tap = {44100.5, kAudioFormatLinearPCM, 1, 2, 3, 4, 5, 6, 7};
  try {
    requireCompatible(tap, stereo());
    FAIL();
  } catch (const AppError& error) {
    EXPECT_STREQ(error.what(),
                 "Tap format AudioStreamBasicDescription(mSampleRate: 44100.5, mFormatID: 1819304813, mFormatFlags: 1, "
                 "mBytesPerPacket: 2, mFramesPerPacket: 3, mBytesPerFrame: 4, mChannelsPerFrame: 5, mBitsPerChannel: "
                 "6, mReserved: 7) does not match output format AudioStreamBasicDescription(mSampleRate: 48000, "
                 "mFormatID: 1819304813, mFormatFlags: 9, mBytesPerPacket: 8, mFramesPerPacket: 1, mBytesPerFrame: 8, "
                 "mChannelsPerFrame: 2, mBitsPerChannel: 32, mReserved: 0)");
  }
}
