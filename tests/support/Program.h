// Runs a test's own code as the program on the simulated Mac.
#pragma once

#include <functional>
#include <string>

#include "tests/support/Play.h"

// Sets the machine up by the lines of `scenario`, runs `body` on the program's main thread, and ends the program.
Played runAsProgram(const std::string& scenario, const std::function<void()>& body, std::uint64_t seed = 1);
