// The daemon's loop. Every run of these daemons ends with its first command, and every pass with a ping: there the
// tests take over, so they are told of each round. They need no API.

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <ctime>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "core/daemon.h"
#include "core/single_instance.h"
#include "effects/noting_effects.h"
#include "monitors/fqdn_monitor.h"
#include "monitors/refresh_request.h"
#include "openvpn/supervision.h"
#include "support/logger.h"
#include "tests/unit/harness/captured_log.h"
#include "tests/unit/harness/child_process.h"
#include "tests/unit/harness/threads.h"
#include "tests/unit/harness/waiting.h"

namespace {

const std::string kRun =
    "INFO [TUNNEL_MNGR] MANAGING TUNNELS\n"
    "ERROR [TUNNEL_MNGR] error executing ip tunnel command [1]\n";
const std::string kMonitorsStart = "INFO [TUNNEL_MNGR] STARTING WAN AND FQDN MONITORS\n";
const std::string kException = "ERROR [TUNNEL_MNGR] Exception caught w\u0410hile waiting on signal\n";
const std::string kPing = "ERROR [TUNNEL_MNGR][OVPN] ping 10.8.0.2\n";

std::string monitors(int count) {
  return "INFO [TUNNEL_MNGR] v_apFqdnMonitor size " + std::to_string(count) + "\n";
}

/// Far more rounds than any of these daemons has.
constexpr int kTooManyRounds = 1000;

bool ignores(int number) {
  struct sigaction action {};
  sigaction(number, nullptr, &action);
  return action.sa_handler == SIG_IGN;
}

bool ignoresSignals() {
  return ignores(SIGHUP) && ignores(SIGTERM);
}

/// A daemon with tunnels whose far ends are pinged, in a process of its own.
class Daemon : public NotingEffects {
 public:
  using Hook = std::function<void(int)>;

  /// The descriptor of the condition that is there is the parent's as well.
  Daemon() { refreshCondition.reset(refreshLock->createCondition()); }

  /// Lives a daemon's life until one of the two has set `stopped`. `atRun` is called in each run with its number from 1
  /// on, `atPing` with each ping's.
  void live(int tunnels, Hook atRun, Hook atPing) {
    atRun_ = std::move(atRun);
    atPing_ = std::move(atPing);
    OvpnConf conf;
    conf.pingCheck = true;
    conf.pingAddress = "10.8.0.2";
    const ActingAs as(*this);
    for (int i = 0; i < tunnels; ++i) supervisedTunnels.emplace_back(conf).restart();
    instanceSemaphore = createSemaphore(instanceName.c_str());
    wanMonitor = std::make_unique<WanMonitor>(refreshLock, refreshCondition, "");
    const CapturedLog captured(ZEL::Logger::PrintLevel::TRACE_LEVEL);
    runDaemon();
    log = captured.text();
  }

  int ask(const std::string& command, std::string& output) override {
    NotingEffects::ask(command, output);
    EXPECT_EQ(command, "ip tunnel");
    if (++runs == kTooManyRounds) stopped = true;
    atRun_(runs);
    return 1;
  }
  int run(const std::string& command) override {
    NotingEffects::run(command);
    EXPECT_EQ(command, "ping -c 3 10.8.0.2");
    if (++pings == kTooManyRounds) stopped = true;
    atPing_(pings);
    return 0;
  }
  /// Called by a signal handler, which must not note.
  void removeSemaphore(const char* name) override { dropped = dropped || name == instanceName.c_str(); }
  void closeSemaphore(sem_t* semaphore) override {
    EXPECT_EQ(semaphore, instanceSemaphore);
    closed = true;
    ignoring = ignoresSignals();
  }

  int runs = 0;
  int pings = 0;
  bool dropped = false;
  bool closed = false;
  bool ignoring = false;  ///< when it was closed
  std::string log;

