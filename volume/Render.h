// What the I/O thread does with the sound: it copies it from the tap to the output with a gain.
#pragma once

#include <CoreAudio/CoreAudio.h>

#include <atomic>

// What the router and its I/O callback share. It is all that the I/O thread touches.
struct RenderState {
  RenderState(float gain, long tapBuffer) noexcept : targetGain(gain), tapBufferIndex(tapBuffer), appliedGain(gain) {}

  // The gain wanted now, 0 to 1. Written by the main thread and read once a cycle by the I/O thread. Nothing else hangs
  // on it, so no order is asked for: on the hardware it is a plain word.
  std::atomic<float> targetGain;
  static_assert(std::atomic<float>::is_always_lock_free);

  // Which input buffer carries the tap's sound: the last, behind those of the device's own input streams.
  const long tapBufferIndex;

  // The gain at the end of the last cycle. The I/O thread's own once it runs.
  float appliedGain;
};

// Renders one I/O cycle: the tap's buffer times the gain into the first output buffer, silence into the others. Samples
// are interleaved 32-bit floats. The gain moves to its target in equal steps, one a frame, and is there on the last
// frame. It is silent while the tap's buffer is not where it should be. Input and output must not overlap.
//
// For the I/O thread: no allocation, lock, log or system call.
void render(RenderState& state, const AudioBufferList& input, AudioBufferList& output) noexcept;
