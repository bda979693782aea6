#include <gtest/gtest.h>

#include "tests/unit/tunnelctl/check_rows.h"
#include "tunnelctl/check_ciphers.h"

namespace {

/// A row for each phase; "" for no finding.
void append(Rows& rows, const std::vector<std::string>& texts, const std::string& ike, const std::string& esp) {
  for (const std::string& text : texts) {
    for (const auto& [member, problem] : {std::pair("phase1", ike), std::pair("phase2", esp)}) {
      const std::string pointer = std::string("/ipsecTunnels/0/") + member;
      rows.push_back({"{\"" + pointer + "\": \"" + text + "\"}", {}});
      if (!problem.empty()) rows.back().findings = {problem + " " + pointer};
    }
  }
}

Rows rowsOfTexts() {
  Rows rows;
  append(rows,
         {"aes256-sha2_512;modp2048", "aes256-sha2_256;dh24", "3des-md5;dh22", "aes128-sha1", "3des",
          "aes256gcm16-prfsha256;ecp256", "aes256-sha1;modp2048!", "chacha20poly1305-sha512;x25519",
          "sha1-aes256;modp2048", "camellia192ctr-aesxcbc;curve448"},
         "", "");
  append(rows,
         {"rot13-sha1", "aes256-sha3_256;modp2048", "AES256-SHA1", "aes256 - sha1", "aes256-sha1;modp9999",
          "aes256-sha1;dh5", "aes256-sha1;dh22!", "aes256!", "aes512", "aes-ctr", "blowfish64-sha1", "x"},
         "unknown-proposal", "unknown-proposal");
  append(rows, {"aes256-sha1!", "aes256-sha1,aes128;modp2048"}, "unknown-proposal", "");
  append(rows,
         {"aes256-sha256_96;modp2048", "aes256-prfsha1;modp2048", "aes256-aes128;modp2048", "aes256-sha1;none",
          "aes256-sha1;esn"},
         "unknown-proposal", "");
  append(rows, {"sha1-md5;modp2048", "aes256-aes256gcm16;modp2048"}, "unknown-proposal", "unknown-proposal");
  append(rows,
         {"aes256-sha1-modp1024", "modp2048", "dh22;modp2048", ";modp2048", "-sha1", "-", ";", "aes256;modp2048",
          "aes256-;dh23", "aes256-sha1;", "aes256;", "aes256-sha1;modp2048;x", "aes256-sha1,aes128-sha1"},
         "unused-proposal", "unused-proposal");
  append(rows, {"aes256-sha2", "aes256-sha2;dh22"}, "sha2", "sha2");
  return rows;
}

const Rows kRows{
    {R"({"/ipsecTunnels/1/encryptMethod": ""})", {"no-proposal /ipsecTunnels/1/encryptMethod"}},
    {R"({"/ipsecTunnels/1/encryptMethod": "absent"})", {"no-proposal /ipsecTunnels/1/encryptMethod"}},
    {R"({"/ipsecTunnels/1/encryptMethod": "AES256"})", {"no-proposal /ipsecTunnels/1/encryptMethod"}},
    {R"({"/ipsecTunnels/1/encryptMethod": "3des"})", {}},
    {R"({"/ipsecTunnels/0/encryptMethod": ""})", {}},
    {R"({"/ipsecTunnels/0/encryptMethod": "des"})", {"no-proposal /ipsecTunnels/0/encryptMethod"}},
    {R"({"/ipsecTunnels/0/phase2": ""})", {"no-proposal /ipsecTunnels/0/encryptMethod"}},
    {R"({"/ipsecTunnels/0/phase2": "", "/ipsecTunnels/0/encryptMethod": "aes128"})", {}},
    {R"({"/ipsecTunnels/0": {"enabled": false, "phase1": "x"}})", {"warning: unknown-proposal /ipsecTunnels/0/phase1"}},
};

TEST(CheckProposals, tellsOfTexts) {
  expectFindings(rowsOfTexts());
}

TEST(CheckProposals, tellsOfMethods) {
  expectFindings(kRows);
}

TEST(ObjectionToSuite, namesWhatIsToBlame) {
  EXPECT_EQ(objectionToSuite("aes256-sha4-modp2048", true).name, "sha4");
  EXPECT_EQ(objectionToSuite("sha1-modp2048", false).name, "sha1-modp2048");
  EXPECT_EQ(objectionToSuite("", false).name, "");
  EXPECT_NE(objectionToSuite("", false).complaint, nullptr);
  EXPECT_NE(objectionToSuite("aes256-sha1-", false).complaint, objectionToSuite("aes256-sha1", true).complaint);
}

}  // namespace

Rows rowsOfProposals() {
  Rows rows = rowsOfTexts();
  rows.insert(rows.end(), kRows.begin(), kRows.end());
  return rows;
}
