// What the functions in place of the C library's share.
#pragma once

#include <time.h>

#include "simulation/clock.h"

namespace simulation {

Time timeOf(const timespec& moment);

}  // namespace simulation
