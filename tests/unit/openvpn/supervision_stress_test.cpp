// Children that are forked while other threads hold every lock that they can.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "openvpn/supervision.h"
#include "support/logger.h"
#include "tests/unit/openvpn/workshop.h"

namespace {

/// Threads that log and allocate without a pause while the scope lasts.
class Load {
 public:
  explicit Load(int threads) {
    for (int i = 0; i < threads; ++i) threads_.emplace_back([this] { work(); });
  }
  ~Load() {
    ended_ = true;
    for (std::thread& thread : threads_) thread.join();
  }
  Load(const Load&) = delete;
  Load& operator=(const Load&) = delete;

  long lines() const { return lines_; }

 private:
  void work() {
    std::vector<std::string> kept(64);
    for (std::size_t size = 0; !ended_; size = (size + 97) % 5000) {
      kept[size % kept.size()] = std::string(size, 'x');
      ZEL_LOG(ERROR, "[%s] %zu", kept[size % kept.size()].c_str(), size);
      ++lines_;
    }
  }

  std::vector<std::thread> threads_;
  std::atomic<bool> ended_{false};
  std::atomic<long> lines_{0};
};

constexpr int kThreads = 4;

/// The children of one test: as many as come in a minute, since machines differ, and yet enough to meet every lock.
class Children {
 public:
  /// Whether there is time for another one.
  bool goOn() const {
    return made < kFewest || (made < kMost && std::chrono::steady_clock::now() - begin_ < std::chrono::minutes(1));
  }

  int made = 0;

 private:
  static constexpr int kFewest = 30;
  static constexpr int kMost = 200;

  const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
};

class SupervisionUnderLoad : public Workshop {
 protected:
  void SetUp() override {
    Workshop::SetUp();
    // The lines are many, and only their lock matters.
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(nowhere, STDERR_FILENO);
    close(nowhere);
  }
};

/// Every child logs, allocates and runs a command before its exec; one that got stuck would never reach it.
TEST_F(SupervisionUnderLoad, EveryChildReachesItsExec) {
  program("openvpn", "exit 7");
  OvpnTnl tunnel(conf("a"));
  tunnel.clientConfigDir = path("clients/a");
  const Load load(kThreads);
  const auto start = std::chrono::steady_clock::now();
  Children children;
  for (; children.goOn(); ++children.made) {
    ASSERT_TRUE(tunnel.restart());
    ASSERT_TRUE(exitedWith(statusOf(tunnel.pid), 7)) << children.made;
    ASSERT_TRUE(exists("clients/a")) << children.made;
    std::filesystem::remove_all(path("clients"));
    tunnel.pid = 0;
  }
  const auto time = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
  RecordProperty("children", children.made);
  RecordProperty("milliseconds", std::to_string(time.count()));
  RecordProperty("lines", std::to_string(load.lines()));
}

TEST_F(SupervisionUnderLoad, EveryChildCanBeEnded) {
  lastingOpenvpn();
  OvpnTnl tunnel(conf("a"));
  const Load load(kThreads);
  for (Children children; children.goOn(); ++children.made) {
    ASSERT_TRUE(tunnel.restart());
    kill(tunnel.pid, SIGTERM);
    ASSERT_TRUE(endedBy(statusOf(tunnel.pid), SIGTERM)) << children.made;
    tunnel.pid = 0;
  }
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(tunnel.restart());  // which ends the child before
    EXPECT_TRUE(tunnel.isRunning());
  }
  tunnel.stop();
  EXPECT_EQ(tunnel.pid, 0);
}

}  // namespace
