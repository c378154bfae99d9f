// Every single failure: a day in which everything is done once, played again for each call of the platform that it
// makes, with that call failing.
#pragma once

#include <string>

#include "desk/campaign/Report.h"

namespace campaign {

struct FailureOptions {
  bool isShort = false;      // only the first call of each name, and no pairs
  unsigned jobs = 1;         // processes
  std::string folder = ".";  // where the scenario of a broken invariant is written
};

// Plays the day once for each call that it makes, by name and occurrence, with that one failing; then for each pair of
// those that the installer makes, and of those that the router makes. Says on `out` how many those were, and of each
// that breaks an invariant the calls and what a campaign says. The exit status: 0, 1 when an invariant did not hold, or
// 2 when the day cannot be played.
int failures(const simulator::Program& program, const FailureOptions& options, const Streams& streams);

}  // namespace campaign
