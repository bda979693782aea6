// What an openvpn child is from its first instruction on: what it inherits, which signals end it, whose death it
// follows.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <sstream>
#include <string>
#include <thread>

#include "openvpn/connectivity_check.h"
#include "openvpn/supervision.h"
#include "tests/unit/harness/system_call_filter.h"
#include "tests/unit/openvpn/workshop.h"

namespace {

int handlerCalls = -1;  ///< a descriptor; the handler writes its process to it

void noteCall(int) {
  const int savedErrno = errno;
  const pid_t self = getpid();
  [[maybe_unused]] const ssize_t size = write(handlerCalls, &self, sizeof self);
  errno = savedErrno;
}

/// The tests' own process handles SIGTERM and SIGHUP, as the daemon does, blocks SIGUSR1 and ignores SIGUSR2.
class SupervisedChild : public Workshop {
 protected:
  void SetUp() override {
    Workshop::SetUp();
    ASSERT_EQ(pipe2(calls_.data(), O_CLOEXEC | O_NONBLOCK), 0);
    handlerCalls = calls_[1];
    signal(SIGTERM, noteCall);
    signal(SIGHUP, noteCall);
    signal(SIGUSR2, SIG_IGN);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &blocked, &maskBefore_);
  }

  void TearDown() override {
    pthread_sigmask(SIG_SETMASK, &maskBefore_, nullptr);
    for (const int number : {SIGTERM, SIGHUP, SIGUSR2}) signal(number, SIG_DFL);
    for (const int end : calls_) close(end);
    Workshop::TearDown();
  }

  /// The next process that ran the handler, 0 when there is none.
  pid_t nextCall() const {
    pid_t process = 0;
    return ::read(calls_[0], &process, sizeof process) == sizeof process ? process : 0;
  }

  /// A line of a process's status, as proc(5) names them.
  static std::string statusLine(const std::string& status, const std::string& key) {
    std::istringstream lines(status);
    for (std::string line; std::getline(lines, line);) {
      if (line.rfind(key + ":", 0) == 0) return line;
    }
    return "";
  }

  static std::string ownStatus() {
    std::ostringstream text;
    text << std::ifstream("/proc/self/status").rdbuf();
    return text.str();
  }

 private:
  std::array<int, 2> calls_{};
  sigset_t maskBefore_{};
};

TEST_F(SupervisedChild, InheritsMaskDispositionsEnvironmentDescriptorsAndGroup) {
  const int file = open(path("descriptor").c_str(), O_WRONLY | O_CREAT, 0600);
  program("openvpn",
          "cat /proc/self/status > $here/status\n"
          "echo \"$TUNNEL_MNGR_TEST\" > $here/environment\n"
          "echo through >&" +
              std::to_string(file) + "\n: > $here/started; exec sleep 100",
          "/bin/bash");  // which, unlike other shells, leaves the signal mask that it was started with
  setenv("TUNNEL_MNGR_TEST", "inherited", 1);
  const std::string before = ownStatus();
  OvpnTnl tunnel(conf("a"));
  tunnel.restart();
  const std::string after = ownStatus();
  unsetenv("TUNNEL_MNGR_TEST");
  close(file);
  ASSERT_TRUE(waitForFile("started"));

  EXPECT_EQ(getpgid(tunnel.pid), getpgid(0));
  EXPECT_EQ(read("environment"), "inherited\n");
  EXPECT_EQ(read("descriptor"), "through\n");
  EXPECT_EQ(statusLine(before, "SigBlk"), "SigBlk:\t0000000000000200");  // SIGUSR1
  for (const std::string key : {"SigBlk", "SigIgn"}) {
    EXPECT_EQ(statusLine(read("status"), key), statusLine(before, key));
    EXPECT_EQ(statusLine(after, key), statusLine(before, key));
  }
  EXPECT_EQ(statusLine(after, "SigCgt"), statusLine(before, "SigCgt"));
  tunnel.stop();
}

TEST_F(SupervisedChild, EndsBySigtermAtEveryMomentAndRunsNoHandler) {
  lastingOpenvpn();
  constexpr int kChildren = 200;
  constexpr int kLongestMicroseconds = 5000;
  for (int i = 0; i < kChildren; ++i) {
    OvpnTnl tunnel(conf("a"));
    ASSERT_TRUE(tunnel.restart());
    std::this_thread::sleep_for(std::chrono::microseconds(i * kLongestMicroseconds / kChildren));
    kill(tunnel.pid, i % 2 == 0 ? SIGTERM : SIGHUP);
    ASSERT_TRUE(endedBy(statusOf(tunnel.pid), i % 2 == 0 ? SIGTERM : SIGHUP)) << i;
  }
  EXPECT_EQ(nextCall(), 0);
  raise(SIGTERM);
  EXPECT_EQ(nextCall(), getpid());  // here it is still handled
}

TEST_F(SupervisedChild, EndsByASigtermOfItsFirstMoment) {
  lastingOpenvpn();
  const pid_t manager = inProcess([this] {
    pthread_atfork(nullptr, nullptr, [] { kill(getpid(), SIGTERM); });
    OvpnTnl tunnel(conf("a"));
    tunnel.restart();
    return endedBy(statusOf(tunnel.pid), SIGTERM) ? 0 : 1;
  });
  EXPECT_TRUE(exitedWith(statusOf(manager), 0));
  EXPECT_EQ(nextCall(), 0);
}

