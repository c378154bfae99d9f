// A software volume for an output device that has none of its own.
#pragma once

#include <CoreAudio/CoreAudio.h>

#include <memory>
#include <optional>

#include "volume/AudioObjects.h"
#include "volume/Render.h"

// Taps what all other processes play to a device, mutes their direct path while it runs, and plays the tapped sound
// back to the same device, times a gain, through a private aggregate device.
//
// It runs from the moment it is made until it is stopped. Main thread only; the I/O thread shares nothing with it but
// the RenderState.
class AudioRouter {
 public:
  // Builds and starts everything; `gain` (0 to 1) applies from the first sample. Throws an AppError that names the step
  // that failed, after removing what was already built.
  AudioRouter(AudioObjectID device, float gain);

  // Takes everything down in reverse order; failures are logged. May be called more than once.
  void stop();

  // The gain wanted from now on, 0 to 1; it is reached within one I/O cycle, by a ramp.
  void setGain(float gain);

  // Whether the device is still as it was when the router was made: alive, with as many input streams and the same
  // format. If not, only a new router can be right. Asks the device each time.
  [[nodiscard]] bool fitsDevice() const;

 private:
  void start();

  const AudioObjectID device_;
  AudioStreamBasicDescription format_{};  // of the device's output, when the router was made
  const std::shared_ptr<RenderState> state_;
  // In the order they are built; they go in the reverse order.
  std::optional<ProcessTap> tap_;
  std::optional<AggregateDevice> aggregate_;
  std::optional<IOProc> ioProc_;
};
