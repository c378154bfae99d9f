// Finds the shortest scenario that still shows what a long one showed.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace campaign {

using Lines = std::vector<std::string>;

// Whether those lines still show it.
using Shows = std::function<bool(const Lines&)>;

// Lines of which none can be left out (delta debugging: Zeller and Hildebrandt, "Simplifying and Isolating
// Failure-Inducing Input", 2002). `lines` must show it. What lies far back is tried to be left out first: `first` lines
// set the desk up and are kept while that is tried.
Lines shrink(Lines lines, std::size_t first, const Shows& shows);

}  // namespace campaign
