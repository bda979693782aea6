#include "monitors/refresh_request.h"

std::shared_ptr<ZEL::Lock> refreshLock = std::make_shared<ZEL::Lock>();
std::shared_ptr<ZEL::Condition> refreshCondition(refreshLock->createCondition());
std::atomic<int> refreshPending{0};

void requestRefresh(ZEL::Thread& monitor, ZEL::Lock& lock, ZEL::Condition& condition) {
  if (!monitor.lockUnlessCanceled(lock)) return;
  refreshPending = 1;
  condition.signal();
  lock.unlock();
}
