// Masks of signals, compared.
#pragma once

#include <signal.h>

/// The calling thread's.
inline sigset_t currentMask() {
  sigset_t mask{};
  pthread_sigmask(SIG_SETMASK, nullptr, &mask);
  return mask;
}

/// Every signal that the system lets a thread block. SIGKILL is not among them, nor are those that the C library keeps
/// for itself, nor, under an emulator of another processor, those that it keeps.
inline sigset_t blockableSignals() {
  sigset_t all{};
  sigset_t before{};
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  const sigset_t blocked = currentMask();
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return blocked;
}

/// The first signal that the mask lets through although it can be blocked, or 0.
inline int firstUnblocked(const sigset_t& mask) {
  const sigset_t blockable = blockableSignals();
  for (int number = 1; number <= SIGRTMAX; ++number) {
    if (sigismember(&blockable, number) == 1 && sigismember(&mask, number) != 1) return number;
  }
  return 0;
}

inline bool sameMasks(const sigset_t& left, const sigset_t& right) {
  for (int number = 1; number <= SIGRTMAX; ++number) {
    if (sigismember(&left, number) != sigismember(&right, number)) return false;
  }
  return true;
}
