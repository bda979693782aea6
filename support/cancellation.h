// How a thread is asked to leave, and how everything that it waits for ends when it is.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>

#include "support/lock.h"

namespace ZEL {

/// One thread's request to leave. Any thread may cancel and ask; the waits are for the thread that is to leave.
///
/// It is always held by a shared pointer, since a call that was abandoned still reports its end here when the thread
/// that made it is long gone.
class Cancellation : public std::enable_shared_from_this<Cancellation> {
 public:
  /// Final: nothing takes it back. Ends the wait that goes on, and every later one at once.
  void cancel();
  bool isCanceled() const { return canceled_; }

  /// Returns when the time has passed on the monotonic clock, or when cancelled.
  void sleep(std::chrono::milliseconds time);

  /// Runs `call` on a thread of its own and returns true when it has ended. When cancelled first it returns false at
  /// once and leaves the call to itself, so whatever `call` touches must be its own or shared with it. `call` must not
  /// throw. False, too, with an ERROR line, where the system has no thread to give; the call is then not made.
  bool runAside(std::size_t stackBytes, std::function<void()> call);

  /// How many calls of the process have not ended, those that were abandoned included.
  static int callsUnderWay();

 private:
  std::atomic<bool> canceled_{false};
  Lock lock_;
  WaitQueue changed_;
};

}  // namespace ZEL
