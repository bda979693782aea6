#include "openvpn/connectivity_check.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "openvpn/supervision.h"
#include "tests/unit/openvpn/workshop.h"

namespace {

/// Tunnels whose openvpn stays, and a ping that notes its arguments and ends as it is told to.
class ConnectivityCheck : public Workshop {
 protected:
  void SetUp() override {
    Workshop::SetUp();
    program("openvpn", "echo started >> \"$2.started\"; exec sleep 100");
    pingEndsWith(0);
  }

  void pingEndsWith(int status) { program("ping", "echo \"$@\" >> $here/pings; exit " + std::to_string(status)); }

  OvpnConf pointToPoint(const std::string& name, const std::string& address) const {
    OvpnConf result = conf(name);
    result.pingAddress = address;
    result.pingCheck = true;
    return result;
  }

  /// Starts the tunnels and waits until their programs run. Fatal when they do not, since a test may signal them.
  void start(std::list<OvpnConf> tunnels) {
    Conf::tunnels() = std::move(tunnels);
    startOvpnTunnels();
    for (const OvpnConf& tunnel : Conf::tunnels()) ASSERT_TRUE(waitForStarts(tunnel.name, 1));
  }

  bool waitForStarts(const std::string& name, std::size_t count) const {
    const std::string line = "started\n";
    return eventually([&] { return read(name + ".conf.started").size() == count * line.size(); });
  }
};

TEST_F(ConnectivityCheck, ComposesOneCommand) {
  EXPECT_EQ(pingCommand("10.8.0.2"), "ping -c 3 10.8.0.2");
  EXPECT_EQ(pingCommand("a;b c"), "ping -c 3 a;b c");
}

TEST_F(ConnectivityCheck, RecordsWhetherTheFarEndAnswers) {
  ASSERT_NO_FATAL_FAILURE(start({pointToPoint("a", "10.8.0.2")}));
  const pid_t child = supervisedTunnels.front().pid;
  for (const int status : {0, 1, 0, 2, 127}) {
    pingEndsWith(status);
    write("pings", "");
    clearLog();
    checkOvpnTunnels();
    EXPECT_EQ(read("pings"), "-c 3 10.8.0.2\n");
    EXPECT_TRUE(exists("a.connect"));
    EXPECT_EQ(read("a.connect"), status == 0 ? "connected" : "") << status;
    EXPECT_EQ(log(), "ERROR [TUNNEL_MNGR][OVPN] ping 10.8.0.2\n");
  }
  EXPECT_EQ(supervisedTunnels.front().pid, child);
  EXPECT_TRUE(supervisedTunnels.front().isRunning());
}

TEST_F(ConnectivityCheck, CountsAPingThatDoesNotExistAsFailed) {
  ASSERT_NO_FATAL_FAILURE(start({pointToPoint("a", "10.8.0.2")}));
  write("a.connect", "something that was there before");
  const std::string before = getenv("PATH");
  setenv("PATH", path("empty").c_str(), 1);
  checkOvpnTunnels();
  setenv("PATH", before.c_str(), 1);
  EXPECT_EQ(read("a.connect"), "");
}

TEST_F(ConnectivityCheck, PingsOnlyPointToPointTunnelsWithAnAddress) {
  OvpnConf certificates = pointToPoint("certificates", "10.8.0.2");
  certificates.pingCheck = false;
  ASSERT_NO_FATAL_FAILURE(start({certificates, pointToPoint("addressless", "")}));
  write("addressless.connect", "old");
  checkOvpnTunnels();
  EXPECT_FALSE(exists("pings"));
  EXPECT_FALSE(exists("certificates.connect"));
  EXPECT_EQ(read("addressless.connect"), "old");
  EXPECT_EQ(log(), "");
}

TEST_F(ConnectivityCheck, RestartsWhatDoesNotRunAndPingsItInTheNextPass) {
  ASSERT_NO_FATAL_FAILURE(start({pointToPoint("dead", "10.8.0.2"), pointToPoint("alive", "10.8.0.3")}));
  supervisedTunnels.emplace_back(pointToPoint("idle", "10.8.0.4"));
  OvpnTnl& dead = supervisedTunnels.front();
  const pid_t before = dead.pid;
  const pid_t alive = std::next(supervisedTunnels.begin())->pid;
  kill(before, SIGKILL);
  ASSERT_TRUE(waitForZombie(before));

  checkOvpnTunnels();
  EXPECT_EQ(read("pings"), "-c 3 10.8.0.3\n");
  EXPECT_FALSE(exists("dead.connect"));
  EXPECT_FALSE(exists("idle.connect"));
  EXPECT_GT(dead.pid, 0);
  EXPECT_NE(dead.pid, before);
  EXPECT_EQ(std::next(supervisedTunnels.begin())->pid, alive);
  EXPECT_GT(supervisedTunnels.back().pid, 0);
  EXPECT_TRUE(waitForStarts("dead", 2));
  EXPECT_TRUE(waitForStarts("idle", 1));
  EXPECT_TRUE(waitForStarts("alive", 1));

  write("pings", "");
  checkOvpnTunnels();
  EXPECT_EQ(read("pings"), "-c 3 10.8.0.2\n-c 3 10.8.0.3\n-c 3 10.8.0.4\n");
}

TEST_F(ConnectivityCheck, BringsAMissingProgramBackInEveryPass) {
  Conf::tunnels() = {pointToPoint("a", "10.8.0.2")};
  std::filesystem::remove(path("openvpn"));
  setenv("PATH", path("").c_str(), 1);
  startOvpnTunnels();
  for (int pass = 0; pass < 3; ++pass) {
    const pid_t child = supervisedTunnels.front().pid;
    ASSERT_TRUE(waitForZombie(child));
    EXPECT_EQ(log(), "ERROR [TUNNEL_MNGR][OVPN] failed exec openvpn\n");
    clearLog();
    checkOvpnTunnels();
    EXPECT_NE(supervisedTunnels.front().pid, child);
  }
  EXPECT_FALSE(exists("pings"));
}

TEST_F(ConnectivityCheck, GoesOnWhenAConnectFileCannotBeOpened) {
  OvpnConf unwritable = pointToPoint("a", "10.8.0.2");
  unwritable.connectFile = path("absent/connect");
  ASSERT_NO_FATAL_FAILURE(start({unwritable, pointToPoint("b", "10.8.0.3")}));
  checkOvpnTunnels();
  EXPECT_EQ(read("pings"), "-c 3 10.8.0.2\n-c 3 10.8.0.3\n");
  EXPECT_EQ(read("b.connect"), "connected");
}

int tunnelsLeft = 0;  ///< how many the pass may look at before it is to give way

TEST_F(ConnectivityCheck, GivesWayBetweenTwoTunnels) {
  ASSERT_NO_FATAL_FAILURE(start({pointToPoint("a", "10.8.0.2"), pointToPoint("b", "10.8.0.3"), conf("c")}));
  for (const int most : {0, 1, 2, 3}) {
    write("pings", "");
    tunnelsLeft = most;
    checkOvpnTunnels([] { return tunnelsLeft-- == 0; });
    const std::string pings[] = {"", "-c 3 10.8.0.2\n", "-c 3 10.8.0.2\n-c 3 10.8.0.3\n"};
    EXPECT_EQ(read("pings"), pings[std::min(most, 2)]) << most;
  }
  OvpnTnl& last = supervisedTunnels.back();
  last.stop();
  tunnelsLeft = 2;
  checkOvpnTunnels([] { return tunnelsLeft-- == 0; });
  EXPECT_EQ(last.pid, 0) << "a tunnel behind the end of the pass was restarted";
}

TEST_F(ConnectivityCheck, HasNothingToDoWithoutTunnels) {
  checkOvpnTunnels();
  EXPECT_TRUE(supervisedTunnels.empty());
  EXPECT_EQ(log(), "");
}

}  // namespace
