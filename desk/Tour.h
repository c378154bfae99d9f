// The guided tour: everything that Dalvane does, on the simulated Mac, told to a newcomer.
#pragma once

#include <ostream>
#include <string>

struct TourOptions {
  bool trace = false;    // the raw records as well
  std::string waveFile;  // where to write what the speaker plays; empty: nowhere
};

// Writes the tour to `out`. The exit status of `dalvane-desk tour`. Throws std::runtime_error when the wave file cannot
// be written.
int tour(std::ostream& out, const TourOptions& options);
