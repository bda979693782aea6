// The mutex of the program, and the two ways to wait that go with it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "support/thread_annotations.h"

namespace ZEL {

class Condition;

/// A mutex. It is not recursive: whoever holds it must not lock it again. Any thread may lock it; the thread that
/// locked it unlocks it.
class CAPABILITY("mutex") Lock {
 public:
  Lock() = default;
  ~Lock() = default;
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  void lock() ACQUIRE() { mutex_.lock(); }
  void unlock() RELEASE() { mutex_.unlock(); }

  /// Takes the lock if it is free; never waits. True when it was taken.
  bool tryLock() TRY_ACQUIRE(true) { return mutex_.try_lock(); }

  /// A new condition bound to this lock; the caller owns it and keeps the lock alive as long as it. Throws
  /// std::system_error when the process has no descriptor left.
  Condition* createCondition();

 private:
  friend class WaitQueue;
  std::mutex mutex_;
};

/// Holds a Lock for as long as a scope lasts.
class SCOPED_CAPABILITY LockGuard {
 public:
  explicit LockGuard(Lock& lock) ACQUIRE(lock) : lock_(lock) { lock_.lock(); }
  ~LockGuard() RELEASE() { lock_.unlock(); }
  LockGuard(const LockGuard&) = delete;
  LockGuard& operator=(const LockGuard&) = delete;

 private:
  Lock& lock_;
};

/// What a thread waits on until another *thread* changes what the lock guards. It is cheap (no descriptor), and it is
/// not for signal handlers: those signal a Condition.
class WaitQueue {
 public:
  using Clock = std::chrono::steady_clock;

  /// Both release the lock while they wait and hold it again on return, and both may wake for no reason.
  void wait(Lock& lock) REQUIRES(lock);
  void waitUntil(Lock& lock, Clock::time_point deadline) REQUIRES(lock);
  void wakeAll() { condition_.notify_all(); }

 private:
  std::condition_variable condition_;
};

/// A condition that a signal handler may signal: one descriptor (eventfd(2)) that `signal` writes and `wait` polls.
///
/// A signal that comes while nobody waits is remembered, and ends the next wait at once; several of them count as one.
/// One thread waits; any thread and any signal handler may signal.
class Condition {
 public:
  explicit Condition(Lock& lock);
  ~Condition();
  Condition(const Condition&) = delete;
  Condition& operator=(const Condition&) = delete;

  /// Called with the bound lock held: releases it, waits until signalled or until the time has passed on the monotonic
  /// clock, and holds it again on return, also when it throws (std::system_error, from poll(2)).
  void wait(unsigned int milliseconds);

  /// Async-signal-safe, never blocks, keeps errno.
  void signal();

 private:
  Lock& lock_;
  int descriptor_;
};

}  // namespace ZEL
