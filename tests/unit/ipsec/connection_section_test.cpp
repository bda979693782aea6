#include "ipsec/connection_section.h"

#include <gtest/gtest.h>
#include <json/value.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "support/logger.h"
#include "support/text.h"
#include "tests/unit/harness/captured_log.h"
#include "tests/unit/ipsec/sample_tunnel.h"

namespace {

using namespace ipsec_test;
using namespace std::string_literals;

constexpr int kTrace = ZEL::Logger::PrintLevel::TRACE_LEVEL;

const std::string kUnsupportedMethod = "ERROR [TUNNEL_MNGR] Unsupported encryption method.\n";
const std::string kUnusableMask = "WARNING [TUNNEL_MNGR] Unable to parse number *null\n*\n";
const std::string kSha2Error =
    "ERROR [TUNNEL_MNGR] Unsupported hash value = sha2 (need use sha2_256 or sha2_512, set sha2_256).\n";

/// The sample with the line that begins like `line` replaced by it.
std::string sampleWithLine(const std::string& line) {
  const std::string beginning = "\n" + line.substr(0, line.find('=') + 1);
  const std::size_t start = kSample.find(beginning);
  if (start == std::string::npos) throw std::logic_error("no such line: " + line);
  return kSample.substr(0, start + 1) + line + kSample.substr(kSample.find('\n', start + 1));
}

struct LineCase {
  std::string key;
  Json::Value value;
  std::string line;
};

/// Each value changes nothing but its own line, without a word in the log.
void expectLines(const std::vector<LineCase>& rows) {
  const CapturedLog log(kTrace);
  for (const LineCase& row : rows) {
    SCOPED_TRACE(row.key + ": " + row.value.toStyledString());
    EXPECT_EQ(sectionOf(sampleWith(row.key, row.value)), sampleWithLine(row.line));
  }
  EXPECT_EQ(log.text(), "");
}

TEST(ConnectionSection, isCompleteForTheSample) {
  const CapturedLog log(kTrace);
  EXPECT_EQ(sectionOf(sampleTunnel()), kSample);
  EXPECT_EQ(log.text(), "");
}

TEST(ConnectionSection, takesTheLocalAddressAndTheAuthenticationLinesAsTheyAre) {
  const std::string sample = ZEL::Text::replace(kSample, "\tleft=10.0.0.2\n", "\tleft=somewhere\n");
  EXPECT_EQ(buildConnSection(sampleTunnel(), "somewhere", "\tauthby=rsasig\n\tno line feed"),
            ZEL::Text::replace(sample, "\tauthby=secret\n", "\tauthby=rsasig\n\tno line feed"));
  EXPECT_EQ(buildConnSection(sampleTunnel(), "somewhere", ""), ZEL::Text::replace(sample, "\tauthby=secret\n", ""));
}

TEST(ConnectionSection, isWrittenForEveryLocalNetworkTheLastFirst) {
  const auto sampleFor = [](const std::string& name, const std::string& network) {
    const std::string named = ZEL::Text::replace(kSample, "office_192_168_2_0_24", name);
    return ZEL::Text::replace(named, "leftsubnet=192.168.2.0/24", "leftsubnet=" + network);
  };
  const Json::Value tunnel =
      sampleWith("localIpWithCidr", networks({"192.168.2.0/24", "10.1.0.0/16", "172.16.5.128/25"}));
  EXPECT_EQ(sectionOf(tunnel), sampleFor("office_172_16_5_128_25", "172.16.5.128/25") +
                                   sampleFor("office_10_1_0_0_16", "10.1.0.0/16") + kSample);
}

TEST(ConnectionSection, isWrittenForAThousandLocalNetworks) {
  Json::Value list(Json::arrayValue);
  std::string expected;
  for (int i = 0; i < 1000; ++i) {
    const std::string network = "10." + std::to_string(i / 250) + "." + std::to_string(i % 250) + ".0/24";
    list.append(network);
    const std::string named =
        ZEL::Text::replace(kSample, "conn office_192_168_2_0_24", "conn " + makeConnName("office", network));
    expected.insert(0, ZEL::Text::replace(named, "leftsubnet=192.168.2.0/24", "leftsubnet=" + network));
  }
  EXPECT_EQ(sectionOf(sampleWith("localIpWithCidr", list)), expected);
}

TEST(ConnectionSection, isEmptyWithoutALocalNetwork) {
  const CapturedLog log(kTrace);
  EXPECT_EQ(sectionOf(sampleWithout("localIpWithCidr")), "");
  for (const Json::Value& none : {Json::Value(), Json::Value(Json::arrayValue), Json::Value(Json::objectValue),
                                  Json::Value("192.168.2.0/24"), Json::Value(24), Json::Value(true)}) {
    EXPECT_EQ(sectionOf(sampleWith("localIpWithCidr", none)), "");
  }
  EXPECT_EQ(sectionOf(Json::Value()), "");
  EXPECT_EQ(log.text(), "");
}

TEST(ConnectionSection, readsNothingElseWithoutALocalNetwork) {
  Json::Value tunnel = sampleWithout("localIpWithCidr");
  for (const std::string& key : tunnel.getMemberNames()) tunnel[key] = Json::Value(Json::arrayValue);
  EXPECT_EQ(sectionOf(tunnel), "");
}

TEST(ConnectionSection, writesAbsentMembersAsEmptyOnes) {
  Json::Value tunnel;
  tunnel["localIpWithCidr"] = networks({""});
  tunnel["type"] = "IKEv2";
  const CapturedLog log(kTrace);
  EXPECT_EQ(buildConnSection(tunnel, "", ""),
            "\n"
            "conn _\n"
            "\tleft=\n"
            "\tleftsubnet=\n"
            "\tright=\n"
            "\trightsubnet=/\n"
            "\tauto=start\n"
            "\tdpddelay=60\n"
            "\tdpdtimeout=120\n"
            "\tdpdaction=restart\n"
            "\tcompress=no\n"
            "\taggressive=no\n"
            "\tike=\n"
            "\tesp=\n"
            "\tikelifetime=0h\n"
            "\tkeylife=0h\n"
            "\tkeyingtries=%forever\n"
            "\tkeyexchange=ikev2\n");
  EXPECT_EQ(log.text(), kUnusableMask + kUnsupportedMethod);
}

TEST(ConnectionSection, namesThePeer) {
  expectLines({
      {"remoteWanIp", "Any", "\tright=%any"},
      {"remoteWanIp", "any", "\tright=any"},
      {"remoteWanIp", "ANY", "\tright=ANY"},
      {"remoteWanIp", "Any ", "\tright=Any "},
      {"remoteWanIp", "", "\tright="},
      {"remoteWanIp", Json::Value(), "\tright="},
      {"remoteWanIp", "%any", "\tright=%any"},
  });
}

TEST(ConnectionSection, namesThePeersNetwork) {
  expectLines({
      {"remoteNetworkIp", "Any", "\trightsubnet=%any"},
      {"remoteNetworkIp", "any", "\trightsubnet=any/24"},
      {"remoteNetworkIp", "", "\trightsubnet=/24"},
      {"remoteNetworkMask", 24, "\trightsubnet=192.168.9.0/24"},
      {"remoteNetworkMask", "24", "\trightsubnet=192.168.9.0/24"},
      {"remoteNetworkMask", 24.9, "\trightsubnet=192.168.9.0/24"},
      {"remoteNetworkMask", -1, "\trightsubnet=192.168.9.0/-1"},
      {"remoteNetworkMask", "", "\trightsubnet=192.168.9.0/"},
      {"remoteNetworkMask", "255.255.255.0", "\trightsubnet=192.168.9.0/255.255.255.0"},
  });
}

TEST(ConnectionSection, saysThatAMaskIsOfNoUse) {
  for (const Json::Value& mask :
       {Json::Value(), Json::Value(true), Json::Value(Json::arrayValue), Json::Value(Json::objectValue)}) {
    SCOPED_TRACE(mask.toStyledString());
    const std::string warning = "WARNING [TUNNEL_MNGR] Unable to parse number *" + mask.toStyledString() + "*\n";
    Json::Value tunnel = sampleWith("remoteNetworkMask", mask);
    {
      const CapturedLog log(kTrace);
      EXPECT_EQ(sectionOf(tunnel), sampleWithLine("\trightsubnet=192.168.9.0/"));
      EXPECT_EQ(log.text(), warning);
    }
    tunnel["remoteNetworkIp"] = "Any";
    const CapturedLog log(kTrace);
    EXPECT_EQ(sectionOf(tunnel), sampleWithLine("\trightsubnet=%any")) << "the mask is read all the same";
    EXPECT_EQ(log.text(), warning);
  }
}

TEST(ConnectionSection, writesFlagsAsYesAndNo) {
  expectLines({
      {"compression", true, "\tcompress=yes"},
      {"compression", 1, "\tcompress=yes"},
      {"compression", 0.5, "\tcompress=yes"},
      {"compression", 0, "\tcompress=no"},
      {"compression", Json::Value(), "\tcompress=no"},
      {"aggressiveMode", true, "\taggressive=yes"},
      {"aggressiveMode", 1, "\taggressive=yes"},
      {"aggressiveMode", 0, "\taggressive=no"},
      {"aggressiveMode", Json::Value(), "\taggressive=no"},
  });
}

TEST(ConnectionSection, writesNumbersAsDecimals) {
  expectLines({
      {"ikelife", Json::Value(), "\tikelifetime=0h"},
      {"ikelife", 24, "\tikelifetime=24h"},
      {"ikelife", 1234567, "\tikelifetime=1234567h"},
      {"ikelife", 4294967295U, "\tikelifetime=4294967295h"},
      {"ikelife", 1.9, "\tikelifetime=1h"},
      {"ikelife", true, "\tikelifetime=1h"},
      {"keylife", Json::Value(), "\tkeylife=0h"},
      {"keylife", 4294967295U, "\tkeylife=4294967295h"},
      {"retries", Json::Value(), "\tkeyingtries=%forever"},
      {"retries", false, "\tkeyingtries=%forever"},
      {"retries", 0.9, "\tkeyingtries=%forever"},
      {"retries", 5, "\tkeyingtries=5"},
      {"retries", 4294967295U, "\tkeyingtries=4294967295"},
  });
}

TEST(ConnectionSection, writesTheKeyExchange) {
  expectLines({
      {"type", "IKE", "\tkeyexchange=ikev1"},
      {"type", "IKEv2", "\tkeyexchange=ikev2"},
  });
}

TEST(ConnectionSection, fallsBackOnTheEncryptionMethod) {
  struct Case {
    std::string method;
    std::string ike;
    std::string esp;
  };
  const std::vector<Case> rows = {
      {"3des", "3des-md5-modp1536,3des-sha1-modp1536,3des-md5-modp1024,3des-sha1-modp1024", "3des-md5,3des-sha1"},
      {"aes128", "aes128-md5-modp1536,aes128-sha1-modp1536,aes128-md5-modp1024,aes128-sha1-modp1024",
       "aes128-md5,aes128-sha1"},
      {"aes192", "aes192-md5-modp1536,aes192-sha1-modp1536,aes192-md5-modp1024,aes192-sha1-modp1024",
       "aes192-md5,aes192-sha1"},
      {"aes256", "aes256-md5-modp1536,aes256-sha1-modp1536,aes256-md5-modp1024,aes256-sha1-modp1024",
       "aes256-md5,aes256-sha1"},
  };
  const CapturedLog log(kTrace);
  for (const Case& row : rows) {
    const std::string section = sectionOf(sampleWith("encryptMethod", row.method));
    EXPECT_NE(section.find("\n\tike=" + row.ike + "\n\tesp=" + row.esp + "\n"), std::string::npos) << section;
  }
  EXPECT_EQ(log.text(), "");
}

/// What a section says of proposals, and what the log does.
void expectProposals(const Json::Value& phase1, const Json::Value& phase2, const Json::Value& method,
                     const std::string& ike, const std::string& esp, const std::string& messages) {
  SCOPED_TRACE(phase1.toStyledString() + phase2.toStyledString() + method.toStyledString());
  Json::Value tunnel = sampleTunnel();
  tunnel["phase1"] = phase1;
  tunnel["phase2"] = phase2;
  tunnel["encryptMethod"] = method;
  const CapturedLog log(kTrace);
  const std::string section = sectionOf(tunnel);
  EXPECT_EQ(log.text(), messages);
  EXPECT_NE(section.find("\n\tike=" + ike + "\n\tesp=" + esp + "\n\tikelifetime=3h\n"), std::string::npos) << section;
}

TEST(ConnectionSection, prefersThePhaseTexts) {
  expectProposals("aes256-sha1;modp2048", "3des-md5;dh22", "aes128", "aes256-sha1-modp2048", "3des-md5-modp1024s160",
                  "");
  expectProposals("aes256-sha1", "3des-md5", "", "aes256-sha1-modp1536,aes256-sha1-modp1024", "3des-md5", "");
  expectProposals("aes256-sha1", "3des-md5", "des", "aes256-sha1-modp1536,aes256-sha1-modp1024", "3des-md5", "");
  expectProposals("aes256-sha2", "3des-sha2", "aes128", "aes256-sha2_256-modp1536,aes256-sha2_256-modp1024",
                  "3des-sha2_256", kSha2Error + kSha2Error);
}

TEST(ConnectionSection, doesNotFallBackFromAPhaseTextThatGivesNothing) {
  expectProposals("modp2048", "dh24", "aes128", "", "", "");
  expectProposals("aes256-sha1-modp1024", "aes256-sha1-modp1024", "aes128", "", "", "");
}

TEST(ConnectionSection, fallsBackForEachSideOnItsOwn) {
  const std::string ike = "3des-md5-modp1536,3des-sha1-modp1536,3des-md5-modp1024,3des-sha1-modp1024";
  expectProposals("", "aes256-sha1", "3des", ike, "aes256-sha1", "");
  expectProposals("aes256-sha1;modp1024", "", "3des", "aes256-sha1-modp1024", "3des-md5,3des-sha1", "");
  expectProposals("", "", "3des", ike, "3des-md5,3des-sha1", "");
  expectProposals(Json::Value(), Json::Value(), "3des", ike, "3des-md5,3des-sha1", "");
}

TEST(ConnectionSection, reportsAMissingMethodForEspOnly) {
  expectProposals("", "", "", "", "", kUnsupportedMethod);
  expectProposals(Json::Value(), Json::Value(), Json::Value(), "", "", kUnsupportedMethod);
  expectProposals("", "aes256-sha1", "", "", "aes256-sha1", "");
  expectProposals("aes256-sha1;modp1024", "", "", "aes256-sha1-modp1024", "", kUnsupportedMethod);
}

TEST(ConnectionSection, reportsAnUnknownMethodForBothSides) {
  for (const char* method : {"des", "AES128", "aes", "aes128 ", "aes256-sha1"})
    expectProposals("", "", method, "", "", kUnsupportedMethod + kUnsupportedMethod);
  expectProposals("", "", "aes128\0"s, "", "", kUnsupportedMethod + kUnsupportedMethod);
  expectProposals("", "aes256-sha1", "des", "", "aes256-sha1", kUnsupportedMethod);
  expectProposals("aes256-sha1;modp1024", "", "des", "aes256-sha1-modp1024", "", kUnsupportedMethod);
}

TEST(ConnectionSection, reportsOnceForEachSection) {
  Json::Value tunnel = sampleWith("localIpWithCidr", networks({"10.1.0.0/16", "10.2.0.0/16", "10.3.0.0/16"}));
  tunnel["encryptMethod"] = "";
  const CapturedLog log(kTrace);
  EXPECT_NE(sectionOf(tunnel), "");
  EXPECT_EQ(log.text(), kUnsupportedMethod + kUnsupportedMethod + kUnsupportedMethod);
}

TEST(ConnectionSection, convertsScalarsToTexts) {
  Json::Value tunnel = sampleWith("name", 5);
  tunnel["remoteWanIp"] = true;
  tunnel["remoteNetworkIp"] = 1.0;
  const std::string section = sectionOf(tunnel);
  EXPECT_NE(section.find("\nconn 5_192_168_2_0_24\n"), std::string::npos);
  EXPECT_NE(section.find("\n\tright=true\n\trightsubnet=1.0/24\n"), std::string::npos);
}

TEST(ConnName, replacesWhatIsNoDigitInTheNetworkOnly) {
  EXPECT_EQ(makeConnName("office", "192.168.2.0/24"), "office_192_168_2_0_24");
  EXPECT_EQ(makeConnName("My_Tunnel.1/a b", "10.0.0.0/8"), "My_Tunnel.1/a b_10_0_0_0_8");
  EXPECT_EQ(makeConnName("a", "/"), "a__");
  EXPECT_EQ(makeConnName("", ""), "_");
  EXPECT_EQ(makeConnName("a", "0123456789"), "a_0123456789");
  EXPECT_EQ(makeConnName("a", "Zz\xC3\xA9:"), "a______");
  EXPECT_EQ(makeConnName("a", "1\0"s + "2"), "a_1_2");
}

}  // namespace
