#include "openvpn/supervision.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/logger.h"
#include "tests/unit/harness/child_process.h"
#include "tests/unit/harness/system_call_filter.h"
#include "tests/unit/openvpn/workshop.h"

namespace {

using Supervision = Workshop;

/// A process that is none of this one's children. It ends when the returned object goes, or by a signal, which `ended`
/// tells. Throws when there can be none.
class Stranger {
 public:
  Stranger() {
    if (pipe(pipe_.data()) != 0) throw std::runtime_error("no pipe");
    const pid_t middle = fork();
    if (middle == 0) {
      if (fork() != 0) _exit(0);
      const pid_t self = getpid();
      [[maybe_unused]] const ssize_t size = write(pipe_[1], &self, sizeof self);
      for (;;) pause();
    }
    close(pipe_[1]);
    if (middle > 0) waitpid(middle, nullptr, 0);
    if (read(pipe_[0], &pid, sizeof pid) != sizeof pid) throw std::runtime_error("no stranger");
  }
  ~Stranger() {
    kill(pid, SIGKILL);
    close(pipe_[0]);
  }
  Stranger(const Stranger&) = delete;
  Stranger& operator=(const Stranger&) = delete;

  /// Waits for its end, which closes the pipe.
  bool ended() const {
    char byte = 0;
    return read(pipe_[0], &byte, 1) == 0;
  }

  pid_t pid = 0;

