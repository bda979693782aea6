#include "support/cancellation.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <memory>
#include <thread>

#include "support/native_thread.h"
#include "tests/unit/harness/captured_log.h"
#include "tests/unit/harness/threads.h"
#include "tests/unit/harness/waiting.h"

namespace {

using std::chrono::milliseconds;
using ZEL::Cancellation;
using ZEL::kThreadStackBytes;

/// More than any address space has, so that no thread can be had.

class CancellationTest : public testing::Test {
 protected:
  ~CancellationTest() override {
    EXPECT_TRUE(eventually([] { return Cancellation::callsUnderWay() == 0; }));
  }

  const std::shared_ptr<Cancellation> cancellation_ = std::make_shared<Cancellation>();
};

TEST_F(CancellationTest, isFinal) {
  EXPECT_FALSE(cancellation_->isCanceled());
  cancellation_->cancel();
  EXPECT_TRUE(cancellation_->isCanceled());
  cancellation_->cancel();
  EXPECT_TRUE(cancellation_->isCanceled());
}

TEST_F(CancellationTest, sleepsTheWholeTime) {
  for (const int time : {0, 1, 100}) {
    const milliseconds spent = timeOf([this, time] { cancellation_->sleep(milliseconds(time)); });
    EXPECT_GE(spent, milliseconds(time));
    EXPECT_LT(spent, kDeadline);
  }
}

TEST_F(CancellationTest, endsTheSleepThatGoesOn) {
  std::promise<void> begun;
  std::thread sleeper([this, &begun] {
    begun.set_value();
    cancellation_->sleep(milliseconds(kTooLong));
  });
  begun.get_future().wait();
  EXPECT_LT(timeOf([this, &sleeper] {
              cancellation_->cancel();
              sleeper.join();
            }),
            kDeadline);
}

TEST_F(CancellationTest, endsEveryLaterSleepAtOnce) {
  cancellation_->cancel();
  EXPECT_LT(timeOf([this] { cancellation_->sleep(milliseconds(kTooLong)); }), kDeadline);
}

TEST_F(CancellationTest, endsTheSleepsOfManyThreads) {
  std::vector<std::thread> sleepers;
  for (int i = 0; i < 20; ++i) sleepers.emplace_back([this] { cancellation_->sleep(milliseconds(kTooLong)); });
  EXPECT_LT(timeOf([this, &sleepers] {
              cancellation_->cancel();
              for (std::thread& sleeper : sleepers) sleeper.join();
            }),
            kDeadline);
}

TEST_F(CancellationTest, runsACallOnAThreadOfItsOwn) {
  std::thread::id caller;
  EXPECT_TRUE(cancellation_->runAside(kThreadStackBytes, [&caller] { caller = std::this_thread::get_id(); }));
  EXPECT_NE(caller, std::thread::id());
  EXPECT_NE(caller, std::this_thread::get_id());
}

TEST_F(CancellationTest, runsOneCallAfterTheOther) {
  int calls = 0;
  for (int i = 0; i < 100; ++i) EXPECT_TRUE(cancellation_->runAside(kThreadStackBytes, [&calls] { ++calls; }));
  EXPECT_EQ(calls, 100);
}

TEST_F(CancellationTest, countsTheCallThatIsUnderWay) {
  int underWay = 0;
  EXPECT_TRUE(cancellation_->runAside(kThreadStackBytes, [&underWay] { underWay = Cancellation::callsUnderWay(); }));
  EXPECT_EQ(underWay, 1);
}

/// A call that blocks until it is let go, and what it leaves behind then. All of it is shared, as an abandoned call's
/// must be.
struct BlockedCall {
  std::promise<void> begun;
  std::promise<void> letGo;
  std::promise<int> answer;

  static std::function<void()> of(const std::shared_ptr<BlockedCall>& call) {
    return [call] {
      call->begun.set_value();
      call->letGo.get_future().wait();
      call->answer.set_value(42);
    };
  }
};

TEST_F(CancellationTest, abandonsACallThatBlocks) {
  const auto call = std::make_shared<BlockedCall>();
  std::thread canceler([this, &call] {
    call->begun.get_future().wait();
    cancellation_->cancel();
  });
  EXPECT_FALSE(cancellation_->runAside(kThreadStackBytes, BlockedCall::of(call)));
  canceler.join();
  EXPECT_EQ(Cancellation::callsUnderWay(), 1);
  call->letGo.set_value();
  EXPECT_EQ(call->answer.get_future().get(), 42) << "an abandoned call runs to its end";
}

TEST(CancellationLifetime, isOutlivedByTheCallThatWasAbandoned) {
  const auto call = std::make_shared<BlockedCall>();
  std::weak_ptr<Cancellation> observer;
  {
    const auto cancellation = std::make_shared<Cancellation>();
    observer = cancellation;
    std::thread canceler([&cancellation, &call] {
      call->begun.get_future().wait();
      cancellation->cancel();
    });
    EXPECT_FALSE(cancellation->runAside(kThreadStackBytes, BlockedCall::of(call)));
    canceler.join();
  }
  EXPECT_FALSE(observer.expired()) << "the call's end is still to be reported to it";
  call->letGo.set_value();
  EXPECT_TRUE(eventually([&observer, &call] {
    return Cancellation::callsUnderWay() == 0 && observer.expired() && call.use_count() == 1;
  }));
}

TEST_F(CancellationTest, doesNotWaitForACallAfterItsEnd) {
  cancellation_->cancel();
  const auto call = std::make_shared<BlockedCall>();
  EXPECT_FALSE(cancellation_->runAside(kThreadStackBytes, BlockedCall::of(call)));
  call->letGo.set_value();
}

TEST_F(CancellationTest, leavesACallOutWhereThereIsNoThread) {
  const CapturedLog log(0);
  EXPECT_FALSE(cancellation_->runAside(kImpossibleStack, [] { FAIL() << "was called"; }));
  EXPECT_EQ(log.text(), "ERROR [TUNNEL_MNGR] unable to start a thread for a call\n");
  EXPECT_EQ(Cancellation::callsUnderWay(), 0);
  EXPECT_FALSE(cancellation_->isCanceled());
}

}  // namespace
