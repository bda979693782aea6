// A failing history made shorter: as few events as still make it fail.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "simulation/plan.h"

namespace simulation {

/// What differs from the plan that the seed gives.
struct Shortened {
  Plan plan;
  std::vector<std::size_t> events;  ///< the numbers of those that are left
  std::string violation;
};

Shortened shortened(const Plan& plan, const std::string& violation);

/// The plan with these of its events only.
Plan withEvents(const Plan& plan, const std::vector<std::size_t>& events);

/// The options that have scripts/simulate perform it again.
std::string optionsOf(const Shortened& shortened);

}  // namespace simulation
