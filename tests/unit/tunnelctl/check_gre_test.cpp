#include <gtest/gtest.h>

#include "tests/unit/tunnelctl/check_rows.h"

namespace {

std::string named(const std::string& name) {
  return R"({"/greTunnels/0/name": ")" + name + "\"}";
}

Rows rowsOfNames() {
  Rows rows;
  for (const char* name : {"", "sixteen letters.", "office:1", "office/1", ".", "..", "all", "default", "of\\tfice",
                           "of\\u000bfice", "of%dice", "100%", "B\\u00e0r", "a\\u0000b", "Z\\u00fcrcher Filiale"})
    rows.push_back({named(name), {"device-name /greTunnels/0/name"}});
  for (const char* name :
       {"lo", "gre0", "gretap0", "erspan0", "tunl0", "sit0", "ip6tnl0", "ip6gre0", "ip_vti0", "ip6_vti0"})
    rows.push_back({named(name), {"kernel-device /greTunnels/0/name"}});
  for (const char* name : {"up",   "a",    "ad",     "addr", "d", "ds",  "dev", "h",   "help",   "n",         "no",
                           "name", "mode", "remote", "ttl",  "t", "txq", "mtu", "key", "xdpdrv", "link-netns"})
    rows.push_back({named(name), {"ip-keyword /greTunnels/0/name"}});
  for (const char* name :
       {"office;1", "R&D", "a|b", "a<b", "a>b", "a(b", "a)b", "$office", "`office`", "the\\\"office", "o'hara",
        "office\\\\1", "office*", "office?", "office[1]", "office\\n", "~office", "#office"})
    rows.push_back({named(name), {"shell-characters /greTunnels/0/name"}});
  for (const char* name : {"fifteen letters", "office-1", "a@b", "a+b=c", "B\\u00fcro 1", "office #1", "-x", "...",
                           "gre1", "ups", "remot", "keys", "ttls", "tun0", "xdpd", "a\\u0001b", "o~"})
    rows.push_back({named(name), {}});
  return rows;
}

