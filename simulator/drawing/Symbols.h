// Drawings that stand in for the system's symbols; those of the Mac are Apple's. Knows nothing of the machine.
#pragma once

#include <string_view>

#include "simulator/drawing/Picture.h"

namespace drawing {

// The symbol in the size of the system font, as large as its own drawing; null for a name that there is no drawing for.
const Picture* symbolNamed(std::string_view name);

}  // namespace drawing
