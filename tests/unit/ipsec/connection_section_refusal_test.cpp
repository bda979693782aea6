// Tunnel records for which there is no conn section, or an exception.
#include <gtest/gtest.h>
#include <json/value.h>

#include <string>
#include <vector>

#include "ipsec/connection_section.h"
#include "support/logger.h"
#include "tests/unit/harness/captured_log.h"
#include "tests/unit/ipsec/sample_tunnel.h"

namespace {

using namespace ipsec_test;
using namespace std::string_literals;

constexpr int kTrace = ZEL::Logger::PrintLevel::TRACE_LEVEL;

const std::string kUnsupportedMethod = "ERROR [TUNNEL_MNGR] Unsupported encryption method.\n";
const std::string kUnsupportedType =
    "WARNING [TUNNEL_MNGR] Error in ipsec config generation. IPSec Connection Type not implemented.\n";
const std::string kUnusableMask = "WARNING [TUNNEL_MNGR] Unable to parse number *null\n*\n";

TEST(ConnectionSectionRefusal, isEmptyForOtherKeyExchanges) {
  const std::vector<Json::Value> types = {Json::Value(),       Json::Value("L2TP"),          Json::Value("ikev2"),
                                          Json::Value("ike"),  Json::Value("IKEv1"),         Json::Value(""),
                                          Json::Value("IKE "), Json::Value("IKE\0"s),        Json::Value(1),
                                          Json::Value(true),   Json::Value(Json::arrayValue)};
  for (const Json::Value& type : types) {
    SCOPED_TRACE(type.toStyledString());
    Json::Value tunnel = sampleWith("type", type);
    tunnel["localIpWithCidr"] = networks({"192.168.2.0/24", "192.168.3.0/24"});
    const CapturedLog log(kTrace);
    EXPECT_EQ(sectionOf(tunnel), "");
    EXPECT_EQ(log.text(), kUnsupportedType) << "once, not for each network";
  }
}

struct Member {
  std::string key;
  Json::Value value;
};

const Json::Value kArray(Json::arrayValue);
const Json::Value kObject(Json::objectValue);

/// Values that cannot be converted, of members that are read before the type is looked at and after it.
const std::vector<Member> kUnreadableBeforeType = {
    {"name", kArray},
    {"remoteWanIp", kObject},
    {"remoteNetworkIp", kArray},
    {"compression", "true"},
    {"compression", ""},
    {"compression", kArray},
    {"aggressiveMode", "yes"},
    {"aggressiveMode", kObject},
    {"encryptMethod", kArray},
    {"encryptMethod", kObject},
    {"remoteNetworkMask", 2147483648U},
};
const std::vector<Member> kUnreadableAfterType = {
    {"phase1", kArray},
    {"phase2", kObject},
    {"ikelife", "3"},
    {"ikelife", ""},
    {"ikelife", -1},
    {"ikelife", -0.5},
    {"ikelife", kArray},
    {"keylife", "1"},
    {"keylife", -1},
    {"retries", "0"},
    {"retries", -1},
    {"ikelife", 4294967296.0},
    {"retries", Json::Value(Json::UInt64{4294967296U})},
};

TEST(ConnectionSectionRefusal, throwsForAMemberThatCannotBeConverted) {
  for (const auto& members : {kUnreadableBeforeType, kUnreadableAfterType}) {
    for (const Member& member : members) {
      SCOPED_TRACE(member.key + ": " + member.value.toStyledString());
      EXPECT_THROW(sectionOf(sampleWith(member.key, member.value)), Json::LogicError);
    }
  }
}

TEST(ConnectionSectionRefusal, looksAtTheTypeAfterTheFlagsAndBeforeTheProposals) {
  for (const Member& member : kUnreadableBeforeType) {
    SCOPED_TRACE(member.key + ": " + member.value.toStyledString());
    Json::Value tunnel = sampleWith(member.key, member.value);
    tunnel["type"] = "L2TP";
    EXPECT_THROW(sectionOf(tunnel), Json::LogicError);
  }
  for (const Member& member : kUnreadableAfterType) {
    SCOPED_TRACE(member.key + ": " + member.value.toStyledString());
    Json::Value tunnel = sampleWith(member.key, member.value);
    tunnel["type"] = "L2TP";
    EXPECT_EQ(sectionOf(tunnel), "");
  }
}

TEST(ConnectionSectionRefusal, readsTheMaskThoughThePeersNetworkIsAny) {
  Json::Value tunnel = sampleWith("remoteNetworkIp", "Any");
  tunnel["remoteNetworkMask"] = 2147483648U;
  EXPECT_THROW(sectionOf(tunnel), Json::LogicError);
}

TEST(ConnectionSectionRefusal, throwsForNetworksThatCannotBeRead) {
  Json::Value object;
  object["first"] = "192.168.2.0/24";
  EXPECT_THROW(sectionOf(sampleWith("localIpWithCidr", object)), Json::LogicError);
  Json::Value nested(Json::arrayValue);
  nested.append(Json::Value(Json::arrayValue));
  EXPECT_THROW(sectionOf(sampleWith("localIpWithCidr", nested)), Json::LogicError);
}

TEST(ConnectionSectionRefusal, throwsForARecordThatIsNone) {
  for (const Json::Value& record :
       {Json::Value(5), Json::Value("text"), Json::Value(true), Json::Value(Json::arrayValue)})
    EXPECT_THROW(sectionOf(record), Json::LogicError);
}

TEST(ConnectionSectionRefusal, readsTheMaskBeforeTheTypeAndTheLifetimesAfterTheProposals) {
  Json::Value tunnel = sampleWithout("remoteNetworkMask");
  tunnel["type"] = "L2TP";
  {
    const CapturedLog log(kTrace);
    EXPECT_EQ(sectionOf(tunnel), "");
    EXPECT_EQ(log.text(), kUnusableMask + kUnsupportedType);
  }
  tunnel["type"] = "IKE";
  tunnel["encryptMethod"] = "des";
  tunnel["ikelife"] = "3";
  const CapturedLog log(kTrace);
  EXPECT_THROW(sectionOf(tunnel), Json::LogicError);
  EXPECT_EQ(log.text(), kUnusableMask + kUnsupportedMethod + kUnsupportedMethod);
}

}  // namespace