const Rows kRows{
    {R"({"/wans/1/current": false})", {"no-wan /wans"}},
    {R"({"/wans": "absent"})", {"no-wan /wans"}},
    {R"({"/wans/1/ip": "absent"})", {"wan-address /wans/1/ip"}},
    {R"({"/wans/1/ip": "wan.example.net"})", {"wan-address /wans/1/ip"}},
    {R"({"/wans/0": {"current": true, "ip": "203.0.113.5"}})", {}},
    // names
    {R"({"/greTunnels/0/name": "lan0"})", {"existing-device /greTunnels/0/name"}},
    {R"({"/greTunnels/0/name": "absent"})", {"device-name /greTunnels/0/name"}},
    {R"({"/greTunnels/1/name": "head_office"})", {"same-device /greTunnels/1/name"}},
    {R"({"/greTunnels/1/name": "tundepot"})", {"same-device /ovpnTunnels/0/name"}},
    {R"({"/greTunnels/1/name": "head_office", "/greTunnels/1/enabled": false})", {}},
    {R"({"/greTunnels/0": {"enabled": false}})", {}},
    {R"({"/greTunnels/0": {"enabled": false, "name": "a/b"}})", {"warning: device-name /greTunnels/0/name"}},
    {R"({"/greTunnels/0": {"enabled": false, "name": "lan0"}})", {}},
    // the remote end
    {R"({"/greTunnels/1/remoteIp": "absent"})", {"gre-remote /greTunnels/1/remoteIp"}},
    {R"({"/greTunnels/1/remoteIp": ""})", {"gre-remote /greTunnels/1/remoteIp"}},
    {R"({"/greTunnels/1/remoteIp": "203.0.113.300"})", {"gre-remote /greTunnels/1/remoteIp"}},
    {R"({"/greTunnels/1/remoteIp": "010.0.0.1"})", {"gre-remote /greTunnels/1/remoteIp"}},
    {R"({"/greTunnels/1/remoteIp": "10.1"})", {"gre-remote /greTunnels/1/remoteIp"}},
    {R"({"/greTunnels/1/remoteIp": "203.0.113.7 "})", {"gre-remote /greTunnels/1/remoteIp"}},
    {R"({"/greTunnels/1/remoteIp": "2001:db8::1"})", {"gre-remote /greTunnels/1/remoteIp"}},
    {R"({"/greTunnels/1/remoteIp": "a..b"})", {"gre-remote /greTunnels/1/remoteIp"}},
    {R"({"/greTunnels/1/remoteIp": "my_router.example.net."})", {}},
    {R"({"/greTunnels/1/remoteIp": "head.example.net"})", {"same-remote /greTunnels/1/remoteIp"}},
    {R"({"/greTunnels/1/remoteIp": "head.example.net", "/greTunnels/0/enabled": false})", {}},
    // its address
    {R"({"/greTunnels/0/tunnelIp": "10.9.9"})", {"tunnel-address /greTunnels/0/tunnelIp"}},
    {R"({"/greTunnels/0/tunnelIp": "10.9.9.1/30"})", {"tunnel-address /greTunnels/0/tunnelIp"}},
    {R"({"/greTunnels/0/tunnelIp": "$id"})", {"shell-characters /greTunnels/0/tunnelIp"}},
    {R"({"/greTunnels/0/tunnelMask": "33"})", {"tunnel-address /greTunnels/0/tunnelMask"}},
    {R"({"/greTunnels/0/tunnelMask": "255.0.255.0"})", {"tunnel-address /greTunnels/0/tunnelMask"}},
    {R"({"/greTunnels/0/tunnelMask": "030"})", {"tunnel-address /greTunnels/0/tunnelMask"}},
    {R"({"/greTunnels/0/tunnelMask": "24;id"})", {"shell-characters /greTunnels/0/tunnelMask"}},
    {R"({"/greTunnels/0/tunnelMask": ""})", {"half-address /greTunnels/0/tunnelMask"}},
    {R"({"/greTunnels/0/tunnelIp": "absent"})", {"half-address /greTunnels/0/tunnelIp"}},
    {R"({"/greTunnels/0/tunnelIp": "absent", "/greTunnels/0/tunnelMask": ""})", {}},
    {R"({"/greTunnels/0/tunnelMask": "0"})", {}},
    {R"({"/greTunnels/0/tunnelMask": "0.0.0.0"})", {}},
    {R"({"/greTunnels/0/tunnelIp": "fd00::1", "/greTunnels/0/tunnelMask": "64"})", {}},
    {R"({"/greTunnels/0/tunnelIp": "fd00::1", "/greTunnels/0/tunnelMask": "255.255.255.0"})",
     {"tunnel-address /greTunnels/0/tunnelMask"}},
    // TTL and period
    {R"({"/greTunnels/0/ttl": 256})", {"ttl /greTunnels/0/ttl"}},
    {R"({"/greTunnels/0/ttl": -1})", {"ttl /greTunnels/0/ttl"}},
    {R"({"/greTunnels/0/ttl": ""})", {"ttl /greTunnels/0/ttl"}},
    {R"({"/greTunnels/0/ttl": "64\n"})", {"shell-characters /greTunnels/0/ttl"}},
    {R"({"/greTunnels/0/ttl": "64 "})", {"ttl /greTunnels/0/ttl"}},
    {R"({"/greTunnels/0/ttl": "inherit"})", {}},
    {R"({"/greTunnels/0/ttl": "255"})", {}},
    {R"({"/greTunnels/0/checkPeriod": 0})", {"check-period /greTunnels/0/checkPeriod"}},
    {R"({"/ipsecTunnels/0/checkPeriod": 65536})", {"check-period /ipsecTunnels/0/checkPeriod"}},
    {R"({"/greTunnels/0/checkPeriod": 65535})", {}},
    // routes
    {R"({"/greTunnels/0/routes/0": {"ip": "10.0.0.0"}})", {"route-skipped /greTunnels/0/routes/0/mask"}},
    {R"({"/greTunnels/0/routes/0": {}})", {"route-skipped /greTunnels/0/routes/0/ip"}},
    {R"({"/greTunnels/0/routes/0/ip": ""})", {"route-network /greTunnels/0/routes/0/ip"}},
    {R"({"/greTunnels/0/routes/0/ip": "10.0.0.0/8"})", {"route-network /greTunnels/0/routes/0/ip"}},
    {R"({"/greTunnels/0/routes/0/ip": "192.168.50.1"})", {"route-network /greTunnels/0/routes/0/ip"}},
    {R"({"/greTunnels/0/routes/0/ip": "`id`"})", {"shell-characters /greTunnels/0/routes/0/ip"}},
    {R"({"/greTunnels/0/routes/0/mask": null})", {"route-network /greTunnels/0/routes/0/mask"}},
    {R"({"/greTunnels/0/routes/0/mask": true})", {"route-network /greTunnels/0/routes/0/mask"}},
    {R"({"/greTunnels/0/routes/0/mask": []})", {"route-network /greTunnels/0/routes/0/mask"}},
    {R"({"/greTunnels/0/routes/0/mask": 33})", {"route-network /greTunnels/0/routes/0/mask"}},
    {R"({"/greTunnels/0/routes/0/mask": "24|id"})", {"shell-characters /greTunnels/0/routes/0/mask"}},
    {R"({"/greTunnels/0/routes/0/mask": "255.255.255.0"})", {}},
    {R"({"/greTunnels/0/routes/0": {"ip": "0.0.0.0", "mask": 0}})", {}},
    {R"({"/greTunnels/0/routes/0": {"ip": "fd00::", "mask": 64}})", {}},
    {R"({"/greTunnels/0/enabled": false, "/greTunnels/0/routes/0/mask": 33})",
     {"warning: route-network /greTunnels/0/routes/0/mask"}},
};

TEST(CheckGre, tellsOfNamesThatGiveNoDevice) {
  expectFindings(rowsOfNames());
}

TEST(CheckGre, tellsOfTunnelsAddressesAndRoutes) {
  expectFindings(kRows);
}

}  // namespace

Rows rowsOfGre() {
  Rows rows = rowsOfNames();
  rows.insert(rows.end(), kRows.begin(), kRows.end());
  return rows;
}
