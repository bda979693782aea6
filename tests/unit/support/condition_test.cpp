// The condition that signal handlers may signal: the second half of support/lock.h.

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/syscall.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <system_error>
#include <thread>

#include "support/lock.h"
#include "tests/unit/harness/child_process.h"
#include "tests/unit/harness/system_call_filter.h"
#include "tests/unit/harness/waiting.h"
#include "tests/unit/support/free_lock.h"

namespace {

using std::chrono::milliseconds;
using ZEL::Condition;
using ZEL::Lock;
using ZEL::LockGuard;

class ConditionTest : public testing::Test {
 protected:
  /// Waits with the lock held, as it must be, and returns how long that took.
  milliseconds timeOfWait(unsigned int time) {
    const LockGuard guard(lock_);
    return timeOf([this, time] { condition_->wait(time); });
  }

  Lock lock_;
  const std::unique_ptr<Condition> condition_{lock_.createCondition()};
};

TEST_F(ConditionTest, endsTheWaitWhenTheTimeHasPassed) {
  for (const unsigned int time : {0U, 1U, 20U, 200U}) {
    SCOPED_TRACE(time);
    const milliseconds spent = timeOfWait(time);
    EXPECT_GE(spent, milliseconds(time));
    EXPECT_LT(spent, kDeadline);
  }
}

TEST_F(ConditionTest, remembersASignalThatCameBeforeTheWait) {
  condition_->signal();
  EXPECT_LT(timeOfWait(kTooLong), kDeadline);
}

TEST_F(ConditionTest, takesTheLongestTimeThereIs) {
  std::atomic<bool> waiting{false};
  std::atomic<bool> signalling{false};
  std::thread other([this, &waiting, &signalling] {
    while (!waiting) std::this_thread::yield();
    lock_.lock();  // had when the wait has begun
    lock_.unlock();
    std::this_thread::sleep_for(milliseconds(50));  // by then a wait for no time at all is over
    signalling = true;
    condition_->signal();
  });
  {
    const LockGuard guard(lock_);
    waiting = true;
    condition_->wait(UINT_MAX);
    EXPECT_TRUE(signalling);
  }
  other.join();
}

TEST_F(ConditionTest, countsSeveralSignalsAsOne) {
  for (int i = 0; i < 5; ++i) condition_->signal();
  EXPECT_LT(timeOfWait(kTooLong), kDeadline);
  EXPECT_GE(timeOfWait(100), milliseconds(100));
}

TEST_F(ConditionTest, isWokenByAnotherThread) {
  std::thread other([this] {
    const LockGuard guard(lock_);  // can be had only while the wait goes on, or before
    condition_->signal();
  });
  EXPECT_LT(timeOfWait(kTooLong), kDeadline);
  other.join();
}

TEST_F(ConditionTest, givesTheLockAwayWhileItWaits) {
  std::atomic<bool> waiting{false};
  std::thread other([this, &waiting] {
    while (!waiting) std::this_thread::yield();
    lock_.lock();  // `waiting` was set with the lock held, so only the wait can have given it away
    condition_->signal();
    lock_.unlock();
  });
  {
    const LockGuard guard(lock_);
    waiting = true;
    EXPECT_LT(timeOf([this] { condition_->wait(kTooLong); }), kDeadline);
  }
  other.join();
}

TEST_F(ConditionTest, holdsTheLockAgainAfterTheWait) {
  const LockGuard guard(lock_);
  condition_->wait(1);
  EXPECT_FALSE(isFree(lock_)) << "after a time-out";
  condition_->signal();
  condition_->wait(kTooLong);
  EXPECT_FALSE(isFree(lock_)) << "after a signal";
}

TEST_F(ConditionTest, keepsErrnoWhenSignalled) {
  SKIP_WITHOUT_SYSTEM_CALL_FILTERS();
  checkInChild([this] {
    for (const bool fails : {false, true}) {
      if (fails) {
        ASSERT_TRUE(refuseSystemCall(SYS_write, EPERM));  // from here on failures have no text
      }
      errno = EXDEV;
      condition_->signal();
      EXPECT_EQ(errno, EXDEV);
    }
  });
}

TEST_F(ConditionTest, holdsTheLockAlsoWhenTheWaitThrows) {
  SKIP_WITHOUT_SYSTEM_CALL_FILTERS();
  checkInChild([this] {
    ASSERT_TRUE(refuseSystemCall(SYS_ppoll, ENOMEM));
#ifdef SYS_ppoll_time64
    ASSERT_TRUE(refuseSystemCall(SYS_ppoll_time64, ENOMEM));  // for 64-bit time on 32 bits
#endif
#ifdef SYS_poll
    ASSERT_TRUE(refuseSystemCall(SYS_poll, ENOMEM));
#endif
    const LockGuard guard(lock_);
    EXPECT_THROW(condition_->wait(10), std::system_error);
    EXPECT_FALSE(isFree(lock_));
  });
}

TEST(ConditionCreation, throwsWhenNoDescriptorIsLeft) {
  SKIP_WITHOUT_SYSTEM_CALL_FILTERS();
  checkInChild([] {
    ASSERT_TRUE(refuseSystemCall(SYS_eventfd2, EMFILE));
    Lock lock;
    EXPECT_THROW(std::unique_ptr<Condition>(lock.createCondition()), std::system_error);
  });
}

TEST(ConditionCreation, bindsSeveralConditionsToOneLock) {
  Lock lock;
  const std::unique_ptr<Condition> first(lock.createCondition());
  const std::unique_ptr<Condition> second(lock.createCondition());
  first->signal();
  const LockGuard guard(lock);
  EXPECT_GE(timeOf([&second] { second->wait(50); }), milliseconds(50));
  EXPECT_LT(timeOf([&first] { first->wait(kTooLong); }), kDeadline);
}

/// Lets a test's own function handle SIGUSR1 for as long as a scope lasts.
class HandledSignal {
 public:
  explicit HandledSignal(void (*handler)(int)) {
    struct sigaction action {};
    action.sa_handler = handler;
    sigaction(SIGUSR1, &action, &before_);
  }
  ~HandledSignal() { sigaction(SIGUSR1, &before_, nullptr); }
  HandledSignal(const HandledSignal&) = delete;
  HandledSignal& operator=(const HandledSignal&) = delete;

