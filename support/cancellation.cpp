#include "support/cancellation.h"

#include <utility>

#include "support/log_tag.h"
#include "support/logger.h"
#include "support/native_thread.h"

namespace ZEL {
namespace {

std::atomic<int> underWay{0};

}  // namespace

void Cancellation::cancel() {
  {
    const LockGuard guard(lock_);
    canceled_ = true;
  }
  changed_.wakeAll();
}

void Cancellation::sleep(std::chrono::milliseconds time) {
  const auto deadline = WaitQueue::Clock::now() + time;
  const LockGuard guard(lock_);
  while (!canceled_ && WaitQueue::Clock::now() < deadline) changed_.waitUntil(lock_, deadline);
}

bool Cancellation::runAside(std::size_t stackBytes, std::function<void()> call) {
  auto ended = std::make_shared<bool>(false);  // guarded by lock_
  auto body = [self = shared_from_this(), ended, call = std::move(call)] {
    call();
    {
      const LockGuard guard(self->lock_);
      *ended = true;
    }
    self->changed_.wakeAll();
    --underWay;
  };
  ++underWay;
  if (!spawnThread(stackBytes, std::move(body), nullptr)) {
    --underWay;
    ZEL_LOG(ERROR, "[%s] unable to start a thread for a call", kLogTag);
    return false;
  }
  const LockGuard guard(lock_);
  while (!canceled_ && !*ended) changed_.wait(lock_);
  return *ended;
}

int Cancellation::callsUnderWay() {
  return underWay;
}

}  // namespace ZEL
