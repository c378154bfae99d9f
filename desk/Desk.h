// The seat in front of the simulated Mac: plays scenario files on it.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "simulator/kernel/Process.h"
#include "simulator/kernel/Schedule.h"

// The program as it is installed on the simulated Mac.
simulator::Program dalvaneProgram();

// Plays the files one after the other on one machine, in deterministic time, with the trace on `trace` and what cannot
// be understood on `errors`. The exit status of `dalvane-desk play`.
int play(const std::vector<std::string>& files, const simulator::Seed& seed, std::ostream& trace, std::ostream& errors);