 private:
  struct sigaction before_ {};
};

// What the handlers of the tests below reach.
Condition* signalled = nullptr;
std::atomic<int> handled{0};

class ConditionInHandler : public ConditionTest {
 protected:
  ConditionInHandler() {
    signalled = condition_.get();
    handled = 0;
  }
  ~ConditionInHandler() override { signalled = nullptr; }

  static void signalCondition(int) {
    signalled->signal();
    ++handled;
  }
  static void doNothing(int) { ++handled; }
};

TEST_F(ConditionInHandler, isWokenByAHandlerInAThreadThatAllocates) {
  const HandledSignal handler(signalCondition);
  std::atomic<bool> enough{false};
  std::thread allocating([&enough] {
    for (std::size_t size = 1; !enough; size = size % 100000 + 997) {
      void* volatile memory = malloc(size);  // volatile, or the compiler leaves both calls out
      free(memory);
    }
  });
  for (int round = 0; round < 1000; ++round) {
    pthread_kill(allocating.native_handle(), SIGUSR1);
    ASSERT_LT(timeOfWait(kTooLong), kDeadline);
  }
  enough = true;
  allocating.join();
  EXPECT_EQ(handled, 1000);
}

TEST_F(ConditionInHandler, isWokenByAHandlerInTheThreadThatHoldsTheLock) {
  const HandledSignal handler(signalCondition);
  const LockGuard guard(lock_);
  ASSERT_EQ(raise(SIGUSR1), 0);
  EXPECT_EQ(handled, 1);
  EXPECT_LT(timeOf([this] { condition_->wait(kTooLong); }), kDeadline);
}

TEST_F(ConditionInHandler, waitsOnAfterAHandlerThatDoesNotSignal) {
  const HandledSignal handler(doNothing);
  std::atomic<bool> over{false};
  std::thread interrupting([&over, waiter = pthread_self()] {
    for (; !over; std::this_thread::sleep_for(milliseconds(1))) pthread_kill(waiter, SIGUSR1);
  });
  EXPECT_TRUE(eventually([this] {
    const int before = handled;
    EXPECT_GE(timeOfWait(100), milliseconds(100));
    return handled > before;
  }));
  over = true;
  interrupting.join();
}

}  // namespace
