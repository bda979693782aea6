// What supervision does, and in which order and time. The acts are noted, and only pauses take time.

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <string>
#include <vector>

#include "effects/noting_effects.h"
#include "openvpn/supervision.h"
#include "support/logger.h"
#include "tests/unit/harness/act_text.h"
#include "tests/unit/harness/captured_log.h"

namespace {

using Lines = std::vector<std::string>;

/// A child that ends some time after it was first asked to. Only pauses take time.
class SlowChild : public NotingEffects {
 public:
  explicit SlowChild(std::chrono::milliseconds takes) : takes_(takes) {}

  bool signalProcess(pid_t process, int signal) override {
    EXPECT_EQ(process, kPid);
    EXPECT_EQ(signal, SIGTERM);
    asked.push_back(std::chrono::duration_cast<std::chrono::milliseconds>(now() - begin_));
    return true;
  }
  ChildState lookAtChild(pid_t) override { return now() - begin_ >= takes_ ? ChildState::kGone : ChildState::kRunning; }
  std::chrono::milliseconds lifetime() { return std::chrono::duration_cast<std::chrono::milliseconds>(now() - begin_); }

  static constexpr pid_t kPid = 4711;
  std::vector<std::chrono::milliseconds> asked;

 private:
  const std::chrono::milliseconds takes_;
  const std::chrono::steady_clock::time_point begin_ = now();
};

TEST(SupervisionActs, StopAsksOnceASecondAndSeesTheEndWithinMilliseconds) {
  using std::chrono::milliseconds;
  const struct {
    int takes;
    std::size_t asked;
  } rows[] = {{0, 1}, {5, 1}, {995, 1}, {1005, 2}, {2500, 3}, {59995, 60}};
  for (const auto& row : rows) {
    SlowChild child{milliseconds(row.takes)};
    const ActingAs as(child);
    OvpnTnl tunnel{OvpnConf()};
    tunnel.pid = SlowChild::kPid;
    tunnel.stop();
    EXPECT_EQ(tunnel.pid, 0);
    ASSERT_EQ(child.asked.size(), row.asked) << row.takes;
    for (std::size_t i = 0; i < child.asked.size(); ++i) EXPECT_EQ(child.asked[i], milliseconds(1000 * i));
    EXPECT_LE(child.lifetime(), milliseconds(row.takes + 10));
  }
}

/// Sees what the log holds when a command is run.
class LogReader : public NotingEffects {
 public:
  int run(const std::string& command) override {
    logAtCommand = log.text();
    return NotingEffects::run(command);
  }
  bool followParentIntoDeath() override {
    NotingEffects::followParentIntoDeath();
    return follows;
  }
  bool becomeProgram(const char* const* arguments) override {
    NotingEffects::becomeProgram(arguments);
    return becomes;
  }

  const CapturedLog log{ZEL::Logger::PrintLevel::ERROR_LEVEL};
  std::string logAtCommand;
  bool follows = true;
  bool becomes = true;
};

const std::string kBecomes = "child 1: become openvpn --config /c --status /s 1 --syslog openvpn";
const std::string kCreated = "ERROR [TUNNEL_MNGR][OVPN] /absent/clients didn't exist. it has been created\n";

TEST(SupervisionActs, AChildFollowsItsParentThenCreatesItsDirectoryThenSaysSoThenBecomesOpenvpn) {
  LogReader reader;
  const ActingAs as(reader);
  OvpnTnl tunnel(OvpnConf{"a", "/c", "/s", "/n", "/absent/clients", "", false});
  EXPECT_TRUE(tunnel.restart());
  EXPECT_EQ(textsOf(reader.acts),
            (Lines{"start child 1", "child 1: follow the parent", "child 1: run mkdir -p /absent/clients", kBecomes}));
  EXPECT_EQ(reader.logAtCommand, "") << "the line came before its command";
  EXPECT_EQ(reader.log.text(), kCreated);
}

TEST(SupervisionActs, AChildLeavesTheDirectoryAloneThatItNeedsNotOrThatIsThere) {
  for (const char* directory : {"", "/"}) {
    LogReader reader;
    const ActingAs as(reader);
    OvpnTnl tunnel(OvpnConf{"a", "/c", "/s", "/n", directory, "", false});
    EXPECT_TRUE(tunnel.restart());
    EXPECT_EQ(textsOf(reader.acts), (Lines{"start child 1", "child 1: follow the parent", kBecomes}));
    EXPECT_EQ(reader.log.text(), "");
  }
}

TEST(SupervisionActs, AChildThatCannotFollowItsParentDoesNothingMore) {
  LogReader reader;
  reader.follows = false;
  const ActingAs as(reader);
  OvpnTnl tunnel(OvpnConf{"a", "/c", "/s", "/n", "/absent/clients", "", false});
  EXPECT_TRUE(tunnel.restart());
  EXPECT_EQ(textsOf(reader.acts), (Lines{"start child 1", "child 1: follow the parent"}));
  EXPECT_EQ(reader.log.text(),
            "ERROR [TUNNEL_MNGR][OVPN] failed setup notify 'perent terminated' in OvpnTnl restart\n");
}

TEST(SupervisionActs, AChildThatCannotBecomeOpenvpnSaysSo) {
  LogReader reader;
  reader.becomes = false;
  const ActingAs as(reader);
  OvpnTnl tunnel(OvpnConf{"a", "/c", "/s", "/n", "", "", false});
  EXPECT_TRUE(tunnel.restart());
  EXPECT_EQ(reader.log.text(), "ERROR [TUNNEL_MNGR][OVPN] failed exec openvpn\n");
}

}  // namespace
