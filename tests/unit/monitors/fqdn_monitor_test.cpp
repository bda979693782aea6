#include "monitors/fqdn_monitor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "monitors/refresh_request.h"
#include "support/cancellation.h"
#include "support/text.h"
#include "tests/unit/harness/captured_log.h"
#include "tests/unit/harness/child_process.h"
#include "tests/unit/harness/private_system.h"
#include "tests/unit/harness/threads.h"
#include "tests/unit/harness/waiting.h"

namespace {

using testing::HasSubstr;
using testing::Not;

constexpr int kTrace = 100;
constexpr std::uint32_t kAtOnce = 1;
constexpr char kThreadName[] = "FQDN_MONITOR:My";  // as the kernel keeps it

constexpr char kCheck[] = "TRACE [TUNNEL_MNGR][FQDN_MONITOR] tunnel:192.0.2.1 check My_Tunnel \n";
constexpr char kUnchanged[] = "TRACE [TUNNEL_MNGR][FQDN_MONITOR] FQDN has not changed\n";
constexpr char kStop[] = "TRACE [TUNNEL_MNGR][FQDN_MONITOR] tunnel:My_Tunnel stop \n";

std::size_t occurrences(const std::string& text, const std::string& part) {
  return ZEL::Text::split(text, part, 0).size() - 1;
}

class FqdnMonitorTest : public testing::Test {
 protected:
  FqdnMonitorTest() { refreshPending = 0; }
  ~FqdnMonitorTest() override { refreshPending = 0; }

  std::unique_ptr<FqdnMonitor> monitorOf(const std::string& host, const std::string& lastAddress,
                                         std::uint32_t interval) const {
    return std::make_unique<FqdnMonitor>(lock_, condition_, ZEL::AutoPtr<ZEL::Lock>(new ZEL::Lock), host, lastAddress,
                                         "My_Tunnel", interval);
  }

