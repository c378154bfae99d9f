// Which formats of sound a router passes on.
//
// Pure functions of their arguments; usable from any thread.
#pragma once

#include <CoreAudio/CoreAudio.h>

// Whether sound goes from one to the other as it is: nothing is converted, so both must be interleaved 32-bit floats,
// in the same number of channels and at the same rate.
[[nodiscard]] bool isCompatible(const AudioStreamBasicDescription& tap, const AudioStreamBasicDescription& output);

// Throws an AppError with both formats in full when they are not.
void requireCompatible(const AudioStreamBasicDescription& tap, const AudioStreamBasicDescription& output);
