#include "effects/blocked_signals.h"

BlockedSignals::BlockedSignals() : before_() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before_);
}

BlockedSignals::~BlockedSignals() {
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}
