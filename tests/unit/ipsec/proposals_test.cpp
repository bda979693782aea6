#include "ipsec/proposals.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/logger.h"
#include "tests/unit/harness/captured_log.h"

namespace {

using namespace std::string_literals;

constexpr int kTrace = ZEL::Logger::PrintLevel::TRACE_LEVEL;

const std::string kSha2Error =
    "ERROR [TUNNEL_MNGR] Unsupported hash value = sha2 (need use sha2_256 or sha2_512, set sha2_256).\n";

struct Case {
  std::string given;
  std::string ike;
  std::string esp;
};

void expectProposals(const Case& row) {
  SCOPED_TRACE("given \"" + row.given + "\"");
  EXPECT_EQ(buildIkeProposal(row.given), row.ike);
  EXPECT_EQ(buildEspProposal(row.given), row.esp);
}

void expectSilently(const std::vector<Case>& rows) {
  const CapturedLog log(kTrace);
  for (const Case& row : rows) expectProposals(row);
  EXPECT_EQ(log.text(), "");
}

TEST(Proposals, offerMd5AndSha1WhenNoHashIsGiven) {
  const std::string ike = "aes256-md5-modp1536,aes256-sha1-modp1536,aes256-md5-modp1024,aes256-sha1-modp1024";
  const std::string esp = "aes256-md5,aes256-sha1";
  expectSilently({
      {"aes256", ike, esp},
      {"aes256-", ike, esp},
      {"aes256;", ike, esp},
      {"aes256-;", ike, esp},
      {"3des", "3des-md5-modp1536,3des-sha1-modp1536,3des-md5-modp1024,3des-sha1-modp1024", "3des-md5,3des-sha1"},
  });
}

TEST(Proposals, useNoGroupWithoutAHash) {
  const std::string ike = "aes256-md5-modp1536,aes256-sha1-modp1536,aes256-md5-modp1024,aes256-sha1-modp1024";
  const std::string esp = "aes256-md5,aes256-sha1";
  expectSilently({
      {"aes256;modp2048", ike, esp},
      {"aes256;dh24", ike, esp},
      {"aes256-;dh23", ike, esp},
      {"aes256-;modp2048", ike, esp},
  });
}

TEST(Proposals, addGroupsForIkeOnlyWhenAHashIsGiven) {
  expectSilently({
      {"aes128-sha1", "aes128-sha1-modp1536,aes128-sha1-modp1024", "aes128-sha1"},
      {"aes256-sha1;", "aes256-sha1-modp1536,aes256-sha1-modp1024", "aes256-sha1"},
      {"aes192-md5", "aes192-md5-modp1536,aes192-md5-modp1024", "aes192-md5"},
      {"3des-sha2_256", "3des-sha2_256-modp1536,3des-sha2_256-modp1024", "3des-sha2_256"},
  });
}

TEST(Proposals, areOneSuiteWhenEverythingIsGiven) {
  expectSilently({
      {"aes256-sha2_512;modp2048", "aes256-sha2_512-modp2048", "aes256-sha2_512-modp2048"},
      {"3des-md5;modp1024", "3des-md5-modp1024", "3des-md5-modp1024"},
      {"aes256-sha1;modp2048;modp1024", "aes256-sha1-modp2048", "aes256-sha1-modp2048"},
  });
}

TEST(Proposals, translateThreeGroupNames) {
  expectSilently({
      {"3des-sha1;dh22", "3des-sha1-modp1024s160", "3des-sha1-modp1024s160"},
      {"3des-sha1;dh23", "3des-sha1-modp2048s224", "3des-sha1-modp2048s224"},
      {"3des-sha1;dh24", "3des-sha1-modp2048s256", "3des-sha1-modp2048s256"},
      {"3des-sha1;dh25", "3des-sha1-dh25", "3des-sha1-dh25"},
      {"3des-sha1;DH22", "3des-sha1-DH22", "3des-sha1-DH22"},
      {"3des-sha1;dh22 ", "3des-sha1-dh22 ", "3des-sha1-dh22 "},
      {"3des-sha1;ecp256", "3des-sha1-ecp256", "3des-sha1-ecp256"},
  });
}

TEST(Proposals, areEmptyWithoutAnEncryption) {
  expectSilently({
      {"", "", ""},
      {"-", "", ""},
      {";", "", ""},
      {"-;", "", ""},
      {"-sha1", "", ""},
      {"-sha1;modp1024", "", ""},
      {";modp1024", "", ""},
      {"modp2048", "", ""},
      {"modp", "", ""},
      {"modp2048;dh24", "", ""},
      {"modp2048;aes256", "", ""},
      {"dh24", "", ""},
      {"dh", "", ""},
      {"dhcp", "", ""},
  });
}

TEST(Proposals, areEmptyForMoreThanTwoParts) {
  expectSilently({
      {"aes256-sha1-modp1024", "", ""},
      {"aes256-sha2-modp1024", "", ""},
      {"aes256-sha1-", "", ""},
      {"--", "", ""},
      {"a-b-c-d", "", ""},
  });
}

TEST(Proposals, passUnknownNamesOn) {
  expectSilently({
      {"blowfish-whirlpool;modp1", "blowfish-whirlpool-modp1", "blowfish-whirlpool-modp1"},
      {"MODP", "MODP-md5-modp1536,MODP-sha1-modp1536,MODP-md5-modp1024,MODP-sha1-modp1024", "MODP-md5,MODP-sha1"},
      {"xdh24", "xdh24-md5-modp1536,xdh24-sha1-modp1536,xdh24-md5-modp1024,xdh24-sha1-modp1024",
       "xdh24-md5,xdh24-sha1"},
      // In front of a hash everything is an encryption, a group's name and a semicolon included.
      {"dh24-sha1;dh24", "dh24-sha1-modp2048s256", "dh24-sha1-modp2048s256"},
      {"aes256;dh22-sha1;dh24", "aes256;dh22-sha1-modp2048s256", "aes256;dh22-sha1-modp2048s256"},
      {"aes 256-sha1;modp1024", "aes 256-sha1-modp1024", "aes 256-sha1-modp1024"},
      {"a\0b-sha1;modp1024"s, "a\0b-sha1-modp1024"s, "a\0b-sha1-modp1024"s},
      {"aes256-SHA2;modp1024", "aes256-SHA2-modp1024", "aes256-SHA2-modp1024"},
      {"aes256-sha2_;modp1024", "aes256-sha2_-modp1024", "aes256-sha2_-modp1024"},
  });
}

TEST(Proposals, correctTheHashSha2AndSayItOnceForEachCall) {
  const std::vector<Case> rows = {
      {"3des-sha2;dh22", "3des-sha2_256-modp1024s160", "3des-sha2_256-modp1024s160"},
      {"aes256-sha2", "aes256-sha2_256-modp1536,aes256-sha2_256-modp1024", "aes256-sha2_256"},
      {"aes256-sha2;", "aes256-sha2_256-modp1536,aes256-sha2_256-modp1024", "aes256-sha2_256"},
      {"aes256-sha2;modp2048", "aes256-sha2_256-modp2048", "aes256-sha2_256-modp2048"},
  };
  for (const Case& row : rows) {
    const CapturedLog log(kTrace);
    expectProposals(row);
    EXPECT_EQ(log.text(), kSha2Error + kSha2Error);
  }
}

TEST(Proposals, leaveSha2AloneWhereNothingComesOfIt) {
  expectSilently({
      {"-sha2", "", ""},
      {"-sha2;dh22", "", ""},
      {"sha2", "sha2-md5-modp1536,sha2-sha1-modp1536,sha2-md5-modp1024,sha2-sha1-modp1024", "sha2-md5,sha2-sha1"},
  });
}

}  // namespace
