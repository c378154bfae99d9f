#include "volume/Render.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <utility>

namespace {

// Samples per frame, known when compiling (0: only when running).
template <std::size_t Channels>
struct Frame {
  static std::size_t samples(std::size_t) noexcept { return Channels; }
};
template <>
struct Frame<0> {
  static std::size_t samples(std::size_t channels) noexcept { return channels; }
};

// The additions are the one chain of dependent operations, so a frame costs the latency of an addition. They are done
// one by one, because start + n * step rounds differently.
//
// Apple's headers define __restrict away in C++, and without it the multiplications are done one by one, too. Out of
// line, so that the cycles between two changes of the gain, which are nearly all, do without what ramps need.
template <std::size_t Channels>
[[gnu::noinline]] void ramp(const float* __restrict__ in, float* __restrict__ out, std::size_t frames,
                            std::size_t channels, float gain, float step) noexcept {
  const std::size_t samples = Frame<Channels>::samples(channels);
  for (std::size_t frame = 0; frame < frames; ++frame) {
    gain += step;
    for (std::size_t sample = 0; sample < samples; ++sample) out[sample] = in[sample] * gain;
    in += samples;
    out += samples;
  }
}

// A cache line of samples, done with the widest registers that there are.
constexpr std::size_t lineSize = 64;
constexpr std::size_t lineSamples = lineSize / sizeof(float);

using Line = float __attribute__((vector_size(lineSize)));

template <std::size_t Lines>
void scaleLines(const float* __restrict__ in, float* __restrict__ out, float gain) noexcept {
#pragma clang loop unroll(full)
  for (std::size_t sample = 0; sample < Lines * lineSamples; sample += lineSamples) {
    Line line;
    std::memcpy(&line, in + sample, lineSize);
    line *= gain;
    std::memcpy(out + sample, &line, lineSize);
  }
}

// The first and the last so many lines, which may overlap.
template <std::size_t Lines>
void scaleEnds(const float* __restrict__ in, float* __restrict__ out, std::size_t samples, float gain) noexcept {
  const std::size_t last = samples - Lines * lineSamples;
  scaleLines<Lines>(in, out, gain);
  scaleLines<Lines>(in + last, out + last, gain);
}

// As a copy does it, which is as fast as it can be done: what is short is its two ends, and what is longer is written
// in blocks from its second line's boundary on, and its ends overlap what is between them.
void scale(const float* __restrict__ in, float* __restrict__ out, std::size_t samples, float gain) noexcept {
  constexpr std::size_t blockLines = 4;
  constexpr std::size_t blockSamples = blockLines * lineSamples;
  if (samples < lineSamples) {
    for (std::size_t sample = 0; sample < samples; ++sample) out[sample] = in[sample] * gain;
    return;
  }
  if (samples <= 2 * lineSamples) return scaleEnds<1>(in, out, samples, gain);
  if (samples <= blockSamples) return scaleEnds<2>(in, out, samples, gain);
  if (samples <= 2 * blockSamples) return scaleEnds<blockLines>(in, out, samples, gain);
  const std::size_t secondLine = lineSamples - reinterpret_cast<std::uintptr_t>(out) % lineSize / sizeof(float);
  const std::size_t last = samples - blockSamples;
  scaleLines<1>(in, out, gain);
  for (std::size_t sample = secondLine; sample < last; sample += blockSamples) {
    scaleLines<blockLines>(in + sample, out + sample, gain);
  }
  scaleLines<blockLines>(in + last, out + last, gain);
}

// Without a division where that can be: it takes as long as dozens of samples.
std::size_t wholeFrames(UInt32 samples, UInt32 channels) noexcept {
  const bool isPowerOfTwo = (channels & (channels - 1)) == 0;
  return isPowerOfTwo ? samples & -channels : samples - samples % channels;
}

// Silences the first buffer from byte `from` on, and all others.
[[gnu::noinline]] void silence(const AudioBufferList& output, std::size_t from) noexcept {
  for (UInt32 index = 0; index < output.mNumberBuffers; ++index) {
    const AudioBuffer& buffer = output.mBuffers[index];
    if (buffer.mData) std::memset(static_cast<std::byte*>(buffer.mData) + from, 0, buffer.mDataByteSize - from);
    from = 0;
  }
}

// What is left to be silenced once `samples` samples of the tap's have been played.
void silenceTheRest(const AudioBuffer& tap, const AudioBufferList& output, std::size_t samples) noexcept {
  const UInt32 size = output.mBuffers[0].mDataByteSize;
  const bool hasTail = tap.mDataByteSize < size;
  if (hasTail || output.mNumberBuffers > 1) silence(output, hasTail ? samples * sizeof(float) : size);
}

// A cycle in which the gain changes. Out of line, as the ramps are.
[[gnu::noinline]] void playRamp(const AudioBuffer& tap, const AudioBufferList& output, std::size_t samples, float gain,
                                float target) noexcept {
  const auto* const in = static_cast<const float*>(tap.mData);
  auto* const out = static_cast<float*>(output.mBuffers[0].mData);
  // The tap has as many: the router refused to start otherwise.
  const std::size_t channels = output.mBuffers[0].mNumberChannels;
  const std::size_t frames = samples / channels;
  const float step = (target - gain) / static_cast<float>(frames);
  switch (channels) {
    case 1:
      ramp<1>(in, out, frames, channels, gain, step);
      break;
    case 2:
      ramp<2>(in, out, frames, channels, gain, step);
      break;
    case 4:
      ramp<4>(in, out, frames, channels, gain, step);
      break;
    case 6:
      ramp<6>(in, out, frames, channels, gain, step);
      break;
    case 8:
      ramp<8>(in, out, frames, channels, gain, step);
      break;
    default:
      ramp<0>(in, out, frames, channels, gain, step);
      break;
  }
  silenceTheRest(tap, output, samples);
}

}  // namespace

void render(RenderState& state, const AudioBufferList& input, AudioBufferList& output) noexcept {
  const float target = state.targetGain.load(std::memory_order_relaxed);
  const float applied = std::exchange(state.appliedGain, target);

  // The tap is the last. When it is not where it was, the device's inputs have changed, and what stands there may be one
  // of them: a microphone. A negative index is, without its sign, behind every buffer, and so is the last of none.
  const auto index = static_cast<std::size_t>(state.tapBufferIndex);
  if (index != input.mNumberBuffers - 1 || output.mNumberBuffers == 0) return silence(output, 0);
  const AudioBuffer& tap = input.mBuffers[index];
  const AudioBuffer& out = output.mBuffers[0];
  // A stream that is switched off has no data.
  if (!tap.mData || !out.mData || out.mNumberChannels == 0) return silence(output, 0);

  const UInt32 size = std::min(tap.mDataByteSize, out.mDataByteSize);
  const std::size_t samples = wholeFrames(size / sizeof(float), out.mNumberChannels);
  if (applied != target) return playRamp(tap, output, samples, applied, target);
  scale(static_cast<const float*>(tap.mData), static_cast<float*>(out.mData), samples, target);
  silenceTheRest(tap, output, samples);
}
