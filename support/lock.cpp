#include "support/lock.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <system_error>

namespace ZEL {
namespace {

using Clock = std::chrono::steady_clock;

/// The opposite of a LockGuard: the lock is free while the scope lasts.
class Unlocked {
 public:
  explicit Unlocked(Lock& lock) NO_THREAD_SAFETY_ANALYSIS : lock_(lock) { lock_.unlock(); }
  ~Unlocked() NO_THREAD_SAFETY_ANALYSIS { lock_.lock(); }
  Unlocked(const Unlocked&) = delete;
  Unlocked& operator=(const Unlocked&) = delete;

 private:
  Lock& lock_;
};

/// Waits until the descriptor can be read or the deadline has come; a signal handler that returns does not end the
/// wait.
void pollUntil(int descriptor, Clock::time_point deadline) {
  pollfd entry{descriptor, POLLIN, 0};
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (poll(&entry, 1, static_cast<int>(std::clamp<decltype(left)>(left, 0, INT32_MAX))) >= 0) return;
    if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "poll");
  }
}

/// One that is no standard stream, also where a process that was started without these makes it first of all.
int eventDescriptor() {
  int descriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (descriptor >= 0 && descriptor <= STDERR_FILENO) {
    const int higher = fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    close(descriptor);
    descriptor = higher;
  }
  if (descriptor < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
  return descriptor;
}

}  // namespace

Condition* Lock::createCondition() {
  return new Condition(*this);
}

void WaitQueue::wait(Lock& lock) {
  std::unique_lock<std::mutex> held(lock.mutex_, std::adopt_lock);
  condition_.wait(held);
  held.release();
}

void WaitQueue::waitUntil(Lock& lock, Clock::time_point deadline) {
  std::unique_lock<std::mutex> held(lock.mutex_, std::adopt_lock);
  condition_.wait_until(held, deadline);
  held.release();
}

Condition::Condition(Lock& lock) : lock_(lock), descriptor_(eventDescriptor()) {}

Condition::~Condition() {
  close(descriptor_);
}

void Condition::wait(unsigned int milliseconds) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
  const Unlocked unlocked(lock_);
  pollUntil(descriptor_, deadline);
  // Reading sets the counter back to zero; that nothing was signalled (EAGAIN) is the time-out.
  std::uint64_t signals = 0;
  [[maybe_unused]] const ssize_t size = read(descriptor_, &signals, sizeof signals);
}

void Condition::signal() {
  // The write fails only when the counter is full, and then the wait ends anyway.
  const int savedErrno = errno;
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t size = write(descriptor_, &one, sizeof one);
  errno = savedErrno;
}

}  // namespace ZEL
