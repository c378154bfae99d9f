// The guided tour: everything that Dalvane does, on the simulated Mac, told to a newcomer.
#pragma once

#include <ostream>

// Writes the tour to `out`; with `trace` the raw records as well. The exit status of `dalvane-desk tour`.
int tour(std::ostream& out, bool trace);
