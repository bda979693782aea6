#include "tunnelctl/status_facts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/unit/tunnelctl/status_samples.h"

namespace {

using status_test::facts;
using status_test::process;
using testing::ElementsAre;
using testing::IsEmpty;

TunnelRecord greTo(const std::string& name, const std::string& host, bool isEnabled = true) {
  TunnelRecord record;
  record.name = name;
  record.host = host;
  record.isEnabled = isEnabled;
  return record;
}

TEST(HostsToLookUp, areThoseOfWhatIsNotThere) {
  Facts found = facts();
  found.configuration.gre = {greTo("a", "a.example"), greTo("b", "203.0.113.7"), greTo("c", ""),
                             greTo("d", "d.example", false), greTo("wan", "there.example")};
  EXPECT_THAT(hostsToLookUp(found), ElementsAre("a.example"));
  found.devicesStatus = 1;
  found.devices.clear();
  EXPECT_THAT(hostsToLookUp(found), IsEmpty());
}

TEST(HostsToLookUp, areThoseOfConnectionsWithoutAPeer) {
  Facts found = facts();
  TunnelRecord record;
  record.name = "office";
  record.host = "head.example";
  record.isEnabled = true;
  found.configuration.ipsec = {record};
  EXPECT_THAT(hostsToLookUp(found), IsEmpty());
  found.connections = {{"office_10_0_0_0_8", "198.51.100.2", "10.0.0.0/8", ""}};
  EXPECT_THAT(hostsToLookUp(found), ElementsAre("head.example"));
  found.connections[0].right = "203.0.113.7";
  EXPECT_THAT(hostsToLookUp(found), IsEmpty());
}

TEST(HostsToLookUp, areNoneWithoutAWan) {
  Facts found = facts();
  found.configuration.gre = {greTo("a", "a.example")};
  found.configuration.wan = "";
  EXPECT_THAT(hostsToLookUp(found), IsEmpty());
}

TEST(OpenvpnOf, isTheProcessWithTheTunnelsFile) {
  Facts found = facts();
  EXPECT_EQ(openvpnOf("vpn", found), nullptr);
  found.processes.push_back(process(5, "less", {"less", "/var/run/openvpn_vpn.conf"}));
  found.processes.push_back(process(6, "openvpn", {"openvpn", "--config", "/var/run/openvpn_vpn2.conf"}));
  EXPECT_EQ(openvpnOf("vpn", found), nullptr);
  found.processes.push_back(process(7, "openvpn", {"openvpn", "--config", "/var/run/openvpn_vpn.conf", "--status"}));
  ASSERT_NE(openvpnOf("vpn", found), nullptr);
  EXPECT_EQ(openvpnOf("vpn", found)->pid, 7);
}

}  // namespace
