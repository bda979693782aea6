// What tests ask of locks.
#pragma once

#include <thread>

#include "support/lock.h"

/// Whether the lock can be had by a thread that does not hold it.
inline bool isFree(ZEL::Lock& lock) {
  bool taken = false;
  std::thread([&lock, &taken] {
    if (!lock.tryLock()) return;
    taken = true;
    lock.unlock();
  }).join();
  return taken;
}