 private:
  Hook atRun_;
  Hook atPing_;
};

void noHook(int) {}

/// Has the next round perform a pass, whatever the clock says.
void makePassDue() {
  lastOvpnCheck = 0;
}

/// Appends a monitor that has nothing to do for an hour.
void appendMonitor() {
  v_apFqdnMonitor.push_back(std::make_unique<FqdnMonitor>(
      refreshLock, refreshCondition, ZEL::AutoPtr<ZEL::Lock>(new ZEL::Lock), "host", "", "office", 3600000));
}

TEST(RunDaemon, StartsTheMonitorsOfEachRunAndStopsThemBeforeTheNext) {
  checkInChild([] {
    Daemon daemon;
    daemon.live(
        0,
        [](int run) {
          EXPECT_TRUE(v_apFqdnMonitor.empty());
          appendMonitor();
          if (run == 1) return onSighup(SIGHUP);
          EXPECT_TRUE(eventually([] { return threadSleeps("WAN_MONITOR"); }));
          stopped = true;
        },
        noHook);
    const std::string stop = "TRACE [TUNNEL_MNGR][FQDN_MONITOR] tunnel:office stop \n";
    EXPECT_EQ(daemon.log, kRun + kMonitorsStart + monitors(1) + stop + kRun + monitors(1) + stop);
    EXPECT_TRUE(v_apFqdnMonitor.empty());
    EXPECT_TRUE(wanMonitor->isCanceled());
  });
}

TEST(RunDaemon, MakesOneRunOfAllRequestsThatComeDuringARun) {
  checkInChild([] {
    Daemon daemon;
    const auto request = [](int run) {
      if (run == 1) onSighup(SIGHUP);
      if (run == 1) onSighup(SIGHUP);
    };
    const auto goRoundThrice = [](int ping) {
      makePassDue();
      stopped = ping == 3;
    };
    daemon.live(1, request, goRoundThrice);
    EXPECT_EQ(daemon.log, kRun + kMonitorsStart + monitors(0) + kRun + monitors(0) + kPing + kPing + kPing);
  });
}

TEST(RunDaemon, GoesOnAfterARunThatThrowsAndDoesNotRepeatIt) {
  checkInChild([] {
    Daemon daemon;
    const auto throwing = [](int run) {
      if (run == 1) onSighup(SIGHUP);
      throw std::runtime_error("a document of a wrong type");
    };
    const auto goRoundThrice = [](int ping) {
      makePassDue();
      stopped = ping == 3;
    };
    daemon.live(1, throwing, goRoundThrice);
    const std::string run = "INFO [TUNNEL_MNGR] MANAGING TUNNELS\n" + kException;
    EXPECT_EQ(daemon.log, run + kMonitorsStart + monitors(0) + run + kPing + kPing + kPing);
  });
}

/// Whether another thread could take the refresh lock now.
bool isLockFree() {
  bool taken = false;
  std::thread([&taken] {
    if (!refreshLock->tryLock()) return;
    taken = true;
    refreshLock->unlock();
  }).join();
  return taken;
}

TEST(RunDaemon, HoldsTheLockDuringRunsAndPasses) {
  checkInChild([] {
    Daemon daemon;
    const auto look = [](int) {
      EXPECT_FALSE(isLockFree());
      makePassDue();
    };
    daemon.live(1, look, [&look](int ping) {
      look(ping);
      if (ping == 1) onSighup(SIGHUP);
      stopped = ping == 2;
    });
    EXPECT_EQ(daemon.runs, 2);
    EXPECT_TRUE(isLockFree());
  });
}

/// The pings of a round for which the last pass is so many seconds old. Meant is the wall clock, which is read here
/// before the round and by the loop in it: a round counts when both have read the same.
int pingsAfter(time_t seconds) {
  Daemon daemon;
  int pings = -1;
  std::thread other([&daemon, &pings, seconds] {
    time_t assumed = -1;
    int before = 0;
    EXPECT_TRUE(eventually([&] {
      const ZEL::LockGuard whileTheLoopWaits(*refreshLock);
      pings = daemon.pings - before;
      if (now == assumed) {
        EXPECT_EQ(lastOvpnCheck, pings > 0 ? assumed : assumed - seconds);
        return true;
      }
      before = daemon.pings;
      now = 0;
      assumed = time(nullptr);
      lastOvpnCheck = assumed - seconds;
      refreshCondition->signal();
      return false;
    }));
    stopped = true;
  });
  daemon.live(1, noHook, noHook);
  other.join();
  return pings;
}

TEST(RunDaemon, BeginsAPassWhenMoreThanTenSecondsHavePassed) {
  const struct {
    time_t seconds;
    int pings;
  } rows[] = {{-3600, 0}, {-1, 0}, {0, 0}, {9, 0}, {10, 0}, {11, 1}, {12, 1}, {3600, 1}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.seconds);
    checkInChild([&row] { EXPECT_EQ(pingsAfter(row.seconds), row.pings); });
  }
}

TEST(RunDaemon, HasAPassGiveWayToARequest) {
  checkInChild([] {
    Daemon daemon;
    daemon.live(
        3, [](int run) { stopped = run == 2; }, [](int) { onSighup(SIGHUP); });
    EXPECT_EQ(daemon.log, kRun + kMonitorsStart + monitors(0) + kPing + kRun + monitors(0));
  });
}

TEST(RunDaemon, HasAPassGiveWayToTheEnd) {
  checkInChild([] {
    Daemon daemon;
    daemon.live(3, noHook, [](int) { stopped = true; });
    EXPECT_EQ(daemon.pings, 1);
  });
}

TEST(RunDaemon, BeginsNothingMoreWhenItIsToEnd) {
  checkInChild([] {
    Daemon daemon;
    daemon.live(
        1, [](int run) { run == 1 ? onSighup(SIGHUP) : onSigterm(SIGTERM); }, noHook);
    EXPECT_EQ(lastOvpnCheck, 0) << "a pass after the run during which the end was requested";
  });
  checkInChild([] {
    Daemon daemon;
    std::thread ending;
    daemon.live(1, noHook, [&ending](int) {
      ending = std::thread([] {
        const ZEL::LockGuard whileItWaits(*refreshLock);
        stopped = true;
        onSighup(SIGHUP);
      });
    });
    ending.join();
    EXPECT_EQ(daemon.runs, 1) << "a run after the wait during which the end was requested";
  });
}

TEST(RunDaemon, LeavesWithNothingThatASignalCouldReach) {
  checkInChild([] {
    Daemon daemon;
    signal(SIGHUP, onSighup);
    signal(SIGTERM, onSigterm);
    daemon.live(1, noHook, [](int) { raise(SIGTERM); });
    EXPECT_TRUE(daemon.closed);
    EXPECT_EQ(instanceSemaphore, nullptr);
    EXPECT_TRUE(daemon.ignoring) << "a handler could still reach what was given up before";
    EXPECT_TRUE(ignoresSignals());
    EXPECT_TRUE(daemon.dropped);
    EXPECT_EQ(daemon.children.size(), 1U) << "tunnels are left as they are";
  });
}

}  // namespace
