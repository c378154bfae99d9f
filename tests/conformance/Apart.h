// Trying a claim in a process of its own, so that one that crashes or goes on for ever takes no other with it.
#pragma once

#include <string>

#include "tests/conformance/Report.h"

namespace claims {

// Starts this program again for the claim alone (`--alone`), and tells what came of it. One that ends without telling
// has failed, and so has one that needs nobody and is not done after so many seconds. A claim of the desk has the
// terminal, and all the time that the person takes.
Result tryApart(const Claim& claim, const std::string& program, double patience);

// What the process of a claim leaves for the one that started it.
std::string written(const Result& result);
// The same read; failed where it is nothing of the kind.
Result parseResult(const std::string& text);

}  // namespace claims
