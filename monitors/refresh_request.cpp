#include "monitors/refresh_request.h"

std::shared_ptr<ZEL::Lock> refreshLock = std::make_shared<ZEL::Lock>();
std::shared_ptr<ZEL::Condition> refreshCondition(refreshLock->createCondition());
std::atomic<int> refreshPending{0};

namespace {

/// Monitors that wait for the lock.
std::atomic<int> waiting{0};

}  // namespace

void requestRefresh(ZEL::Thread& monitor, ZEL::Lock& lock, ZEL::Condition& condition) {
  ++waiting;
  if (monitor.lockUnlessCanceled(lock)) {
    refreshPending = 1;
    condition.signal();
    lock.unlock();
  }
  --waiting;
}

bool isRefreshWanted() {
  return refreshPending != 0 || waiting != 0;
}
