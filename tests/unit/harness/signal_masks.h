// Masks of signals, compared.
#pragma once

#include <signal.h>

/// The calling thread's.
inline sigset_t currentMask() {
  sigset_t mask{};
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  return mask;
}

/// The first signal that the mask lets through although it can be blocked, or 0.
inline int firstUnblocked(const sigset_t& mask) {
  sigset_t all{};
  sigfillset(&all);
  for (int number = 1; number <= SIGRTMAX; ++number) {
    const bool blockable = number != SIGKILL && number != SIGSTOP && sigismember(&all, number) == 1;
    if (blockable && sigismember(&mask, number) != 1) return number;
  }
  return 0;
}

inline bool sameMasks(const sigset_t& left, const sigset_t& right) {
  for (int number = 1; number <= SIGRTMAX; ++number) {
    if (sigismember(&left, number) != sigismember(&right, number)) return false;
  }
  return true;
}
