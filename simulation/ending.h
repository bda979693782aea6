// What must hold in the end: the faults are healed, one refresh is made, and the router is to be what a run on a fresh
// one would have made of it.
#pragma once

#include "simulation/plan.h"

namespace simulation {

/// Heals, refreshes, compares, and ends the daemon. What does not hold ends the history.
void bringToItsEnd(const Plan& plan);

}  // namespace simulation
