// A time without signals.
#pragma once

#include <signal.h>

/// Blocks every signal for the calling thread while the scope lasts, then puts the old mask back.
class BlockedSignals {
 public:
  BlockedSignals();
  ~BlockedSignals();
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;

 private:
  sigset_t before_;
};
