// A software volume for an output device that has none of its own.
#pragma once

#include <CoreAudio/CoreAudio.h>

#include <functional>
#include <memory>
#include <optional>

#include "base/AppError.h"
#include "volume/AudioObjects.h"
#include "volume/Render.h"

// Taps what all other processes play to a device, mutes their direct path while it runs, and plays the tapped sound
// back to the same device, times a gain, through a private aggregate device.
//
// It is there to run from the moment it is made until it is stopped. Main thread only; the I/O thread shares nothing
// with it but the RenderState.
class AudioRouter {
 public:
  // What Core Audio may do to a router, called on the main queue unless it has been stopped. It is of no use any more.
  struct Events {
    std::function<void(const AppError& step)> startFailed;
    std::function<void()> stopped;  // by Core Audio, such as when the device takes another format
  };

  // Builds everything and has it started; `gain` (0 to 1) applies from the first sample. Throws an AppError that names
  // the step that failed, after removing what was already built. The start itself, which may last until something is
  // played, is not waited for.
  AudioRouter(AudioObjectID device, float gain, Events events);

  // Takes everything down in reverse order, as the end of the router does; failures are logged. May be called more than
  // once.
  void stop();
  [[nodiscard]] bool isStopped() const { return !events_; }

  // The gain wanted from now on, 0 to 1; it is reached within one I/O cycle, by a ramp.
  void setGain(float gain);

  // Whether the device is still as it was when the router was made: alive, with as many input streams and the same
  // format. If not, only a new router can be right. Asks the device each time.
  [[nodiscard]] bool fitsDevice() const;

 private:
  void start();
  void listenForStop(AudioObjectID aggregate);

  const AudioObjectID device_;
  AudioStreamBasicDescription format_{};  // of the device's output, when the router was made
  const std::shared_ptr<RenderState> state_;
  std::shared_ptr<const Events> events_;  // until it is stopped; what is on its way holds it weakly
  // In the order they are built; they go in the reverse order.
  std::optional<ProcessTap> tap_;
  std::optional<AggregateDevice> aggregate_;
  std::optional<PropertyListener> stopListener_;
  std::optional<IOProc> ioProc_;
};
