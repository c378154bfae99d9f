// Render, sample for sample.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <random>
#include <vector>

#include "volume/Render.h"

namespace {

using Samples = std::vector<float>;

// What a buffer holds before render has been there.
constexpr float untouched = 99.9F;  // none of its bytes is 0

// A buffer list with samples of its own; null samples stand for a stream that is switched off.
class Buffers {
 public:
  struct Buffer {
    UInt32 channels;
    Samples samples;
    bool off = false;
  };

  explicit Buffers(std::vector<Buffer> buffers)
      : buffers_(std::move(buffers)),
        storage_(new std::byte[offsetof(AudioBufferList, mBuffers) + (buffers_.size() + 1) * sizeof(AudioBuffer)]) {
    list()->mNumberBuffers = static_cast<UInt32>(buffers_.size());
    for (std::size_t i = 0; i < buffers_.size(); ++i) {
      auto& [channels, samples, off] = buffers_[i];
      list()->mBuffers[i] = {channels, static_cast<UInt32>(samples.size() * sizeof(float)),
                             off ? nullptr : samples.data()};
    }
  }

  AudioBufferList* list() { return reinterpret_cast<AudioBufferList*>(storage_.get()); }
  AudioBufferList& operator*() { return *list(); }
  const Samples& operator[](std::size_t index) const { return buffers_[index].samples; }

 private:
  std::vector<Buffer> buffers_;
  std::unique_ptr<std::byte[]> storage_;
};

Buffers one(UInt32 channels, Samples samples) { return Buffers({{channels, std::move(samples)}}); }
Samples filled(std::size_t count, float value) { return Samples(count, value); }

// The rule itself, written as plainly as can be.
Samples expected(const Samples& in, UInt32 channels, float applied, float target) {
  Samples out;
  const std::size_t frames = in.size() / channels;
  const float step = (target - applied) / static_cast<float>(frames);
  float gain = applied;
  for (std::size_t frame = 0; frame < frames; ++frame) {
    gain = gain + step;
    for (std::size_t channel = 0; channel < channels; ++channel) out.push_back(in[frame * channels + channel] * gain);
  }
  return out;
}

// Also tells zeros of different signs apart.
bool sameBits(const Samples& a, const Samples& b) {
  const auto bits = [](float sample) { return std::bit_cast<std::uint32_t>(sample); };
  return std::ranges::equal(a, b, {}, bits, bits);
}

}  // namespace

TEST(Render, MultipliesByAnUnchangedGain) {
  RenderState state(0.125F, 0);
  Buffers input = one(2, {1, 2, 3, 4});
  Buffers output = one(2, filled(4, untouched));
  render(state, *input, *output);
  EXPECT_EQ(output[0], (Samples{0.125F, 0.25F, 0.375F, 0.5F}));
  EXPECT_EQ(state.appliedGain, 0.125F);
}

TEST(Render, RampsToItsTargetFrameByFrame) {
  RenderState state(1, 0);
  state.targetGain = 0;
  Buffers input = one(1, filled(4, 1));
  Buffers output = one(1, filled(4, untouched));
  render(state, *input, *output);
  EXPECT_EQ(output[0], (Samples{0.75F, 0.5F, 0.25F, 0}));
  EXPECT_EQ(state.appliedGain, 0);
}

TEST(Render, GivesAllChannelsOfAFrameTheSameGain) {
  RenderState state(0, 0);
  state.targetGain = 1;
  Buffers input = one(3, {1, 2, 3, 1, 2, 3});
  Buffers output = one(3, filled(6, untouched));
  render(state, *input, *output);
  EXPECT_EQ(output[0], (Samples{0.5F, 1, 1.5F, 1, 2, 3}));
}

TEST(Render, IsExactForAllSizesChannelsGainsAndAlignments) {
  std::mt19937 generator(1);
  std::uniform_real_distribution<float> sample(-1, 1);
  std::uniform_int_distribution<int> steps(0, 16);
  for (const UInt32 channels : {1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 16U}) {
    for (std::size_t frames = 1; frames <= 70; ++frames) {
      for (const std::size_t offset : {0U, 1U, 3U, 13U}) {
        const auto gain = [&] { return std::pow(static_cast<float>(steps(generator)) / 16, 3.0F); };
        const float applied = gain();
        const float target = frames % 2 == 0 ? applied : gain();
        Samples in(frames * channels);
        for (float& each : in) each = sample(generator);
        // The output begins anywhere in a cache line, and what is around it stays as it is.
        Samples shifted(offset + in.size() + 20, untouched);
        AudioBufferList input = {1, {{channels, static_cast<UInt32>(in.size() * sizeof(float)), in.data()}}};
        AudioBufferList output = {
            1, {{channels, static_cast<UInt32>(in.size() * sizeof(float)), shifted.data() + offset}}};
        RenderState state(applied, 0);
        state.targetGain = target;
        render(state, input, output);
        const auto first = shifted.begin() + static_cast<std::ptrdiff_t>(offset);
        const auto last = first + static_cast<std::ptrdiff_t>(in.size());
        ASSERT_TRUE(sameBits(Samples(first, last), expected(in, channels, applied, target)))
            << channels << " channels, " << frames << " frames, offset " << offset << ", " << applied << " to "
            << target;
        ASSERT_TRUE(sameBits(Samples(shifted.begin(), first), filled(offset, untouched)));
        ASSERT_TRUE(sameBits(Samples(last, shifted.end()), filled(20, untouched)));
        ASSERT_EQ(state.appliedGain, target);
      }
    }
  }
}

