// A history: a plan is carried out, then all is healed, and what must hold in the end is looked at.
#pragma once

#include <cstdint>
#include <string>

#include "simulation/plan.h"

namespace simulation {

struct Outcome {
  std::string violation{};  ///< "" when everything held
  std::uint64_t digest = 0;
  Time time = 0;
  std::uint64_t places = 0;
  std::uint64_t switches = 0;
  std::uint64_t runs = 0;
  std::uint64_t requests = 0;
  std::uint64_t overlaps = 0;
  std::size_t processes = 0;
};

/// Whether each line of the timeline is printed, or only its digest kept.
enum class Telling { kDigest, kAtOnce };

Outcome performHistory(const Plan& plan, Telling telling);

}  // namespace simulation
