// Chance, as far as a seed decides it.
#pragma once

#include <cstdint>

namespace simulation {

/// The generator splitmix64: the same numbers everywhere for the same seed.
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}

  std::uint64_t next() {
    std::uint64_t mixed = state_ += 0x9e3779b97f4a7c15U;
    mixed = (mixed ^ (mixed >> 30U)) * 0xbf58476d1ce4e5b9U;
    mixed = (mixed ^ (mixed >> 27U)) * 0x94d049bb133111ebU;
    return mixed ^ (mixed >> 31U);
  }

  /// Below the limit, which is above 0.
  std::uint64_t below(std::uint64_t limit) { return next() % limit; }

  /// From the first to the last, both included.
  std::int64_t between(std::int64_t first, std::int64_t last) {
    return first + static_cast<std::int64_t>(below(static_cast<std::uint64_t>(last - first + 1)));
  }

  bool chance(unsigned int percent) { return below(100) < percent; }

 private:
  std::uint64_t state_;
};

}  // namespace simulation
