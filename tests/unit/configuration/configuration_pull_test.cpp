#include "configuration/configuration_pull.h"

#include <gtest/gtest.h>
#include <netdb.h>

#include <string>

#include "monitors/fqdn_monitor.h"
#include "monitors/name_resolution.h"
#include "support/logger.h"
#include "tests/unit/harness/api_server.h"
#include "tests/unit/harness/captured_log.h"
#include "tests/unit/harness/child_process.h"
#include "tests/unit/harness/json_document.h"
#include "tests/unit/harness/private_system.h"

namespace {

TEST(CheckPeriodMinutes, isCutTo16BitsAndNeverZero) {
  const struct {
    const char* checkPeriod;
    unsigned int minutes;
  } rows[] = {
      {"null", 1},  // an absent member
      {"0", 1},     {"1", 1},     {"5", 5},        {"65535", 65535},      {"65536", 1},
      {"65537", 1}, {"65538", 2}, {"70000", 4464}, {"4294967295", 65535}, {"4294901760", 1},
      {"5.9", 5},   {"0.5", 1},   {"true", 1},     {"false", 1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.checkPeriod);
    EXPECT_EQ(checkPeriodMinutes(jsonOf(row.checkPeriod)), row.minutes);
  }
}

TEST(CheckPeriodMinutes, throwsForWhatIsNoPeriod) {
  for (const char* checkPeriod : {"-1", "-0.5", "4294967296", "1e10", R"("5")", R"("")", "[]", "{}", "[5]"}) {
    EXPECT_THROW(checkPeriodMinutes(jsonOf(checkPeriod)), Json::LogicError) << checkPeriod;
  }
}

const std::string kGoodRecords =
    R"({"name":"gre","enabled":true,"remoteIp":"203.0.113.7","remoteWanIp":"203.0.113.8","checkPeriod":5},)"
    R"({"name":"off","enabled":false,"remoteIp":"203.0.113.9","remoteWanIp":"203.0.113.9"})";
const std::string kPulling = "INFO Pulling Current Configurations\n";
const std::string kGreLines =
    "INFO [TUNNEL_MNGR] GRE tunnel [203.0.113.7][203.0.113.7] period 5\n"
    "INFO [TUNNEL_MNGR] GRE tunnel [off] disabled\n";
const std::string kIpsecLines =
    "INFO [TUNNEL_MNGR] ipsec tunnel [203.0.113.8][203.0.113.8] period 5\n"
    "INFO [TUNNEL_MNGR] ipsec tunnel [off] disabled\n";

/// Their hosts are collected before any of them is announced, and yet the bad one costs only itself and what is behind.
TEST(PullConfigurations, KeepsWhatStandsBeforeARecordThatIsNoObject) {
  SKIP_WITHOUT_NAMESPACES();
  for (const char* bad : {"5", "5.5", "true", "false", R"("text")", "[]", R"([{"name":"in a list"}])"}) {
    const std::string records = "[" + kGoodRecords + "," + bad + "," + kGoodRecords + "]";
    const struct {
      std::string document;
      std::string log;
      std::size_t monitors;
    } rows[] = {
        {R"({"greTunnels":)" + records + "}", kPulling + kGreLines, 1},
        {R"({"ipsecTunnels":)" + records + "}", kPulling + kIpsecLines, 1},
        {R"({"greTunnels":[)" + kGoodRecords + R"(],"ipsecTunnels":)" + records + "}",
         kPulling + kGreLines + kIpsecLines, 2},
    };
    for (const auto& row : rows) {
      SCOPED_TRACE(row.document);
      checkInChild([&row] {
        enterPrivateMounts();
        const ApiServer api({{"/api?fields=greTunnels,ipsecTunnels,ni", row.document}});
        const CapturedLog log(ZEL::Logger::PrintLevel::TRACE_LEVEL);
        Json::Value gre;
        Json::Value ipsec;
        EXPECT_THROW(pullConfigurations(gre, ipsec), Json::LogicError);
        EXPECT_EQ(log.text(), row.log);
        EXPECT_EQ(v_apFqdnMonitor.size(), row.monitors);
      });
    }
  }
}

/// The document of a router without networks, whose records come with what only the router itself may say.
const std::string kSparseDocument =
    R"({"greTunnels":[)"
    R"({"name":"a b","enabled":true,"remoteIp":"known.example","checkPeriod":5},)"
    R"({"name":"off","enabled":false,"remoteIp":"lost.example"}],)"
    R"("ipsecTunnels":[)"
    R"({"name":"on","enabled":true,"remoteWanIp":"lost.example","checkPeriod":0,"localIpWithCidr":["192.0.2.0/24"]},)"
    R"({"name":"off","enabled":false,"remoteWanIp":"lost.example","localIpWithCidr":["192.0.2.0/24"]}]})";

TEST(PullConfigurations, GivesEveryRecordAnAddressAndEveryEnabledOneAMonitor) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([] {
    enterPrivateMounts();
    const ApiServer api({{"/api?fields=greTunnels,ipsecTunnels,ni", kSparseDocument}});
    const ResolvingNames names([](const std::string& host) {
      return host == "known.example" ? Resolution{"203.0.113.1", 0} : Resolution{"", HOST_NOT_FOUND};
    });
    Json::Value gre;
    Json::Value ipsec;
    ASSERT_TRUE(pullConfigurations(gre, ipsec));
    EXPECT_EQ(textOf(gre), R"([{"checkPeriod":5,"enabled":true,"name":"a_b","remoteIp":"203.0.113.1"},)"
                           R"({"enabled":false,"name":"off","remoteIp":""}])");
    EXPECT_EQ(textOf(ipsec), R"([{"checkPeriod":0,"enabled":true,"localIpWithCidr":[],"name":"on","remoteWanIp":""},)"
                             R"({"enabled":false,"localIpWithCidr":[],"name":"off","remoteWanIp":""}])");

    ASSERT_EQ(v_apFqdnMonitor.size(), 2U);
    const FqdnMonitor& ofGre = *v_apFqdnMonitor[0];
    EXPECT_EQ(ofGre.tunnelName(), "a_b");
    EXPECT_EQ(ofGre.hostName(), "known.example");
    EXPECT_EQ(ofGre.lastAddress(), "203.0.113.1");
    EXPECT_EQ(ofGre.checkInterval(), 300000U);
    const FqdnMonitor& ofIpsec = *v_apFqdnMonitor[1];
    EXPECT_EQ(ofIpsec.tunnelName(), "on");
    EXPECT_EQ(ofIpsec.hostName(), "lost.example");
    EXPECT_EQ(ofIpsec.lastAddress(), "");
    EXPECT_EQ(ofIpsec.checkInterval(), 60000U);
  });
}

}  // namespace
