// The command `dalvane-desk campaign`: lives of a desk, from seeds, held against every invariant.
#pragma once

#include <cstdint>
#include <string>

#include "desk/campaign/Report.h"
#include "simulator/kernel/Process.h"

namespace campaign {

struct Options {
  std::uint64_t firstSeed = 1;
  std::uint64_t lastSeed = 1;
  std::uint64_t days = 1;
  unsigned jobs = 1;
  std::string folder = ".";  // where the scenario of a broken invariant is written
};

// Plays the life of each seed, each in a child process. Says on `out` what was played; at the first invariant that does
// not hold its name, the seed, the step, the shortest scenario that shows it and the trace around it, and writes that
// scenario to a file. The exit status: 0, 1 when an invariant did not hold, or 2 when a life cannot be played.
int run(const simulator::Program& program, const Options& options, const Streams& streams);

// Plays a scenario file as a campaign plays it. The exit status: 0, 1 when an invariant did not hold, or 2 for a file
// that cannot be read or understood, or has no line.
int replay(const simulator::Program& program, const std::string& file, std::uint64_t seed, const Streams& streams);

}  // namespace campaign
