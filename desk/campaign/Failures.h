// Every single failure: a day in which everything is done once, played again for each call of the platform that it
// makes, with that call failing.
#pragma once

#include "desk/campaign/Campaign.h"

namespace campaign {

// Plays the day once for each call that it makes, by name and occurrence, with that one failing; then for each pair of
// those that the installer makes, and of those that the router makes. With `isShort` only the first call of each name,
// and no pairs. The exit status: 0, or 1 when an invariant did not hold.
int failures(const simulator::Program& program, bool isShort, unsigned jobs, const Streams& streams);

}  // namespace campaign
