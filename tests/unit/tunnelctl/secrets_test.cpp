#include "tunnelctl/secrets.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

TEST(WithoutKeys, hidesThemInEveryKindOfFile) {
  const struct {
    const char* path;
    Lines lines, shown;
  } rows[] = {
      {"/var/run/ipsec/ipsec.secrets",
       {"\"a\" \"b\" : PSK \"key\"", ": RSA /var/run/ipsec/private/a.pem", "\"a\" \"b\" : PSK \"k\" : PSK \"key\"",
        "rest of a key\"", "\"a rest of a key", ""},
       {"\"a\" \"b\" : PSK \"***\"", ": RSA /var/run/ipsec/private/a.pem", "\"a\" \"b\" : PSK \"***\"", "***", "***",
        "***"}},
      {"/var/run/ipsec/private/a.pem", {"-----BEGIN", "key"}, {"***", "***"}},
      {"/var/run/ipsec/certs/a.pem", {"-----BEGIN", "certificate"}, {"-----BEGIN", "certificate"}},
      {"/var/run/ipsec/ipsec.conf", {"conn a", "<key>", "x"}, {"conn a", "<key>", "x"}},
      {"/var/run/openvpn_a.conf",
       {"dev tun", "<ca>", "certificate", "</ca>", "<key>", "key", "key", "</key>", " \t<secret>\r", "key", "</secret>",
        "verb 2", "<tls-auth>", "</ca>", "key"},
       {"dev tun", "<ca>", "certificate", "</ca>", "<key>", "***", "***", "</key>", " \t<secret>\r", "***", "</secret>",
        "verb 2", "<tls-auth>", "***", "***"}},
  };
  for (const auto& row : rows) EXPECT_EQ(withoutKeys(row.path, row.lines), row.shown) << row.path;
}

TEST(WithoutKeys, knowsEveryBlockThatHoldsAKey) {
  for (const std::string name :
       {"secret", "key", "pkcs12", "tls-auth", "tls-crypt", "tls-crypt-v2", "auth-user-pass"}) {
    const Lines shown = withoutKeys("/var/run/openvpn_a.conf", {"<" + name + ">", "key", "</" + name + ">", "verb 2"});
    EXPECT_EQ(shown, (Lines{"<" + name + ">", "***", "</" + name + ">", "verb 2"}));
  }
}

}  // namespace