TEST(Render, EveryStepToEveryOtherIsExactOverACycle) {
  Samples in;
  for (int i = 0; i < 2 * 512; ++i) in.push_back(std::sin(static_cast<float>(i)));
  for (int from = 0; from <= 16; ++from) {
    for (int to = 0; to <= 16; ++to) {
      const float applied = std::pow(static_cast<float>(from) / 16, 3.0F);
      const float target = std::pow(static_cast<float>(to) / 16, 3.0F);
      RenderState state(applied, 0);
      state.targetGain = target;
      Buffers input = one(2, in);
      Buffers output = one(2, filled(in.size(), untouched));
      render(state, *input, *output);
      ASSERT_TRUE(sameBits(output[0], expected(in, 2, applied, target))) << from << " to " << to;
    }
  }
}

TEST(Render, CarriesTheGainFromCycleToCycle) {
  RenderState state(0, 0);
  state.targetGain = 1;
  Buffers input = one(1, filled(4, 1));
  Buffers output = one(1, filled(4, untouched));
  render(state, *input, *output);
  EXPECT_EQ(output[0], (Samples{0.25F, 0.5F, 0.75F, 1}));
  render(state, *input, *output);
  EXPECT_EQ(output[0], (Samples{1, 1, 1, 1}));
  state.targetGain = 0.5F;
  render(state, *input, *output);
  EXPECT_EQ(output[0], (Samples{0.875F, 0.75F, 0.625F, 0.5F}));
}

TEST(Render, GainOfOneChangesNoBit) {
  RenderState state(1, 0);
  const Samples in = {0.1F, -0.0F, std::numeric_limits<float>::denorm_min(), std::numeric_limits<float>::infinity()};
  Buffers input = one(1, in);
  Buffers output = one(1, filled(4, untouched));
  render(state, *input, *output);
  EXPECT_TRUE(sameBits(output[0], in));
}

TEST(Render, SilencesOutputsAfterTheFirst) {
  RenderState state(1, 0);
  Buffers input = one(2, {1, 2, 3, 4});
  Buffers output({{2, filled(4, untouched)}, {2, filled(4, untouched)}, {1, filled(2, untouched)}});
  render(state, *input, *output);
  EXPECT_EQ(output[0], (Samples{1, 2, 3, 4}));
  EXPECT_EQ(output[1], filled(4, 0));
  EXPECT_EQ(output[2], filled(2, 0));
  Buffers two({{2, filled(4, untouched)}, {2, filled(4, untouched)}});
  render(state, *input, *two);
  EXPECT_EQ(two[1], filled(4, 0));
}

TEST(Render, RampsHoweverManyChannelsThereAre) {
  for (UInt32 channels = 1; channels <= 20; ++channels) {
    RenderState state(1, 0);
    state.targetGain = 0.25F;
    Samples in(7 * channels);
    for (std::size_t i = 0; i < in.size(); ++i) in[i] = static_cast<float>(i) * 0.1F;
    Buffers input = one(channels, in);
    Buffers output = one(channels, filled(in.size(), untouched));
    render(state, *input, *output);
    EXPECT_TRUE(sameBits(output[0], expected(in, channels, 1, 0.25F))) << channels;
  }
}

TEST(Render, SilencesTheTailBehindAShorterTap) {
  RenderState state(0, 0);
  state.targetGain = 1;
  Buffers input = one(2, {8, 8, 8, 8});
  Buffers output = one(2, filled(8, untouched));
  render(state, *input, *output);
  // The ramp is over the frames that there are.
  EXPECT_EQ(output[0], (Samples{4, 4, 8, 8, 0, 0, 0, 0}));
}

TEST(Render, LeavesTheRestOfALongerTapOut) {
  RenderState state(0, 0);
  state.targetGain = 1;
  Buffers input = one(1, filled(8, 1));
  Buffers output = one(1, filled(2, untouched));
  render(state, *input, *output);
  EXPECT_EQ(output[0], (Samples{0.5F, 1}));
}

