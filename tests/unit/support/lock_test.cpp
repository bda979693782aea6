#include "support/lock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include "tests/unit/harness/child_process.h"
#include "tests/unit/harness/waiting.h"
#include "tests/unit/support/free_lock.h"

namespace {

using std::chrono::milliseconds;
using ZEL::Lock;
using ZEL::LockGuard;
using ZEL::WaitQueue;

TEST(Lock, letsOneThreadInAtATime) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 20000;
  Lock lock;
  int counter = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&lock, &counter] {
      for (int round = 0; round < kRounds; ++round) {
        lock.lock();
        ++counter;
        lock.unlock();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(counter, kThreads * kRounds);
}

TEST(Lock, isTakenWithoutWaitingOnlyWhenItIsFree) {
  Lock lock;
  EXPECT_TRUE(isFree(lock));
  lock.lock();
  EXPECT_FALSE(isFree(lock));
  lock.unlock();
  EXPECT_TRUE(isFree(lock));
}

TEST(LockGuard, holdsTheLockForItsScope) {
  Lock lock;
  {
    const LockGuard guard(lock);
    EXPECT_FALSE(isFree(lock));
  }
  EXPECT_TRUE(isFree(lock));
}

TEST(WaitQueue, waitsUntilAnotherThreadWakesIt) {
  Lock lock;
  WaitQueue queue;
  bool changed = false;
  std::thread changer([&lock, &queue, &changed] {
    const LockGuard guard(lock);
    changed = true;
    queue.wakeAll();
  });
  lock.lock();
  while (!changed) queue.wait(lock);
  EXPECT_FALSE(isFree(lock));
  lock.unlock();
  changer.join();
}

/// In a process of its own, since threads that nobody wakes cannot be joined.
TEST(WaitQueue, wakesAllWhoWait) {
  checkInChild([] {
    constexpr int kThreads = 4;
    Lock lock;
    WaitQueue queue;
    bool changed = false;
    int waiting = 0;
    int woken = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&] {
        const LockGuard guard(lock);
        ++waiting;
        while (!changed) queue.wait(lock);
        ++woken;
      });
    }
    const auto reaches = [&lock](const int& counter) {
      return eventually([&lock, &counter] {
        const LockGuard guard(lock);
        return counter == kThreads;
      });
    };
    ASSERT_TRUE(reaches(waiting));
    lock.lock();
    changed = true;
    lock.unlock();
    queue.wakeAll();
    ASSERT_TRUE(reaches(woken));
    for (std::thread& thread : threads) thread.join();
  });
}

TEST(WaitQueue, endsAtTheDeadlineWithTheLockHeld) {
  Lock lock;
  WaitQueue queue;
  const auto deadline = WaitQueue::Clock::now() + milliseconds(50);
  lock.lock();
  while (WaitQueue::Clock::now() < deadline) queue.waitUntil(lock, deadline);
  EXPECT_FALSE(isFree(lock));
  lock.unlock();
}

}  // namespace
