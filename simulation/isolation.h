// Histories in child processes of their own, which the address sanitizer or a signal may end.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "simulation/plan.h"

namespace simulation {

/// What many histories were, together.
struct Tally {
  std::uint64_t histories = 0;
  std::uint64_t seconds = 0;  ///< of virtual time
  std::uint64_t places = 0;
  std::uint64_t switches = 0;
  std::uint64_t runs = 0;
  std::uint64_t requests = 0;
  std::uint64_t overlaps = 0;
  std::uint64_t processes = 0;
  std::uint64_t digest = 0;  ///< of all of theirs
};

struct Failure {
  std::uint64_t seed = 0;
  std::string violation;
};

/// Performs the histories of the seeds from `first` on, `number` of them, until one fails or `isTime` says so. Adds to
/// the tally.
std::optional<Failure> performBatch(std::uint64_t first, std::uint64_t number, const std::function<bool()>& isTime,
                                    Tally& tally);

/// Prints the timeline of one history, as far as it goes.
void tellHistory(const Plan& plan);

/// The violation of one history, "" when there is none.
std::string violationOf(const Plan& plan);

}  // namespace simulation
