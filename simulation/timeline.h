// The tale of a history, and the digest by which two of them are compared.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "simulation/clock.h"

namespace simulation {

class Timeline {
 public:
  /// Without `keeps` there is only the digest.
  explicit Timeline(bool keeps) : keeps_(keeps) {}

  void note(Time time, const std::string& who, const std::string& what);

  /// Prints each line when it comes, so that it is there if the simulator itself ends.
  void printAtOnce() { printsAtOnce_ = true; }

  const std::vector<std::string>& lines() const { return lines_; }
  std::uint64_t digest() const { return digest_; }

 private:
  bool keeps_;
  bool printsAtOnce_ = false;
  std::vector<std::string> lines_;
  std::uint64_t digest_ = 0xcbf29ce484222325U;
};

}  // namespace simulation
