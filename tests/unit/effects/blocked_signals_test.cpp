#include "effects/blocked_signals.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>

#include "tests/unit/harness/child_process.h"
#include "tests/unit/harness/signal_masks.h"

namespace {

TEST(BlockedSignals, blocksAllForItsScopeAndNestsWithOthers) {
  const sigset_t before = currentMask();
  {
    const BlockedSignals outer;
    EXPECT_EQ(firstUnblocked(currentMask()), 0);
    { const BlockedSignals inner; }
    EXPECT_EQ(firstUnblocked(currentMask()), 0);
  }
  EXPECT_TRUE(sameMasks(currentMask(), before));
}

TEST(BlockedSignals, delaysWhatComesMeanwhile) {
  checkInChild([] {
    static std::atomic<int> handled{0};
    signal(SIGHUP, [](int) { ++handled; });
    {
      const BlockedSignals blocked;
      raise(SIGHUP);
      EXPECT_EQ(handled, 0);
    }
    EXPECT_EQ(handled, 1);
  });
}

}  // namespace
