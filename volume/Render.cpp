#include "volume/Render.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

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
template <std::size_t Channels>
void ramp(const float* __restrict in, float* __restrict out, std::size_t frames, std::size_t channels, float gain,
          float step) noexcept {
  const std::size_t samples = Frame<Channels>::samples(channels);
  for (std::size_t frame = 0; frame < frames; ++frame) {
    gain += step;
    for (std::size_t sample = 0; sample < samples; ++sample) out[sample] = in[sample] * gain;
    in += samples;
    out += samples;
  }
}

// One cache line of samples, done with the widest registers that there are.
constexpr std::size_t lineSize = 64;
constexpr std::size_t lineSamples = lineSize / sizeof(float);

using Line = float __attribute__((vector_size(lineSize)));

inline void scaleLine(const float* in, float* out, float gain) noexcept {
  Line line;
  std::memcpy(&line, in, lineSize);
  line *= gain;
  std::memcpy(out, &line, lineSize);
}

// As a copy does it: the output is written line by line from its first line boundary on, and the ends, which may lie
// across one, overlap what is between them.
void constant(const float* __restrict in, float* __restrict out, std::size_t samples, float gain) noexcept {
  if (samples < lineSamples) {
    for (std::size_t sample = 0; sample < samples; ++sample) out[sample] = in[sample] * gain;
    return;
  }
  scaleLine(in, out, gain);
  const std::size_t boundary = (-reinterpret_cast<std::uintptr_t>(out) % lineSize) / sizeof(float);
  const std::size_t last = samples - lineSamples;
#pragma clang loop unroll_count(4)
  for (std::size_t sample = boundary; sample < last; sample += lineSamples) scaleLine(in + sample, out + sample, gain);
  scaleLine(in + last, out + last, gain);
}

void scale(const float* in, float* out, std::size_t frames, std::size_t channels, float gain, float step) noexcept {
  if (step == 0) return constant(in, out, frames * channels, gain);
  switch (channels) {
    case 1:
      return ramp<1>(in, out, frames, channels, gain, step);
    case 2:
      return ramp<2>(in, out, frames, channels, gain, step);
    case 4:
      return ramp<4>(in, out, frames, channels, gain, step);
    case 6:
      return ramp<6>(in, out, frames, channels, gain, step);
    case 8:
      return ramp<8>(in, out, frames, channels, gain, step);
    default:
      return ramp<0>(in, out, frames, channels, gain, step);
  }
}

void clear(const AudioBuffer& buffer, std::size_t from) noexcept {
  std::memset(static_cast<std::byte*>(buffer.mData) + from, 0, buffer.mDataByteSize - from);
}

// The buffer that carries the tap's sound; null when it isn't there.
const AudioBuffer* tapBuffer(const RenderState& state, const AudioBufferList& input) noexcept {
  if (state.tapBufferIndex < 0 || state.tapBufferIndex >= static_cast<long>(input.mNumberBuffers)) return nullptr;
  const AudioBuffer& buffer = input.mBuffers[state.tapBufferIndex];
  return buffer.mData ? &buffer : nullptr;
}

}  // namespace

void render(RenderState& state, const AudioBufferList& input, AudioBufferList& output) noexcept {
  const float target = state.targetGain.load(std::memory_order_relaxed);
  const float delta = target - state.appliedGain;

  for (UInt32 index = 0; index < output.mNumberBuffers; ++index) {
    const AudioBuffer& out = output.mBuffers[index];
    if (!out.mData) continue;  // the stream is switched off
    const AudioBuffer* in = index == 0 ? tapBuffer(state, input) : nullptr;
    if (!in || out.mNumberChannels == 0) {
      clear(out, 0);
      continue;
    }
    // The tap has as many channels as the output: the router refused to start otherwise.
    const std::size_t frameSize = out.mNumberChannels * sizeof(float);
    const std::size_t frames = std::min(in->mDataByteSize, out.mDataByteSize) / frameSize;
    if (frames > 0) {
      scale(static_cast<const float*>(in->mData), static_cast<float*>(out.mData), frames, out.mNumberChannels,
            state.appliedGain, delta / static_cast<float>(frames));
    }
    if (in->mDataByteSize < out.mDataByteSize) clear(out, frames * frameSize);
  }
  state.appliedGain = target;
}
