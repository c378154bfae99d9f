// The application's icon: the program's drawing for the menu bar, in white on a dark plate, in a file of every size
// that the Finder and the System Settings show.
#pragma once

#include <string>

#include "simulator/drawing/Picture.h"

// `glyph` on the plate. Its size is 1024 × 1024 points: one for each pixel of the largest size.
[[nodiscard]] drawing::Picture makeAppIcon(const drawing::Picture& glyph);

// What the program shows in the menu bar of a simulated Mac. Throws std::runtime_error when it shows nothing.
[[nodiscard]] drawing::Picture drawnByTheProgram();

// The content of an .icns file with `icon` in 16, 32, 128, 256 and 512 points, each for one and for two pixels a point.
// Throws std::runtime_error when a picture cannot be made.
[[nodiscard]] std::string makeIconFile(const drawing::Picture& icon);
