// Plays a scenario under every schedule within reach.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

#include "simulator/kernel/Process.h"

// Plays the files as `program` on a machine of its own for each schedule: the plain one, in which a thread runs until
// it blocks, and every one that departs from it in up to `preemptions` choices (another thread goes on, or another of
// the things that may come in any order comes first). Says on `out` how many there were and how to play one again that
// ended with a `fatal` or `leak` record; progress goes to `progress`, unless that is null. The exit status of
// `dalvane-desk explore`: 0, 1 when a schedule failed, 2 for a scenario that cannot be understood. Each schedule is
// played in a child process, so it does not matter how the program fails.
int explore(const simulator::Program& program, const std::vector<std::string>& files, std::size_t preemptions,
            std::ostream& out, std::ostream& errors, std::ostream* progress);
