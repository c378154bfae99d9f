// The I/O Registry of a real Mac, as text: what `ioreg -l -w0` writes.
#pragma once

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "simulator/displays/Registry.h"

namespace simulator {

// The entries below the root, each with what could be read of its properties: one that is cut, empty or not to be made
// sense of is left out, as texts that people send are not always whole. An external AV service reaches the display of
// the framebuffer that comes before it. None when no line of the text is an entry's, or when they are nested deeper
// than any Mac has them.
std::optional<std::vector<std::shared_ptr<const RegistryEntry>>> readRegistryText(std::string_view text);

}  // namespace simulator
