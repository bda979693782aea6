// The router's init: it starts the daemon, and starts it again when it has ended.
#pragma once

#include "simulation/process.h"

namespace simulation {

/// For the history's own thread.
void sleepUntil(Time time);

Process& startDaemon(int printLevel);

class Init {
 public:
  explicit Init(int printLevel);
  /// From here on nobody starts the daemon again.
  void stop() { *goesOn_ = false; }

 private:
  std::shared_ptr<bool> goesOn_ = std::make_shared<bool>(true);
};

}  // namespace simulation