  const std::shared_ptr<ZEL::Lock> lock_ = std::make_shared<ZEL::Lock>();
  const std::shared_ptr<ZEL::Condition> condition_{lock_->createCondition()};
};

TEST_F(FqdnMonitorTest, hasTheValuesThatItIsGiven) {
  const auto monitor = monitorOf("vpn.example", "192.0.2.1", 3932100000U);
  EXPECT_EQ(monitor->name(), "FQDN_MONITOR:My_Tunnel");
  EXPECT_EQ(monitor->hostName(), "vpn.example");
  EXPECT_EQ(monitor->lastAddress(), "192.0.2.1");
  EXPECT_EQ(monitor->tunnelName(), "My_Tunnel");
  EXPECT_EQ(monitor->checkInterval(), 3932100000U);
}

TEST_F(FqdnMonitorTest, keepsItsHandlesAsLongAsItLives) {
  auto monitor = monitorOf("vpn.example", "", kTooLong);
  EXPECT_EQ(lock_.use_count(), 2);
  EXPECT_EQ(condition_.use_count(), 2);
  monitor.reset();
  EXPECT_EQ(lock_.use_count(), 1);
  EXPECT_EQ(condition_.use_count(), 1);
}

TEST_F(FqdnMonitorTest, staysSilentWhileTheAddressIsTheSame) {
  const CapturedLog log(kTrace);
  const auto monitor = monitorOf("192.0.2.1", "192.0.2.1", kAtOnce);
  monitor->start();
  EXPECT_TRUE(eventually([&log] { return occurrences(log.text(), kUnchanged) >= 3; }));
  monitor->stop();
  EXPECT_EQ(refreshPending, 0);
  EXPECT_EQ(monitor->lastAddress(), "192.0.2.1");
  std::string expected;
  for (std::size_t i = 0; i < occurrences(log.text(), kUnchanged); ++i) expected += std::string(kCheck) + kUnchanged;
  // It may have been stopped inside a look-up, whose result it then left alone.
  EXPECT_THAT(log.text(), testing::AnyOf(expected + kStop, expected + kCheck + kStop));
}

TEST_F(FqdnMonitorTest, requestsARefreshWhenTheAddressIsAnother) {
  const struct {
    const char* before;
    const char* line;
  } rows[] = {
      {"192.0.2.9", "[192.0.2.9]=>[192.0.2.1]"},
      {"", "[]=>[192.0.2.1]"},
      {"192.0.2.10", "[192.0.2.10]=>[192.0.2.1]"},
      {"192.0.2.1 ", "[192.0.2.1 ]=>[192.0.2.1]"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.before);
    refreshPending = 0;
    const CapturedLog log(kTrace);
    const auto monitor = monitorOf("192.0.2.1", row.before, kAtOnce);
    monitor->start();
    // After the request it goes on, and finds the address that it has just seen.
    EXPECT_TRUE(eventually([&log] { return occurrences(log.text(), kUnchanged) >= 1; }));
    monitor->stop();
    EXPECT_EQ(refreshPending, 1);
    EXPECT_EQ(monitor->lastAddress(), "192.0.2.1");
    EXPECT_EQ(occurrences(log.text(), "INFO "), 1U);
    EXPECT_THAT(log.text(), HasSubstr("INFO [TUNNEL_MNGR][FQDN_MONITOR] tunnel:My_Tunnel The host [192.0.2.1] has "
                                      "resolved to a new ip address. " +
                                      std::string(row.line) + "\n"));
    const ZEL::LockGuard guard(*lock_);
    EXPECT_LT(timeOf([this] { condition_->wait(kTooLong); }), kDeadline) << "not signalled";
  }
}

TEST_F(FqdnMonitorTest, givesUpItsRequestWhenTheRunStopsIt) {
  const CapturedLog log(kTrace);
  const auto monitor = monitorOf("192.0.2.1", "192.0.2.9", kAtOnce);
  const ZEL::LockGuard run(*lock_);
  monitor->start();
  EXPECT_TRUE(eventually([&log] { return occurrences(log.text(), "INFO ") == 1; }));
  EXPECT_LT(timeOf([&monitor] { monitor->stop(); }), kDeadline);
  EXPECT_EQ(refreshPending, 0);
  EXPECT_THAT(log.text(), testing::EndsWith(kStop));
}

TEST_F(FqdnMonitorTest, makesNoLookUpWhenItsSleepIsCutShort) {
  const CapturedLog log(kTrace);
  const auto monitor = monitorOf("192.0.2.1", "192.0.2.9", kTooLong);
  monitor->start();
  EXPECT_TRUE(eventually([] { return threadSleeps(kThreadName); }));
  EXPECT_LT(timeOf([&monitor] { monitor->stop(); }), kDeadline);
  EXPECT_EQ(log.text(), kStop);
  EXPECT_EQ(refreshPending, 0);
}

TEST_F(FqdnMonitorTest, stopsItselfBeforeItIsGone) {
  const CapturedLog log(kTrace);
  {
    const auto monitor = monitorOf("192.0.2.1", "192.0.2.1", kTooLong);
    monitor->start();
    EXPECT_TRUE(eventually([] { return threadSleeps(kThreadName); }));
  }
  EXPECT_EQ(log.text(), kStop);
}

TEST_F(FqdnMonitorTest, stopsByTheThousandWhileAllOfThemWantARefresh) {
  constexpr std::size_t kMonitors = 1000;
  const CapturedLog log(50);
  std::vector<std::unique_ptr<FqdnMonitor>> monitors;
  for (std::size_t i = 0; i < kMonitors; ++i) monitors.push_back(monitorOf("192.0.2.1", "192.0.2.9", kAtOnce));
  const ZEL::LockGuard run(*lock_);
  for (const auto& monitor : monitors) monitor->start();
  EXPECT_TRUE(eventually([&log] { return occurrences(log.text(), "INFO ") == kMonitors; }));
  stopOneAfterTheOther(monitors);
  EXPECT_EQ(refreshPending, 0);
}

TEST_F(FqdnMonitorTest, treatsANameThatFailsAsHavingNoAddress) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([this] {
    enterPrivateNetwork();
    replaceFile("/etc/hosts", "");
    replaceFile("/etc/nsswitch.conf", "hosts: files\n");
    const CapturedLog log(kTrace);
    const auto monitor = monitorOf("vpn.example", "192.0.2.1", kAtOnce);
    monitor->start();
    EXPECT_TRUE(eventually([&log] { return occurrences(log.text(), kUnchanged) >= 2; }));
    monitor->stop();
    EXPECT_EQ(refreshPending, 1);
    EXPECT_EQ(monitor->lastAddress(), "");
    EXPECT_EQ(occurrences(log.text(), "INFO "), 1U) << "a name that keeps failing changes nothing more";
    EXPECT_THAT(log.text(), HasSubstr("tunnel:My_Tunnel The host [vpn.example] has resolved to a new ip address. "
                                      "[192.0.2.1]=>[]\n"));
    EXPECT_GE(occurrences(log.text(), "WARNING [TUNNEL_MNGR][FQDN_MONITOR] The host [vpn.example] was not found.\n"),
              3U);
  });
}

TEST_F(FqdnMonitorTest, abandonsALookUpThatBlocks) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([this] {
    enterPrivateNetwork();
    replaceFile("/etc/nsswitch.conf", "hosts: dns\n");
    replaceFile("/etc/resolv.conf", "nameserver 127.0.0.1\noptions timeout:30 attempts:2\n");
    const DatagramSocket nameServer = DatagramSocket::ofNameServer();  // listens and never answers
    const CapturedLog log(kTrace);
    {
      const auto monitor = monitorOf("vpn.example", "192.0.2.1", kAtOnce);
      const ZEL::LockGuard run(*lock_);
      monitor->start();
      ASSERT_TRUE(nameServer.receive().has_value()) << "no query came";
      EXPECT_LT(timeOf([&monitor] { monitor->stop(); }), std::chrono::seconds(20)) << "the look-up takes a minute";
      EXPECT_EQ(monitor->lastAddress(), "192.0.2.1");
    }
    EXPECT_EQ(refreshPending, 0);
    EXPECT_EQ(ZEL::Cancellation::callsUnderWay(), 1);
    EXPECT_THAT(log.text(), testing::EndsWith(kStop));
    EXPECT_THAT(log.text(), Not(HasSubstr("WARNING")));
  });
}

TEST(FqdnMonitorList, isEmptyBeforeTheFirstRun) {
  EXPECT_TRUE(v_apFqdnMonitor.empty());
}

}  // namespace
