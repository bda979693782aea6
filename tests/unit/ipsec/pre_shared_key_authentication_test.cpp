#include "ipsec/pre_shared_key_authentication.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/logger.h"
#include "tests/unit/harness/captured_log.h"

namespace {

constexpr int kTrace = ZEL::Logger::PrintLevel::TRACE_LEVEL;

Json::Value tunnel(const Json::Value& uid, const Json::Value& localId, const Json::Value& remoteId) {
  Json::Value record;
  record["remoteWanIp"] = "10.0.0.9";
  record["uid"] = uid;
  record["localId"] = localId;
  record["remoteId"] = remoteId;
  return record;
}

TEST(PreSharedKeyAuthentication, namesTheEndsByAddressOrByIdentity) {
  struct Case {
    Json::Value uid;
    Json::Value localId;
    Json::Value remoteId;
    std::string authLines;
    std::string secretsLine;
  };
  const Json::Value absent;
  const std::string byAddress = "\"10.0.0.2\" \"10.0.0.9\" : PSK \"K\"\n";
  const std::string secret = "\tauthby=secret\n";
  const std::vector<Case> rows = {
      {false, "me", "peer", secret, byAddress},
      {absent, "me", "peer", secret, byAddress},
      {0, absent, absent, secret, byAddress},
      {true, "me", "peer", secret + "\tleftid=\"me\"\n\trightid=\"peer\"\n", "\"me\" \"peer\" : PSK \"K\"\n"},
      {true, "", "peer", secret + "\tleftid=\"\"\n\trightid=\"peer\"\n", "\"\" \"peer\" : PSK \"K\"\n"},
      {true, "me", "", secret + "\tleftid=\"me\"\n\trightid=\"\"\n", "\"me\" \"\" : PSK \"K\"\n"},
      {true, absent, absent, secret + "\tleftid=\"\"\n\trightid=\"\"\n", "\"\" \"\" : PSK \"K\"\n"},
      {1, "me", 7, secret + "\tleftid=\"me\"\n\trightid=\"7\"\n", "\"me\" \"7\" : PSK \"K\"\n"},
      {true, "a\"b", "c", secret + "\tleftid=\"a\"b\"\n\trightid=\"c\"\n", "\"a\"b\" \"c\" : PSK \"K\"\n"},
  };
  for (const Case& row : rows) {
    SCOPED_TRACE(row.secretsLine);
    const PskIdentities identities = readPskIdentities(tunnel(row.uid, row.localId, row.remoteId), "10.0.0.2");
    EXPECT_EQ(pskAuthLines(identities), row.authLines);
    EXPECT_EQ(pskSecretsLine(identities, "K"), row.secretsLine);
  }
}

TEST(PreSharedKeyAuthentication, takesThePeersAddressAsTheRecordHasIt) {
  Json::Value record;
  EXPECT_EQ(pskSecretsLine(readPskIdentities(record, "10.0.0.2"), "K"), "\"10.0.0.2\" \"\" : PSK \"K\"\n");
  record["remoteWanIp"] = "Any";
  EXPECT_EQ(pskSecretsLine(readPskIdentities(record, "10.0.0.2"), "K"), "\"10.0.0.2\" \"Any\" : PSK \"K\"\n");
}

TEST(PreSharedKeyAuthentication, writesTheKeyAsItIs) {
  const PskIdentities identities{false, "10.0.0.2", "10.0.0.9"};
  for (const std::string key : {"", "K", "a\"b", " a\\b ", "a\nb"})
    EXPECT_EQ(pskSecretsLine(identities, key), "\"10.0.0.2\" \"10.0.0.9\" : PSK \"" + key + "\"\n");
}

TEST(PreSharedKeyAuthentication, throwsForAnIdentityThatCannotBeConverted) {
  const Json::Value array(Json::arrayValue);
  EXPECT_THROW(readPskIdentities(tunnel("true", "", ""), "10.0.0.2"), Json::LogicError);
  EXPECT_THROW(readPskIdentities(tunnel(true, array, ""), "10.0.0.2"), Json::LogicError);
  EXPECT_THROW(readPskIdentities(tunnel(true, "", array), "10.0.0.2"), Json::LogicError);
  Json::Value noPeer = tunnel(true, "", "");
  noPeer["remoteWanIp"] = array;
  EXPECT_THROW(readPskIdentities(noPeer, "10.0.0.2"), Json::LogicError) << "the address is read in any case";
}

TEST(PreSharedKeyAuthentication, readsIdentitiesOnlyWhereTheyAreUsed) {
  const Json::Value array(Json::arrayValue);
  EXPECT_EQ(pskAuthLines(readPskIdentities(tunnel(false, array, array), "10.0.0.2")), "\tauthby=secret\n");
}

/// A tunnel without sections is none: no file is opened, and the key is not read.
TEST(PreSharedKeyAuthentication, failsWithoutALocalNetwork) {
  Json::Value record = tunnel(false, "", "");
  record["psk"] = Json::Value(Json::arrayValue);
  const CapturedLog log(kTrace);
  EXPECT_FALSE(configurePskTunnel(record, "10.0.0.2"));
  EXPECT_EQ(log.text(), "");
}

TEST(PreSharedKeyAuthentication, failsForATypeThatIsNotSupported) {
  Json::Value record = tunnel(false, "", "");
  record["localIpWithCidr"].append("192.168.2.0/24");
  record["remoteNetworkMask"] = 24;
  record["type"] = "L2TP";
  const CapturedLog log(kTrace);
  EXPECT_FALSE(configurePskTunnel(record, "10.0.0.2"));
  EXPECT_EQ(log.text(),
            "WARNING [TUNNEL_MNGR] Error in ipsec config generation. IPSec Connection Type not implemented.\n");
}

}  // namespace
