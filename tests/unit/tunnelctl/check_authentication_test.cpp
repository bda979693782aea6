#include <gtest/gtest.h>

#include "tests/unit/tunnelctl/check_rows.h"

namespace {

const Rows kRows{
    {R"({"/ipsecTunnels/0/authMethod": "RSASIG"})", {"auth-method /ipsecTunnels/0/authMethod"}},
    {R"({"/ipsecTunnels/0/authMethod": "rsasig "})", {"auth-method /ipsecTunnels/0/authMethod"}},
    {R"({"/ipsecTunnels/0/authMethod": "certificates"})", {"auth-method /ipsecTunnels/0/authMethod"}},
    {R"({"/ipsecTunnels/0/authMethod": 1})", {"auth-method /ipsecTunnels/0/authMethod"}},
    {R"({"/ipsecTunnels/0/authMethod": []})", {"auth-method /ipsecTunnels/0/authMethod"}},
    {R"({"/ipsecTunnels/0/authMethod": "absent"})", {}},
    {R"({"/ipsecTunnels/0/authMethod": ""})", {}},
    {R"({"/ipsecTunnels/0/authMethod": "PSK"})", {}},
    // keys
    {R"({"/ipsecTunnels/0/psk": ""})", {"no-key /ipsecTunnels/0/psk"}},
    {R"({"/ipsecTunnels/0/psk": "absent"})", {"no-key /ipsecTunnels/0/psk"}},
    {R"({"/ipsecTunnels/0/psk": "in \"quotes\""})", {"key-characters /ipsecTunnels/0/psk"}},
    {R"({"/ipsecTunnels/0/psk": "two\nlines"})", {"key-characters /ipsecTunnels/0/psk"}},
    {R"({"/ipsecTunnels/0/psk": "a\u0000b"})", {"key-characters /ipsecTunnels/0/psk"}},
    {R"({"/ipsecTunnels/0/psk": "\\ # ' $ 0x41 \u00e9\t\r"})", {}},
    {R"({"/ipsecTunnels/1/psk": "in \"quotes\""})", {"warning: key-characters /ipsecTunnels/1/psk"}},
    {R"({"/ipsecTunnels/1/psk": ""})", {}},
    // identities
    {R"({"/ipsecTunnels/1/localId": "the \"router\""})", {"identity-characters /ipsecTunnels/1/localId"}},
    {R"({"/ipsecTunnels/1/remoteId": "a\\b"})", {"identity-characters /ipsecTunnels/1/remoteId"}},
    {R"({"/ipsecTunnels/1/remoteId": "partner\n"})", {"identity-characters /ipsecTunnels/1/remoteId"}},
    {R"({"/ipsecTunnels/1/remoteId": "a\u0000b"})", {"identity-characters /ipsecTunnels/1/remoteId"}},
    {R"({"/ipsecTunnels/1/remoteId": "C=CH, O=Sample #1, CN=o'hara"})", {}},
    {R"({"/ipsecTunnels/1/uid": false})",
     {"unused-identity /ipsecTunnels/1/localId", "unused-identity /ipsecTunnels/1/remoteId"}},
    {R"({"/ipsecTunnels/0/localId": "a\"b"})",
     {"warning: identity-characters /ipsecTunnels/0/localId", "unused-identity /ipsecTunnels/0/localId"}},
    {R"({"/ipsecTunnels/0/uid": true})",
     {"no-identity /ipsecTunnels/0/localId", "no-identity /ipsecTunnels/0/remoteId"}},
    {R"({"/ipsecTunnels/1/localId": "", "/ipsecTunnels/1/remoteId": ""})", {"no-identity /ipsecTunnels/1/remoteId"}},
    {R"({"/ipsecTunnels/0": {"enabled": false, "uid": true}})", {}},
    {R"({"/ipsecTunnels/0": {"enabled": false, "psk": "\""}})", {"warning: key-characters /ipsecTunnels/0/psk"}},
};

TEST(CheckAuthentication, tellsOfMethodsKeysAndIdentities) {
  expectFindings(kRows);
}

}  // namespace

Rows rowsOfAuthentication() {
  return kRows;
}
