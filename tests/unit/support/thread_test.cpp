#include "support/thread.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/unit/harness/captured_log.h"
#include "tests/unit/harness/child_process.h"
#include "tests/unit/harness/signal_masks.h"
#include "tests/unit/harness/threads.h"
#include "tests/unit/harness/waiting.h"
#include "tests/unit/support/test_thread.h"

namespace {

using std::chrono::milliseconds;

TEST(Thread, runsItsBodyOnAThreadOfItsOwn) {
  std::promise<std::thread::id> ran;
  TestThread thread([&ran](TestThread&) { ran.set_value(std::this_thread::get_id()); });
  thread.start();
  EXPECT_NE(ran.get_future().get(), std::this_thread::get_id());
  thread.stop();
}

TEST(Thread, isKnownByItsName) {
  std::promise<std::string> kernelName;
  TestThread thread(
      [&kernelName](TestThread&) {
        std::array<char, 16> name{};
        prctl(PR_GET_NAME, name.data());
        kernelName.set_value(name.data());
      },
      "FQDN_MONITOR:My_Tunnel_1");
  EXPECT_EQ(thread.name(), "FQDN_MONITOR:My_Tunnel_1");
  thread.start();
  EXPECT_EQ(kernelName.get_future().get(), "FQDN_MONITOR:My");
}

TEST(Thread, isCanceledFromStopOn) {
  TestThread thread([](TestThread&) {});
  EXPECT_FALSE(thread.isCanceled());
  thread.start();
  EXPECT_FALSE(thread.isCanceled());
  thread.stop();
  EXPECT_TRUE(thread.isCanceled());
}

TEST(Thread, waitsForTheEndOfItsBody) {
  bool left = false;  // not atomic: stop() orders the write before the read
  TestThread thread([&left](TestThread& self) {
    while (!self.isCanceled()) self.sleep(1);
    std::this_thread::sleep_for(milliseconds(50));
    left = true;
  });
  thread.start();
  thread.stop();
  EXPECT_TRUE(left);
}

TEST(Thread, stopsAtOnceWhenItWasNeverStarted) {
  TestThread thread([](TestThread&) { FAIL() << "was run"; });
  EXPECT_LT(timeOf([&thread] { thread.stop(); }), kDeadline);
  EXPECT_TRUE(thread.isCanceled());
  thread.start();  // too late
  thread.stop();
}

TEST(Thread, stopsTwice) {
  int ends = 0;  // not atomic: the first stop orders the write before the read
  TestThread thread([&ends](TestThread& self) {
    self.sleep(kTooLong);
    ++ends;
  });
  thread.start();
  for (int i = 0; i < 2; ++i) {
    EXPECT_LT(timeOf([&thread] { thread.stop(); }), kDeadline);
    EXPECT_EQ(ends, 1);
    EXPECT_TRUE(thread.isCanceled());
  }
}

TEST(Thread, runsOnce) {
  std::atomic<int> runs{0};
  TestThread thread([&runs](TestThread& self) {
    ++runs;
    self.sleep(kTooLong);
  });
  thread.start();
  thread.start();
  EXPECT_TRUE(eventually([&runs] { return runs == 1; }));
  thread.stop();
  EXPECT_EQ(runs, 1);
}

TEST(Thread, sleepsTheWholeTime) {
  std::promise<milliseconds> spent;
  TestThread thread([&spent](TestThread& self) { spent.set_value(timeOf([&self] { self.sleep(100); })); });
  thread.start();
  EXPECT_GE(spent.get_future().get(), milliseconds(100));
}

TEST(Thread, wakesFromItsSleepWhenStopped) {
  std::promise<void> begun;
  TestThread thread([&begun](TestThread& self) {
    begun.set_value();
    self.sleep(kTooLong);
  });
  thread.start();
  begun.get_future().wait();
  EXPECT_LT(timeOf([&thread] { thread.stop(); }), kDeadline);
}

TEST(Thread, stopsByTheThousandOneAfterTheOther) {
  constexpr std::size_t kThreads = 1000;
  std::atomic<std::size_t> running{0};
  std::vector<std::unique_ptr<TestThread>> threads;
  for (std::size_t i = 0; i < kThreads; ++i) {
    threads.push_back(std::make_unique<TestThread>([&running](TestThread& self) {
      ++running;
      self.sleep(kTooLong);
    }));
    threads.back()->start();
  }
  ASSERT_TRUE(eventually([&running] { return running == kThreads; }));
  stopOneAfterTheOther(threads);
}

TEST(Thread, isReachedByNoSignal) {
  std::promise<int> unblocked;
  TestThread thread([&unblocked](TestThread&) { unblocked.set_value(firstUnblocked(currentMask())); });
  const sigset_t before = currentMask();
  EXPECT_NE(firstUnblocked(before), 0) << "the test program blocks everything, so this test shows nothing";
  thread.start();
  EXPECT_EQ(unblocked.get_future().get(), 0);
  EXPECT_TRUE(sameMasks(currentMask(), before));
}

TEST(Thread, staysUnstartedWhereThereIsNoThread) {
  checkInChild([] {
    constexpr uid_t kNobody = 65534;
    const rlimit none{0, 0};
    ASSERT_EQ(setrlimit(RLIMIT_NPROC, &none), 0);
    const bool isRoot = geteuid() == 0;  // whom the limit does not bind
    ASSERT_TRUE(!isRoot || setresuid(kNobody, kNobody, kNobody) == 0);
    TestThread thread([](TestThread&) { FAIL() << "was run"; }, "LATE");
    const CapturedLog log(0);
    thread.start();
    EXPECT_EQ(log.text(), "ERROR [TUNNEL_MNGR] unable to start the thread LATE\n");
    thread.stop();
    EXPECT_TRUE(thread.isCanceled());
  });
}

}  // namespace
