// The program's image in the menu bar, drawn in code: the left half of a sun, for the brightness, joined to two waves
// of sound, for the volume.
#pragma once

#include "platform/Image.h"

namespace StatusIcon {

// 18 × 18 points, a template. Main thread only.
NS::Image make();

}  // namespace StatusIcon
