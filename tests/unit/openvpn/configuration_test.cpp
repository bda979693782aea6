#include "openvpn/configuration.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

TEST(ComposeOvpnFile, FormsThePathsFromTheNameAsItStands) {
  for (const std::string name : {"office", "", "two words", "a/b", "$(x)", "../up"}) {
    const OvpnConf conf = composeOvpnFile(name, "", "2").conf;
    EXPECT_EQ(conf.name, name);
    EXPECT_EQ(conf.confFile, "/var/run/openvpn_" + name + ".conf");
    EXPECT_EQ(conf.statusFile, "/var/run/openvpn_" + name + ".status");
    EXPECT_EQ(conf.connectFile, "/var/run/connect_" + name + ".status");
  }
}

struct Text {
  std::string name;
  std::string configuration;
  std::string verb;
  std::string text;
};

TEST(ComposeOvpnFile, RewritesDeviceAndVerbosity) {
  const std::vector<Text> table{
      {"a", "", "2", "verb 2\n"},
      {"office", "dev tun\nproto udp\n", "2", "dev tunoffice\nproto udp\nverb 2\n"},
      {"office", "dev tun\n  verb 4\n", "7", "dev tunoffice\n  verb 7\n"},
      {"averyveryverylongname", "dev tun\nverb 4\n", "7", "dev tunaveryveryver\nverb 7\n"},
      {"a", "dev tun\n dev tap\n", "3", "dev tuna\n dev tuna\nverb 3\n"},
      {"a", "dev\n", "3", "dev a\nverb 3\n"},
      {"a", "#dev tun\ndev-type tun\n", "3", "#dev tun\ndev-type tun\nverb 3\n"},
      {"a", "dev tun\r\nremote far 1194\r\n", "3", "dev tuna\nremote far 1194\r\nverb 3\n"},
      {"a", "remote far", "3", "remote far\nverb 3\n"},
      {"a", "<ca>\nMIIB\n</ca>\ndev tun", "6", "<ca>\nMIIB\n</ca>\ndev tuna\nverb 6\n"},
  };
  for (const Text& row : table) {
    EXPECT_EQ(composeOvpnFile(row.name, row.configuration, row.verb).text, row.text) << row.configuration;
  }
}

struct Supervision {
  std::string configuration;
  bool pingCheck;
  std::string pingAddress;
  std::string clientConfigDir;
};

TEST(ComposeOvpnFile, ReadsWhatSupervisionNeeds) {
  const std::vector<Supervision> table{
      {"", true, "", ""},
      {"dev tun\n", true, "", ""},
      {"ifconfig 10.8.0.1 10.8.0.2\n", true, "10.8.0.2", ""},
      {"ifconfig\t10.8.0.1   10.8.0.2\r\n", true, "10.8.0.2", ""},
      {"ifconfig 10.8.0.1\n", true, "10.8.0.1", ""},
      {"ifconfig\n", true, "", ""},
      {"ifconfig 10.8.0.1 255.255.255.0\n", true, "255.255.255.0", ""},
      {"ifconfig 1 2\nifconfig 3 4\n", true, "2", ""},
      {"ifconfig 10.8.0.1 10.8.0.2\n<ca>\nMIIB\n</ca>\n", false, "", ""},
      {"  <ca>  \nifconfig 10.8.0.1 10.8.0.2\n", false, "", ""},
      {"ca /etc/ca.pem\nifconfig 10.8.0.1 10.8.0.2\n", true, "10.8.0.2", ""},
      {"client-config-dir /etc/ccd\n<ca>\n", false, "", "/etc/ccd"},
      {"client-config-dir  /etc/my   ccd \n", true, "", "/etc/my ccd"},
      {"client-config-dir\n", true, "", ""},
  };
  for (const Supervision& row : table) {
    const OvpnConf conf = composeOvpnFile("a", row.configuration, "2").conf;
    EXPECT_EQ(conf.pingCheck, row.pingCheck) << row.configuration;
    EXPECT_EQ(conf.pingAddress, row.pingAddress) << row.configuration;
    EXPECT_EQ(conf.clientConfigDir, row.clientConfigDir) << row.configuration;
  }
}

}  // namespace
