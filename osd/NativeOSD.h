// The system's own volume and brightness pop-up.
#pragma once

#include <objc/objc.h>

#include <cstdint>

#include "platform/Object.h"

// Drives the private on-screen-display framework, loaded at run time. Main thread only.
class NativeOSD {
 public:
  // Loads the framework and gets its shared manager; throws an AppError when either is not there, or does not know the
  // messages that it is sent.
  NativeOSD();

  // Shows the volume pop-up on the main display. Counts are in steps and must fit 32 unsigned bits.
  void showVolume(int filledSteps, int totalSteps, bool muted) const;
  // Shows the brightness pop-up on the display whose brightness changed.
  void showBrightness(int filledSteps, int totalSteps, std::uint32_t displayID) const;

 private:
  void showImage(std::int64_t image, std::uint32_t displayID, int filledSteps, int totalSteps) const;

  NS::Object manager_;
};
