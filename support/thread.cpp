#include "support/thread.h"

#include <sys/prctl.h>

#include <chrono>

#include "support/log_tag.h"
#include "support/logger.h"
#include "support/native_thread.h"

namespace ZEL {
namespace {

/// How long a thread that found a lock taken waits before it looks again.
constexpr unsigned int kLockRetryMilliseconds = 20;

}  // namespace

Thread::Thread(std::string const& name, bool) : name_(name), cancellation_(std::make_shared<Cancellation>()) {}

// By now the derived part is gone, and with it `run`: a thread that still ran would call into nothing. A derived class
// that did not stop itself is a defect that no waiting here could mend.
Thread::~Thread() = default;

void Thread::start() {
  if (handle_ || isCanceled()) return;
  pthread_t handle{};
  const auto body = [this] {
    prctl(PR_SET_NAME, name_.c_str());  // what ps(1) shows; the kernel keeps the first 15 bytes
    run();
  };
  if (spawnThread(kThreadStackBytes, body, &handle)) {
    handle_ = handle;
  } else {
    ZEL_LOG(ERROR, "[%s] unable to start the thread %s", kLogTag, name_.c_str());
  }
}

void Thread::stop() {
  cancellation_->cancel();
  if (!handle_) return;
  pthread_join(*handle_, nullptr);
  handle_.reset();
}

void Thread::sleep(unsigned int milliseconds) {
  cancellation_->sleep(std::chrono::milliseconds(milliseconds));
}

// Looking again and again is cheap here, as the lock is rarely taken for long, and it keeps stopping simple: the sleep
// ends with the cancellation, where a thread that waits inside the lock would have to be found there first.
bool Thread::lockUnlessCanceled(Lock& lock) {
  while (!isCanceled()) {
    if (lock.tryLock()) return true;
    sleep(kLockRetryMilliseconds);
  }
  return false;
}

}  // namespace ZEL
