// Counts what the C++ allocation functions hand out. Linked into executables of its own, since it replaces them.
#pragma once

#include <cstddef>

namespace heap {

// Bytes in use now, and the most that were in use at once since the last `resetPeak`.
std::size_t inUse();
std::size_t peak();
void resetPeak();

}  // namespace heap
