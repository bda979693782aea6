// The base class of the worker threads.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "support/cancellation.h"
#include "support/lock.h"

namespace ZEL {

/// A named worker thread that runs once: made, started, stopped.
///
/// One thread (the owner) makes, starts, stops and destroys it. A derived class calls `stop` in its own destructor,
/// since `run` may use its members until `stop` has returned.
class Thread {
 public:
  /// The second argument is part of the interface and has no meaning here: every thread can be stopped and waited for.
  Thread(std::string const& name, bool);
  virtual ~Thread();
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  /// Starts the thread. Where the system has none to give, an ERROR line says so and the object stays unstarted.
  virtual void start();

  /// Marks the thread cancelled and waits for `run` to return. Returns at once when it was never started.
  virtual void stop();

  /// The thread's body. It leaves soon after `isCanceled` has become true, and does not throw.
  virtual void run() = 0;

  /// For the body: sleeps, and wakes at once when the thread is cancelled.
  void sleep(unsigned int milliseconds);
  bool isCanceled() const { return cancellation_->isCanceled(); }
  const std::string& name() const { return name_; }

  /// For the body: takes the lock, unless the thread is cancelled first. True when the lock is held.
  bool lockUnlessCanceled(Lock& lock) TRY_ACQUIRE(true, lock);

 protected:
  /// For the body: the result of a call that may block for long, or nothing when the thread was cancelled first. The
  /// call is then abandoned: it runs on and its result is dropped, so it must own everything that it touches. Nothing,
  /// too, where the system has no thread for the call, which is then not made.
  template <class Result>
  std::optional<Result> callUnlessCanceled(std::size_t stackBytes, std::function<Result()> call) {
    auto result = std::make_shared<std::optional<Result>>();
    if (!cancellation_->runAside(stackBytes, [result, call = std::move(call)] { *result = call(); }))
      return std::nullopt;
    return std::move(*result);
  }

 private:
  std::string name_;
  std::shared_ptr<Cancellation> cancellation_;
  std::optional<pthread_t> handle_;
};

}  // namespace ZEL