 private:
  std::array<int, 2> pipe_{};
};

TEST_F(Supervision, TakesEverythingButTheNameFromTheConfiguration) {
  const OvpnTnl tunnel(OvpnConf{"a", "c", "s", "n", "d", "p", true});
  EXPECT_EQ(tunnel.pid, 0);
  EXPECT_EQ(tunnel.confFile, "c");
  EXPECT_EQ(tunnel.statusFile, "s");
  EXPECT_EQ(tunnel.clientConfigDir, "d");
  EXPECT_EQ(tunnel.connectFile, "n");
  EXPECT_EQ(tunnel.pingAddress, "p");
  EXPECT_TRUE(tunnel.pingCheck);
  EXPECT_FALSE(OvpnTnl(OvpnConf{"a", "c", "s", "n", "d", "p", false}).pingCheck);
}

TEST_F(Supervision, HasOneArgumentVector) {
  const OvpnTnl tunnel(OvpnConf{"a", "/c o.conf", "/s.status", "n", "d", "p", true});
  const std::vector<std::string> expected{"openvpn",   "--config", "/c o.conf", "--status",
                                          "/s.status", "1",        "--syslog",  "openvpn"};
  const auto arguments = openvpnArguments(tunnel);
  EXPECT_EQ(std::vector<std::string>(arguments.begin(), arguments.end() - 1), expected);
  EXPECT_EQ(arguments.back(), nullptr);
}

TEST_F(Supervision, RestartRunsTheProgramOfThePathWithTheseArguments) {
  program("openvpn", "for word in \"$@\"; do echo \"<$word>\"; done > $here/words\nexit 3");
  OvpnTnl tunnel(conf("two words"));
  EXPECT_TRUE(tunnel.restart());
  EXPECT_GT(tunnel.pid, 0);
  EXPECT_TRUE(exitedWith(statusOf(tunnel.pid), 3));
  EXPECT_EQ(read("words"), "<--config>\n<" + tunnel.confFile + ">\n<--status>\n<" + tunnel.statusFile +
                               ">\n<1>\n<--syslog>\n<openvpn>\n");
  EXPECT_EQ(log(), "");
}

TEST_F(Supervision, RestartEndsTheChildBefore) {
  lastingOpenvpn();
  OvpnTnl tunnel(conf("a"));
  tunnel.restart();
  const pid_t first = tunnel.pid;
  ASSERT_TRUE(waitForFile("started"));
  EXPECT_TRUE(tunnel.restart());
  EXPECT_NE(tunnel.pid, first);
  EXPECT_EQ(waitpid(first, nullptr, WNOHANG), -1);  // reaped
  EXPECT_EQ(errno, ECHILD);
  tunnel.stop();
}

TEST_F(Supervision, IsRunningUntilTheChildHasEnded) {
  lastingOpenvpn();
  OvpnTnl tunnel(conf("a"));
  EXPECT_FALSE(tunnel.isRunning());
  tunnel.restart();
  const pid_t child = tunnel.pid;
  ASSERT_TRUE(waitForFile("started"));
  EXPECT_TRUE(tunnel.isRunning());
  EXPECT_EQ(tunnel.pid, child);
  kill(child, SIGKILL);
  ASSERT_TRUE(waitForZombie(child));
  EXPECT_FALSE(tunnel.isRunning());
  EXPECT_EQ(tunnel.pid, 0);
  EXPECT_EQ(waitpid(child, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

TEST_F(Supervision, AnIdleTunnelReapsNoOthersChild) {
  const pid_t child = inProcess([] { return 5; });
  ASSERT_TRUE(waitForZombie(child));
  OvpnTnl tunnel(conf("a"));
  EXPECT_FALSE(tunnel.isRunning());
  tunnel.stop();
  EXPECT_TRUE(exitedWith(statusOf(child), 5));
}

TEST_F(Supervision, AStrangersProcessIsNotRunning) {
  const Stranger stranger;
  OvpnTnl tunnel(conf("a"));
  tunnel.pid = stranger.pid;
  EXPECT_FALSE(tunnel.isRunning());
  EXPECT_EQ(tunnel.pid, 0);
}

TEST_F(Supervision, StopDoesNotWaitForAStranger) {
  const Stranger stranger;
  OvpnTnl tunnel(conf("a"));
  tunnel.pid = stranger.pid;
  tunnel.stop();
  EXPECT_EQ(tunnel.pid, 0);
  EXPECT_TRUE(stranger.ended());  // it was asked to, as any child is
}

/// To kill(2) these are the process group, everything, and another group, so a defect must not get through to it.
TEST_F(Supervision, StopLeavesWhatIsNoProcessIdAlone) {
  SKIP_WITHOUT_SYSTEM_CALL_FILTERS();
  checkInChild([this] {
    ASSERT_TRUE(refuseSystemCall(SYS_kill, EPERM));
    OvpnTnl tunnel(conf("a"));
    for (const pid_t none : {0, -1, -4711}) {
      tunnel.pid = none;
      errno = 0;
      tunnel.stop();
      EXPECT_EQ(tunnel.pid, none);
      EXPECT_EQ(errno, 0) << "something was signalled or waited for";
    }
  });
}

TEST_F(Supervision, StopReturnsWhenTheChildIsGone) {
  lastingOpenvpn();
  OvpnTnl tunnel(conf("a"));
  tunnel.restart();
  const pid_t child = tunnel.pid;
  ASSERT_TRUE(waitForFile("started"));
  tunnel.stop();
  EXPECT_EQ(tunnel.pid, 0);
  EXPECT_EQ(kill(child, 0), -1);
  EXPECT_EQ(errno, ESRCH);
}

TEST_F(Supervision, StopAsksAChildThatDoesNotListenAgainAndAgain) {
  program("openvpn",
          "trap 'echo asked >> $here/asked' TERM\necho $$ > $here/pid.part; mv $here/pid.part $here/pid\n"
          "while :; do sleep 0.05; done");
  const pid_t manager = inProcess([this] {
    OvpnTnl tunnel(conf("a"));
    tunnel.restart();
    if (!waitForFile("pid")) return 1;
    tunnel.stop();
    return 0;
  });
  EXPECT_TRUE(eventually([this] { return read("asked") >= "asked\nasked\nasked\n"; }));
  EXPECT_EQ(waitpid(manager, nullptr, WNOHANG), 0);  // it has not returned
  const std::string pid = read("pid");
  ASSERT_GT(pid.size(), 1U);
  kill(std::stoi(pid), SIGKILL);
  EXPECT_TRUE(exitedWith(statusOf(manager), 0));
}

TEST_F(Supervision, AMissingProgramIsTheChildsFailure) {
  setenv("PATH", path("").c_str(), 1);
  OvpnTnl tunnel(conf("a"));
  EXPECT_TRUE(tunnel.restart());
  EXPECT_TRUE(exitedWith(statusOf(tunnel.pid), 255));
  EXPECT_EQ(log(), "ERROR [TUNNEL_MNGR][OVPN] failed exec openvpn\n");
}

struct Directory {
  std::string directory;  ///< in the test's directory, "" for none
  bool mkdirWorks;
  std::string commands;
  bool logged;
};

TEST_F(Supervision, CreatesAMissingClientConfigDirectory) {
  program("openvpn", "exit 0");
  mkdir(path("there").c_str(), 0700);
  write("file", "");
  const std::vector<Directory> table{{"", true, "", false},
                                     {"there", true, "", false},
                                     {"file", true, "", false},    // ENOTDIR
                                     {"file/x", true, "", false},  // ENOTDIR, too
                                     {"new/deep", true, "-p " + path("new/deep") + "\n", true},
                                     {"new/deep", true, "", false},
                                     {"never", false, "-p " + path("never") + "\n", true}};
  for (const Directory& row : table) {
    clearLog();
    write("commands", "");
    program("mkdir", "echo \"$@\" >> $here/commands\n" +
                         std::string(row.mkdirWorks ? "PATH=/usr/bin:/bin exec mkdir \"$@\"" : "exit 1"));
    OvpnTnl tunnel(conf("a"));
    if (!row.directory.empty()) tunnel.clientConfigDir = path(row.directory);
    tunnel.restart();
    EXPECT_TRUE(exitedWith(statusOf(tunnel.pid), 0)) << row.directory;
    EXPECT_EQ(read("commands"), row.commands);
    const std::string line =
        "ERROR [TUNNEL_MNGR][OVPN] " + tunnel.clientConfigDir + " didn't exist. it has been created\n";
    EXPECT_EQ(log(), row.logged ? line : "");
  }
  EXPECT_TRUE(exists("new/deep"));
}

TEST_F(Supervision, TheClientConfigDirectoryStandsUnquotedInTheCommand) {
  program("openvpn", "exit 0");
  program("mkdir", "for word in \"$@\"; do echo \"<$word>\"; done > $here/words");
  OvpnTnl tunnel(conf("a"));
  tunnel.clientConfigDir = "absent/one two";
  tunnel.restart();
  EXPECT_TRUE(exitedWith(statusOf(tunnel.pid), 0));
  EXPECT_EQ(read("words"), "<-p>\n<absent/one>\n<two>\n");
}

TEST_F(Supervision, WithoutConfigurationsNothingStarts) {
  program("openvpn", ": > $here/started");
  startOvpnTunnels();
  EXPECT_TRUE(supervisedTunnels.empty());
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);  // no child at all
  EXPECT_EQ(errno, ECHILD);
  EXPECT_FALSE(exists("started"));
}

TEST_F(Supervision, StartsEveryConfigurationAnewAndStopsThemAll) {
  program("openvpn", ": > \"$2.started\"; exec sleep 100");
  Conf::tunnels() = {conf("one"), conf("two"), conf("three")};
  startOvpnTunnels();
  std::vector<pid_t> first;
  std::vector<std::string> files;
  for (const OvpnTnl& tunnel : supervisedTunnels) {
    first.push_back(tunnel.pid);
    files.push_back(tunnel.confFile);
    EXPECT_GT(tunnel.pid, 0);
    EXPECT_TRUE(eventually([&] { return std::filesystem::exists(tunnel.confFile + ".started"); }));
  }
  EXPECT_EQ(files, (std::vector<std::string>{path("one.conf"), path("two.conf"), path("three.conf")}));

  Conf::tunnels() = {conf("two")};
  startOvpnTunnels();
  for (const pid_t pid : first) EXPECT_EQ(kill(pid, 0), -1);
  ASSERT_EQ(supervisedTunnels.size(), 1U);
  EXPECT_EQ(supervisedTunnels.front().confFile, path("two.conf"));
  EXPECT_GT(supervisedTunnels.front().pid, 0);

  supervisedTunnels.emplace_back(conf("idle"));
  stopOvpnTunnels();
  EXPECT_TRUE(supervisedTunnels.empty());
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
  EXPECT_EQ(errno, ECHILD);
}

}  // namespace
