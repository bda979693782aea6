#include "tunnelctl/status_configuration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/unit/harness/json_document.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// What all records have, on one line each.
template <class Record>
std::vector<std::string> shown(const std::vector<Record>& records) {
  std::vector<std::string> texts;
  for (const Record& record : records)
    texts.push_back(record.name + (record.isEnabled ? " on" : " off") + (record.isReadable ? "" : " unreadable"));
  return texts;
}

std::vector<std::string> shown(const std::vector<Ipv4Network>& networks) {
  std::vector<std::string> texts;
  for (const Ipv4Network& network : networks) texts.push_back(textOf(network));
  return texts;
}

TEST(ReadConfiguration, readsAllKinds) {
  const Configuration configuration = readConfiguration(jsonOf(R"({
    "wans": [{"current": false, "ip": "203.0.113.40"}, {"current": true, "ip": "198.51.100.2"}],
    "greTunnels": [{"name": "head office", "enabled": true, "remoteIp": "head.example", "tunnelIp": "10.9.9.1",
                    "tunnelMask": "255.255.255.252", "routes": [{"ip": "192.168.50.0", "mask": 24},
                    {"ip": "192.168.51.0", "mask": "255.255.255.0"}]}],
    "ipsecTunnels": [{"name": "main site", "enabled": true, "remoteWanIp": "203.0.113.20", "psk": "secret"}],
    "ni": {"nis": [{"type": "LAN", "nitype": "ETHERNET", "bridge": "--", "available": true,
                    "ipv4": {"ip": "192.168.2.1", "mask": "255.255.255.0"}}]},
    "ovpnTunnels": [{"name": "my vpn", "enabled": true, "config": "dev tun\n"}]})"));
  EXPECT_EQ(configuration.wan, "198.51.100.2");
  EXPECT_THAT(shown(configuration.gre), ElementsAre("head_office on"));
  EXPECT_EQ(configuration.gre[0].host, "head.example");
  EXPECT_THAT(shown(configuration.gre[0].addresses), ElementsAre("10.9.9.1/30"));
  EXPECT_THAT(shown(configuration.gre[0].routes), ElementsAre("192.168.50.0/24", "192.168.51.0/24"));
  EXPECT_THAT(shown(configuration.ipsec), ElementsAre("main_site on"));
  EXPECT_EQ(configuration.ipsec[0].host, "203.0.113.20");
  EXPECT_THAT(configuration.ipsec[0].connections, ElementsAre("main_site_192_168_2_0_24"));
  EXPECT_THAT(shown(configuration.openvpn), ElementsAre("my vpn on"));
}

TEST(ReadConfiguration, leavesOutAddressesAndRoutesThatAreNone) {
  const Configuration configuration = readConfiguration(jsonOf(R"({"greTunnels": [{"name": "a", "enabled": true,
    "tunnelIp": "10.9.9.1", "routes": [{"ip": "x", "mask": 8}, {"ip": "10.0.0.0"}, {}, null]}]})"));
  EXPECT_THAT(configuration.gre[0].addresses, IsEmpty());
  EXPECT_THAT(configuration.gre[0].routes, IsEmpty());
}

TEST(ReadConfiguration, takesAnyDocument) {
  for (const char* text : {"{}", "[]", "7", "null", R"({"greTunnels": 7, "ipsecTunnels": {}, "ni": [], "wans": "x"})",
                           R"({"ni": {"nis": [7]}, "ovpnTunnels": null})"}) {
    const Configuration configuration = readConfiguration(jsonOf(text));
    EXPECT_EQ(configuration.wan, "") << text;
    EXPECT_THAT(configuration.gre, IsEmpty()) << text;
    EXPECT_THAT(configuration.ipsec, IsEmpty()) << text;
    EXPECT_THAT(configuration.openvpn, IsEmpty()) << text;
  }
}

TEST(ReadConfiguration, marksRecordsOfAWrongType) {
  const Configuration configuration = readConfiguration(jsonOf(R"({
    "greTunnels": [{"name": "a", "enabled": "yes"}, {"name": [], "enabled": true}, {"name": "b", "enabled": true}],
    "ipsecTunnels": [7, {"name": "c", "enabled": true, "remoteWanIp": {}}],
    "ovpnTunnels": [{"name": "d", "enabled": {}}]})"));
  EXPECT_THAT(shown(configuration.gre), ElementsAre("a off unreadable", "? off unreadable", "b on"));
  EXPECT_THAT(shown(configuration.ipsec), ElementsAre("? off unreadable", "c off unreadable"));
  EXPECT_THAT(shown(configuration.openvpn), ElementsAre("d off unreadable"));
}

TEST(ReadConfiguration, hasEveryNameOnce) {
  const Configuration configuration = readConfiguration(jsonOf(R"({"greTunnels": [
    {"name": "a", "enabled": false, "remoteIp": "1"}, {"name": "a", "enabled": true, "remoteIp": "2"},
    {"name": "a", "enabled": true, "remoteIp": "3"}, {"name": "b", "enabled": true}, {"name": "b"}]})"));
  EXPECT_THAT(shown(configuration.gre), ElementsAre("a on", "b on"));
  EXPECT_EQ(configuration.gre[0].host, "2");
}

}  // namespace
