#include "configuration/configuration_pull.h"

#include <gtest/gtest.h>

#include <string>

#include "monitors/fqdn_monitor.h"
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

}  // namespace