/// The moment before the exec, made long: the child waits for a `mkdir` that waits.
TEST_F(SupervisedChild, EndsBySigtermWhileItPreparesTheExec) {
  lastingOpenvpn();
  program("mkdir", ": > $here/waiting\nwhile [ -d $here ] && [ ! -e $here/go ]; do sleep 0.01; done");
  OvpnTnl tunnel(conf("a"));
  tunnel.clientConfigDir = path("absent");
  tunnel.restart();
  ASSERT_TRUE(waitForFile("waiting"));
  kill(tunnel.pid, SIGTERM);
  EXPECT_TRUE(waitForZombie(tunnel.pid));
  write("go", "");
  EXPECT_TRUE(endedBy(statusOf(tunnel.pid), SIGTERM));
  EXPECT_EQ(nextCall(), 0);
  EXPECT_FALSE(exists("started"));
}

/// Adopts the orphans of its own children while it lasts, so that their end can be waited for.
class Adoption {
 public:
  Adoption() : isPossible_(prctl(PR_SET_CHILD_SUBREAPER, 1) == 0) {}
  ~Adoption() { prctl(PR_SET_CHILD_SUBREAPER, 0); }
  Adoption(const Adoption&) = delete;
  Adoption& operator=(const Adoption&) = delete;

  bool isPossible() const { return isPossible_; }

 private:
  const bool isPossible_;
};

/// Waits for the end of a child that is not known by its id.
class Orphan : public SupervisedChild {
 protected:
  static std::optional<int> statusOfAny() {
    int status = 0;
    if (eventually([&] { return waitpid(-1, &status, WNOHANG) > 0; })) return status;
    return std::nullopt;
  }
};

TEST_F(Orphan, IsEndedBySigtermWhenTheManagerIsKilled) {
  const Adoption adoption;
  if (!adoption.isPossible()) GTEST_SKIP() << "needs processes that adopt orphans: " << strerror(errno);
  lastingOpenvpn();
  const pid_t manager = inProcess([this] {
    OvpnTnl tunnel(conf("a"));
    tunnel.restart();
    for (;;) pause();
    return 0;
  });
  ASSERT_TRUE(waitForFile("started"));
  kill(manager, SIGKILL);
  EXPECT_TRUE(endedBy(statusOf(manager), SIGKILL));
  EXPECT_TRUE(endedBy(statusOfAny(), SIGTERM));
}

pid_t parentAtFork = 0;

/// Keeps a forked child where it is until its parent is gone.
void waitForOrphanhood() {
  while (getppid() == parentAtFork) usleep(1000);
}

TEST_F(Orphan, NoticesThatTheManagerDiedRightAfterTheFork) {
  const Adoption adoption;
  if (!adoption.isPossible()) GTEST_SKIP() << "needs processes that adopt orphans: " << strerror(errno);
  lastingOpenvpn();
  const pid_t manager = inProcess([this] {
    parentAtFork = getpid();
    pthread_atfork(nullptr, nullptr, waitForOrphanhood);
    OvpnTnl tunnel(conf("a"));
    tunnel.restart();
    raise(SIGKILL);
    return 0;
  });
  EXPECT_TRUE(endedBy(statusOf(manager), SIGKILL));
  EXPECT_TRUE(exitedWith(statusOfAny(), 255));
  EXPECT_FALSE(exists("started"));
  EXPECT_EQ(log(), "");
}

TEST_F(SupervisedChild, GivesUpWhenItCannotFollowTheManager) {
  SKIP_WITHOUT_SYSTEM_CALL_FILTERS();
  lastingOpenvpn();
  const pid_t manager = inProcess([this] {
    if (!refuseSystemCall(SYS_prctl, EPERM, PR_SET_PDEATHSIG)) return 2;
    OvpnTnl tunnel(conf("a"));
    return tunnel.restart() && exitedWith(statusOf(tunnel.pid), 255) ? 0 : 1;
  });
  EXPECT_TRUE(exitedWith(statusOf(manager), 0));
  EXPECT_EQ(log(), "ERROR [TUNNEL_MNGR][OVPN] failed setup notify 'perent terminated' in OvpnTnl restart\n");
  EXPECT_FALSE(exists("started"));
}

TEST_F(SupervisedChild, IsMissedUntilAForkSucceeds) {
  SKIP_WITHOUT_SYSTEM_CALL_FILTERS();
  const pid_t manager = inProcess([this] {
#ifdef SYS_fork
    if (!refuseSystemCall(SYS_fork, EPERM)) return 3;
#endif
    if (!refuseSystemCall(SYS_clone, EPERM)) return 3;
    Conf::tunnels() = {conf("a"), conf("b")};
    startOvpnTunnels();
    if (supervisedTunnels.size() != 2) return 1;
    checkOvpnTunnels();
    for (OvpnTnl& tunnel : supervisedTunnels) {
      if (tunnel.pid != 0 || tunnel.restart() || tunnel.pid != 0) return 2;
    }
    return 0;
  });
  EXPECT_TRUE(exitedWith(statusOf(manager), 0));
  std::string lines;  // two at the start, two in the pass, two of the test's own
  for (int i = 0; i < 6; ++i) lines += "ERROR [TUNNEL_MNGR][OVPN] failed fork in OvpnTnl restart\n";
  EXPECT_EQ(log(), lines);
}

}  // namespace
