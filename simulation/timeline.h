// The tale of a history, and the digest by which two of them are compared.
#pragma once

#include <cstdint>
#include <string>

#include "simulation/clock.h"

namespace simulation {

class Timeline {
 public:
  /// With `prints` each line is printed when it comes, so that it is there if the simulator itself ends.
  explicit Timeline(bool prints) : prints_(prints) {}

  void note(Time time, const std::string& who, const std::string& what);

  std::uint64_t digest() const { return digest_; }

 private:
  bool prints_;
  std::uint64_t digest_ = 0xcbf29ce484222325U;
};

}  // namespace simulation