TEST(Render, TakesTheTapBehindTheDevicesOwnInputs) {
  RenderState state(0.5F, 2);
  Buffers input({{1, filled(2, 7)}, {1, filled(2, 7)}, {1, {1, 2}}});
  Buffers output = one(1, filled(2, untouched));
  render(state, *input, *output);
  EXPECT_EQ(output[0], (Samples{0.5F, 1}));
}

// The device has got inputs since: what stands where the tap was is a microphone.
TEST(Render, IsSilentWhenTheTapIsNotTheLastInput) {
  RenderState state(0.5F, 1);
  state.targetGain = 0.25F;
  Buffers input({{1, filled(2, 7)}, {1, filled(2, 7)}, {1, {1, 2}}});
  Buffers output = one(1, filled(2, untouched));
  render(state, *input, *output);
  EXPECT_EQ(output[0], filled(2, 0));
  EXPECT_EQ(state.appliedGain, 0.25F);
}

TEST(Render, IsSilentWithoutATapAndStillReachesItsTarget) {
  for (const long index : {-1L, 1L, 2L, 1000L, 1L << 32}) {
    RenderState state(1, index);
    state.targetGain = 0.25F;
    // What lies around the list's one buffer is none of it, though it looks like some.
    Samples samples = {1, 1};
    const AudioBuffer buffer = {1, 2 * sizeof(float), samples.data()};
    std::array<AudioBuffer, 4> storage = {buffer, buffer, buffer, buffer};
    auto* const input = reinterpret_cast<AudioBufferList*>(reinterpret_cast<std::byte*>(&storage[1]) -
                                                           offsetof(AudioBufferList, mBuffers));
    input->mNumberBuffers = 1;
    Buffers output = one(1, filled(2, untouched));
    render(state, *input, *output);
    EXPECT_EQ(output[0], filled(2, 0)) << index;
    EXPECT_EQ(state.appliedGain, 0.25F);
  }
}

TEST(Render, IsSilentWhenTheTapIsSwitchedOff) {
  RenderState state(1, 0);
  Buffers input({{1, {1, 1}, true}});
  Buffers output = one(1, filled(2, untouched));
  render(state, *input, *output);
  EXPECT_EQ(output[0], filled(2, 0));
}

TEST(Render, LeavesAnOutputThatIsSwitchedOffAlone) {
  RenderState state(1, 0);
  state.targetGain = 0.5F;
  Buffers input = one(1, {1, 1});
  Buffers output({{1, filled(2, untouched), true}, {1, filled(2, untouched)}});
  render(state, *input, *output);
  EXPECT_EQ(output[0], filled(2, untouched));
  EXPECT_EQ(output[1], filled(2, 0));
  EXPECT_EQ(state.appliedGain, 0.5F);
}

TEST(Render, TakesEmptyBuffersAndLists) {
  for (const float target : {1.0F, 0.5F}) {
    RenderState state(1, 0);
    state.targetGain = target;
    float nothing = 0;
    const AudioBufferList input = {1, {{2, 0, &nothing}}};
    Buffers output = one(2, filled(4, untouched));
    render(state, input, *output);
    EXPECT_EQ(output[0], filled(4, 0));
    EXPECT_EQ(state.appliedGain, target);

    Buffers none({});
    Buffers some = one(2, {1, 2});
    render(state, *none, *none);
    render(state, *some, *none);
    EXPECT_EQ(state.appliedGain, target);

    // What lies behind the end of a list is no buffer.
    Samples behind = filled(2, untouched);
    AudioBufferList empty = {0, {{2, 2 * sizeof(float), behind.data()}}};
    render(state, *some, empty);
    EXPECT_EQ(behind, filled(2, untouched));
  }
}

TEST(Render, SilencesAnOutputWithoutChannels) {
  for (const float target : {1.0F, 0.5F}) {
    RenderState state(1, 0);
    state.targetGain = target;
    Buffers input = one(2, {1, 2});
    Buffers output = one(0, filled(2, untouched));
    render(state, *input, *output);
    EXPECT_EQ(output[0], filled(2, 0));
  }
}

TEST(Render, PlaysWholeFramesOnly) {
  for (const UInt32 channels : {2U, 3U, 4U, 6U}) {
    for (const float target : {1.0F, 0.5F}) {
      RenderState state(1, 0);
      state.targetGain = target;
      const Samples in = filled(3 * channels - 1, 1);
      Buffers input = one(channels, in);
      Buffers output = one(channels, filled(in.size(), untouched));
      render(state, *input, *output);
      const Samples whole = expected(filled(2 * channels, 1), channels, 1, target);
      EXPECT_TRUE(std::equal(whole.begin(), whole.end(), output[0].begin())) << channels;
      EXPECT_TRUE(std::all_of(output[0].begin() + 2 * channels, output[0].end(), [](float sample) {
        return sample == untouched;
      })) << channels;
    }
  }
}
