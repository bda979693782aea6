// What a daemon has made of its router.
#pragma once

#include <map>
#include <string>

#include "simulation/process.h"

namespace simulation {

/// What there is, in words, by its name.
using Snapshot = std::map<std::string, std::string>;

Snapshot snapshotOf(const Process& daemon);

/// The first thing that is there in one only, or differs; "" when there is none.
std::string differenceBetween(const Snapshot& is, const Snapshot& ought);

}  // namespace simulation
