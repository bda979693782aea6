#include "monitors/wan_monitor.h"

#include <gtest/gtest.h>

#include <memory>

#include "monitors/refresh_request.h"
#include "tests/unit/harness/threads.h"
#include "tests/unit/harness/waiting.h"

namespace {

bool monitorSleeps() {
  return eventually([] { return threadSleeps("WAN_MONITOR"); });
}

TEST(WanMonitor, hasAName) {
  const WanMonitor monitor(refreshLock, refreshCondition, "198.51.100.2");
  EXPECT_EQ(monitor.name(), "WAN_MONITOR");
}

TEST(WanMonitor, keepsItsHandlesAsLongAsItLives) {
  const auto lock = std::make_shared<ZEL::Lock>();
  const std::shared_ptr<ZEL::Condition> condition(lock->createCondition());
  {
    const WanMonitor monitor(lock, condition, "");
    EXPECT_EQ(lock.use_count(), 2);
    EXPECT_EQ(condition.use_count(), 2);
  }
  EXPECT_EQ(lock.use_count(), 1);
  EXPECT_EQ(condition.use_count(), 1);
}

TEST(WanMonitor, stopsInsideItsSleepEvenByTheOneWhoHoldsTheLock) {
  const ZEL::LockGuard run(*refreshLock);
  WanMonitor monitor(refreshLock, refreshCondition, "");
  monitor.start();
  ASSERT_TRUE(monitorSleeps());
  // The sleep alone takes thirty seconds.
  EXPECT_LT(timeOf([&monitor] { monitor.stop(); }), std::chrono::seconds(20));
  EXPECT_EQ(refreshPending, 0);
}

TEST(WanMonitor, stopsItselfBeforeItIsGone) {
  auto monitor = std::make_unique<WanMonitor>(refreshLock, refreshCondition, "");
  monitor->start();
  ASSERT_TRUE(monitorSleeps());
  EXPECT_LT(timeOf([&monitor] { monitor.reset(); }), std::chrono::seconds(20));
}

}  // namespace
