#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "tests/unit/tunnelctl/status_samples.h"

namespace {

using status_test::facts;
using status_test::kDaemon;
using status_test::process;
using testing::ElementsAre;
using testing::IsEmpty;

/// Who runs, on one line.
std::string shown(const DaemonStatus& status) {
  if (status.isRunning) return "daemon " + std::to_string(status.pid);
  return status.isSingleRun ? "single " + std::to_string(status.pid) : "none";
}

TEST(DaemonStatus, tellsWhoRunsAndWhatTheNextStartWillDo) {
  using Change = std::function<void(Facts&)>;
  const Change dead = [](Facts& f) { f.processes.clear(); };
  const auto with = [](const Change& first, const Change& second) {
    return [first, second](Facts& f) {
      first(f);
      second(f);
    };
  };
  const Change otherProcess = [](Facts& f) {
    f.processes.push_back(process(7, "cron", {"cron"}));
    f.marks.pidFile = "7\n";
  };
  const struct {
    const char* what;
    Change change;
    std::string who;
    std::vector<std::string> remarks;
  } rows[] = {
      {"all is well", [](Facts&) {}, "daemon 100", {}},
      {"no semaphore",
       [](Facts& f) { f.marks.hasSemaphore = false; },
       "daemon 100",
       {"its semaphore is gone: the next start makes a second daemon; stop this one and start it again"}},
      {"no PID file",
       [](Facts& f) { f.marks.pidFile.reset(); },
       "daemon 100",
       {"/var/run/tunnel_mngr.pid does not name it: the next start removes its semaphore and fails with 1; kill -HUP "
        "100 "
        "asks for a run"}},
      {"an empty PID file",
       [](Facts& f) { f.marks.pidFile = ""; },
       "daemon 100",
       {"/var/run/tunnel_mngr.pid does not name it: the next start removes its semaphore and fails with 1; kill -HUP "
        "100 "
        "asks for a run"}},
      {"another process in the PID file",
       otherProcess,
       "daemon 100",
       {"/var/run/tunnel_mngr.pid names process 7 (cron), which gets the SIGHUP of the next start; kill -HUP 100 asks "
        "for a run"}},
      {"two daemons",
       [](Facts& f) {
         f.processes.insert(f.processes.begin(), process(90, "tunnel_mngr", {"tunnel_mngr", "-d"}));
       },
       "daemon 100",
       {"2 daemons run: stop all of them and start one"}},
      {"a child that is about to become another program",
       [](Facts& f) {
         f.processes.push_back(process(101, "tunnel_mngr", {"tunnel_mngr", "-d"}, kDaemon));
       },
       "daemon 100",
       {}},
      {"a single run",
       [](Facts& f) {
         f.processes[0].arguments = {"tunnel_mngr", "-p", "100"};
       },
       "single 100",
       {}},
      {"another program",
       [](Facts& f) {
         f.processes[0].name = "tunnel_mngr2";
         f.marks = {};
       },
       "none",
       {}},
      {"nobody, and nothing left", with(dead, [](Facts& f) { f.marks = {}; }), "none", {}},
      {"a semaphore and a PID file that are left",
       dead,
       "none",
       {"/dev/shm/sem.TUNNEL_MANAGER and /var/run/tunnel_mngr.pid belong to nobody: the next start removes what is "
        "left "
        "and fails with 1, the one after works"}},
      {"a semaphore that is left",
       with(dead, [](Facts& f) { f.marks.pidFile.reset(); }),
       "none",
       {"/dev/shm/sem.TUNNEL_MANAGER belongs to nobody: the next start removes what is left and fails with 1, the one "
        "after works"}},
      {"a PID file that is left",
       with(dead, [](Facts& f) { f.marks.hasSemaphore = false; }),
       "none",
       {"/var/run/tunnel_mngr.pid is left over, which does no harm; the next start writes it anew"}},
      {"a PID file that names somebody else",
       with(dead, otherProcess),
       "none",
       {"/dev/shm/sem.TUNNEL_MANAGER is left over, and /var/run/tunnel_mngr.pid names process 7 (cron): the next start "
        "sends SIGHUP to it and ends; remove both files"}},
  };
  for (const auto& row : rows) {
    Facts found = facts();
    row.change(found);
    const DaemonStatus status = daemonStatus(found);
    EXPECT_EQ(shown(status), row.who) << row.what;
    EXPECT_EQ(status.remarks, row.remarks) << row.what;
  }
}

TEST(DaemonStatus, readsTheArgumentsAsTheProgramDoes) {
  const struct {
    std::vector<std::string> arguments;
    bool isDaemon;
    int printLevel;
  } rows[] = {{{"-d"}, true, 0},
              {{"--daemonize", "--printlvl", "100"}, true, 100},
              {{"-dp50"}, true, 50},
              {{"-p", "25", "-d", "-p", "75"}, true, 75},
              {{"--daem", "--print=10"}, true, 10},
              {{"word", "-d"}, true, 0},
              {{"--no-such", "-x", "-d"}, true, 0},
              {{"--", "-d"}, false, 0},
              {{"-p", "x"}, false, 0},
              {{"-p"}, false, 0},
              {{}, false, 0}};
  for (const auto& row : rows) {
    Facts found = facts();
    found.processes[0].arguments = {"/usr/sbin/tunnel_mngr"};
    for (const std::string& argument : row.arguments) found.processes[0].arguments.push_back(argument);
    const DaemonStatus status = daemonStatus(found);
    EXPECT_EQ(status.isRunning, row.isDaemon) << testing::PrintToString(row.arguments);
    EXPECT_EQ(status.printLevel, row.printLevel) << testing::PrintToString(row.arguments);
  }
}

TEST(DaemonStatus, tellsSinceWhenItRuns) {
  EXPECT_EQ(daemonStatus(facts()).startedAt, status_test::kNow - 60);
}

}  // namespace
