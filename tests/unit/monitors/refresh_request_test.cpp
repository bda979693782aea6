#include "monitors/refresh_request.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <thread>

#include "tests/unit/harness/waiting.h"

namespace {

class Requester : public ZEL::Thread {
 public:
  Requester(ZEL::Lock& lock, ZEL::Condition& condition)
      : Thread("REQUESTER", true), lock_(lock), condition_(condition) {}
  ~Requester() override { stop(); }

  void run() override {
    begun_.set_value();
    requestRefresh(*this, lock_, condition_);
    requested_.set_value();
  }
  void waitUntilBegun() { begun_.get_future().wait(); }
  void waitUntilRequested() { requested_.get_future().wait(); }

 private:
  ZEL::Lock& lock_;
  ZEL::Condition& condition_;
  std::promise<void> begun_;
  std::promise<void> requested_;
};

class RefreshRequest : public testing::Test {
 protected:
  RefreshRequest() { refreshPending = 0; }
  ~RefreshRequest() override { refreshPending = 0; }

  ZEL::Lock lock_;
  const std::unique_ptr<ZEL::Condition> condition_{lock_.createCondition()};
};

TEST(RefreshState, isThereBeforeEntry) {
  ASSERT_NE(refreshLock, nullptr);
  ASSERT_NE(refreshCondition, nullptr);
  EXPECT_EQ(refreshPending, 0);
}

TEST(RefreshState, bindsTheConditionToTheLock) {
  std::atomic<bool> waiting{false};
  std::thread other([&waiting] {
    while (!waiting) std::this_thread::yield();
    refreshLock->lock();  // `waiting` was set with the lock held, so only the wait can have given it away
    refreshCondition->signal();
    refreshLock->unlock();
  });
  {
    const ZEL::LockGuard guard(*refreshLock);
    waiting = true;
    EXPECT_LT(timeOf([] { refreshCondition->wait(kTooLong); }), kDeadline);
  }
  other.join();
}

TEST_F(RefreshRequest, setsTheFlagAndSignals) {
  Requester requester(lock_, *condition_);
  requester.start();
  requester.waitUntilRequested();
  EXPECT_EQ(refreshPending, 1);
  const ZEL::LockGuard guard(lock_);
  EXPECT_LT(timeOf([this] { condition_->wait(kTooLong); }), kDeadline);
}

TEST_F(RefreshRequest, foldsIntoOneThatIsPending) {
  for (int i = 0; i < 2; ++i) {
    Requester requester(lock_, *condition_);
    requester.start();
    requester.waitUntilRequested();
  }
  EXPECT_EQ(refreshPending, 1);
}

TEST_F(RefreshRequest, waitsForTheRunThatHoldsTheLock) {
  Requester requester(lock_, *condition_);
  {
    const ZEL::LockGuard run(lock_);
    requester.start();
    requester.waitUntilBegun();
    EXPECT_EQ(refreshPending, 0);
  }
  requester.waitUntilRequested();
  EXPECT_EQ(refreshPending, 1);
}

TEST_F(RefreshRequest, isKnownToBeWantedAsLongAsAMonitorWaitsForTheLock) {
  EXPECT_FALSE(isRefreshWanted());
  Requester requester(lock_, *condition_);
  {
    const ZEL::LockGuard pass(lock_);
    requester.start();
    EXPECT_TRUE(eventually([] { return isRefreshWanted(); }));
    EXPECT_EQ(refreshPending, 0);
  }
  requester.waitUntilRequested();
  EXPECT_TRUE(isRefreshWanted()) << "the flag tells it from now on";
  refreshPending = 0;
  EXPECT_FALSE(isRefreshWanted());
}

TEST_F(RefreshRequest, isWantedNoMoreWhenTheMonitorIsStopped) {
  Requester requester(lock_, *condition_);
  const ZEL::LockGuard run(lock_);
  requester.start();
  EXPECT_TRUE(eventually([] { return isRefreshWanted(); }));
  requester.stop();
  EXPECT_FALSE(isRefreshWanted());
}

TEST_F(RefreshRequest, isGivenUpByAMonitorThatTheRunStops) {
  Requester requester(lock_, *condition_);
  const ZEL::LockGuard run(lock_);
  requester.start();
  requester.waitUntilBegun();
  EXPECT_LT(timeOf([&requester] { requester.stop(); }), kDeadline);
  EXPECT_EQ(refreshPending, 0);
  EXPECT_GE(timeOf([this] { condition_->wait(50); }), std::chrono::milliseconds(50)) << "signalled all the same";
}

}  // namespace
