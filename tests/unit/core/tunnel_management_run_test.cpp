#include "core/tunnel_management_run.h"

#include <gtest/gtest.h>
#include <json/value.h>

#include <cstddef>
#include <sstream>
#include <string>
#include <vector>

#include "api/wan_list.h"
#include "ipsec/configuration_store.h"
#include "monitors/fqdn_monitor.h"
#include "support/logger.h"
#include "tests/unit/harness/act_text.h"
#include "tests/unit/harness/api_server.h"
#include "tests/unit/harness/captured_log.h"
#include "tests/unit/harness/child_process.h"
#include "tests/unit/harness/private_system.h"

namespace {

using Lines = std::vector<std::string>;

const std::string kOpenvpn = "/api?fields=ovpnTunnels";
const std::string kSyslog = "/api?fields=syslog";
const std::string kWans = "/api/waninfo/wans";
const std::string kTunnels = "/api?fields=greTunnels,ipsecTunnels,ni";

/// What a router has of everything.
const ApiServer::Documents kDocuments{{kOpenvpn, R"({"ovpnTunnels":[
        {"name":"vpn","enabled":true,"config":"remote 203.0.113.30\nclient-config-dir /absent/clients\n"},
        {"name":"off","enabled":false,"config":""}]})"},
                                      {kSyslog, R"({"syslog":{"logLevel":0}})"},
                                      {kWans, R"([{"current":true,"ip":"198.51.100.2"}])"},
                                      {kTunnels, R"({
        "greTunnels":[
          {"name":"the one","enabled":true,"remoteIp":"203.0.113.7","ttl":64,"tunnelIp":"10.9.1.1","tunnelMask":"30",
           "routes":[{"ip":"192.168.1.0","mask":24}]},
          {"name":"off","enabled":false,"remoteIp":"203.0.113.8","ttl":64}],
        "ipsecTunnels":[
          {"name":"office","enabled":true,"remoteWanIp":"203.0.113.20","remoteNetworkIp":"192.168.9.0",
           "remoteNetworkMask":24,"type":"IKE","encryptMethod":"aes128","ikelife":3,"keylife":1,"psk":"key"}],
        "ni":{"nis":[{"type":"LAN","nitype":"ETHERNET","bridge":"--","available":true,
                      "ipv4":{"ip":"192.168.2.1","mask":"255.255.255.0"}}]}})"}};

const Lines kInventory{"ask ip tunnel"};
const Lines kTeardown{"ask ip tunnel", "run ip link set old down", "run ip tunnel del old"};
const std::string kWritesOpenvpn = "write /var/run/openvpn_vpn.conf";
const std::string kStopsIpsec = "run ipsec stop 2>&1";
const Lines kCreation{"run ip tunnel add the_one mode gre remote 203.0.113.7 local 198.51.100.2 ttl 64",
                      "run ip link set the_one up", "run ip addr add 10.9.1.1/30 dev the_one",
                      "run ip route add 192.168.1.0/24 dev the_one"};
const Lines kService{"run rm -rf /var/run/ipsec/cacerts/* /var/run/ipsec/certs/* /var/run/ipsec/private/*",
                     "write /var/run/ipsec/ipsec.conf",
                     "write /var/run/ipsec/ipsec.secrets",
                     "append /var/run/ipsec/ipsec.conf",
                     "append /var/run/ipsec/ipsec.secrets",
                     "mode 644 /var/run/ipsec/ipsec.conf",
                     "mode 644 /var/run/ipsec/ipsec.secrets",
                     "run ipsec restart",
                     "pause 1000"};
const std::string kFirewall = "run firewall --init";

Lines childOfOpenvpn(const std::string& number) {
  const std::string child = "child " + number;
  return {"start " + child, child + ": follow the parent", child + ": run mkdir -p /absent/clients",
          child +
              ": become openvpn --config /var/run/openvpn_vpn.conf --status /var/run/openvpn_vpn.status 1 "
              "--syslog openvpn"};
}

Lines operator+(Lines left, const Lines& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

/// A router whose kernel has a tunnel.
class Kernel : public NotingEffects {
 public:
  Kernel() { answers["ip tunnel"].output = "old: gre/ip remote 192.0.2.1 local 192.0.2.2 ttl 64\n"; }

  /// What was done since the last call.
  Lines news() {
    Lines texts = textsOf(acts);
    texts.erase(texts.begin(), texts.begin() + static_cast<std::ptrdiff_t>(told_));
    told_ = acts.size();
    return texts;
  }

 private:
  std::size_t told_ = 0;
};

TEST(ManageTunnels, DoesAWholeRunInItsOrder) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([] {
    enterPrivateMounts();
    const ApiServer api(kDocuments);
    Kernel kernel;
    const ActingAs as(kernel);
    const Lines building = kCreation + kService + Lines{kFirewall};

    EXPECT_TRUE(manageTunnels());
    EXPECT_EQ(kernel.news(), (kTeardown + Lines{kWritesOpenvpn, kStopsIpsec} + building + childOfOpenvpn("1")));
    EXPECT_EQ(api.requests(), (Lines{kOpenvpn, kSyslog, kWans, kTunnels}));
    EXPECT_EQ(currentWanIp, "198.51.100.2");
    EXPECT_EQ(v_apFqdnMonitor.size(), 2U);
    EXPECT_EQ(kernel.files.size(), 3U);
    EXPECT_EQ(kernel.files["/var/run/openvpn_vpn.conf"],
              "remote 203.0.113.30\nclient-config-dir /absent/clients\nverb 2\n");
    EXPECT_EQ(kernel.files[ipsecSecretsPath()], "\"198.51.100.2\" \"203.0.113.20\" : PSK \"key\"\n");
    const std::string& conf = kernel.files[ipsecConfPath()];
    EXPECT_EQ(conf.rfind(ipsecConfHeader(), 0), 0U) << conf;
    EXPECT_NE(conf.find("\tleftsubnet=192.168.2.0/24\n"), std::string::npos) << conf;

    EXPECT_TRUE(manageTunnels());
    EXPECT_EQ(kernel.news(), (kTeardown + Lines{kWritesOpenvpn, kStopsIpsec, "signal 15 to child 1"} + building +
                              childOfOpenvpn("2")));
  });
}

const std::string kInventoryFailed = "ERROR [TUNNEL_MNGR] error executing ip tunnel command ";
const std::string kReadFailed = "ERROR [TUNNEL_MNGR] Failed read config\n";
const std::string kNoWanInformation = "ERROR [TUNNEL_MNGR][WAN_MONITOR] Could not obtain WAN information\n";
const std::string kNoWan = "INFO [TUNNEL_MNGR] WAN Not Acquired. Tunnels will not be setup until WAN is available.\n";
const std::string kRefused = "ERROR [TUNNEL_MNGR] api returned error code [404]\n";

/// The lines of the log that are not the run's reports of what it does.
std::string withoutReports(const std::string& log) {
  std::string rest;
  std::istringstream lines(log);
  for (std::string line; std::getline(lines, line);) {
    const bool isReport = line.find("MANAGING") != std::string::npos || line.find("DESTROYING") != std::string::npos ||
                          line.find("Pulling") != std::string::npos;
    if (!isReport) rest += line + "\n";
  }
  return rest;
}

/// What is torn down stays down, and nothing is built: each is the second run of a router that was whole.
TEST(ManageTunnels, EndsEarlyWhereTheRestDependsOnAStepThatFails) {
  SKIP_WITHOUT_NAMESPACES();
  const Lines stopped = kTeardown + Lines{kWritesOpenvpn, kStopsIpsec, "signal 15 to child 1"};
  const struct {
    const char* what;
    int inventory;
    std::string document;  ///< that is another one, "" for none
    const char* payload;
    bool result;
    Lines acts;
    std::string log;
  } rows[] = {
      {"inventory", 1, "", "", false, kInventory, kInventoryFailed + "[1]\n"},
      {"inventory that cannot be had", -1, "", "", false, kInventory, kInventoryFailed + "[-1]\n"},
      {"OpenVPN tunnels", 0, kOpenvpn, "", false, kTeardown, kReadFailed},
      {"log level", 0, kSyslog, "", false, kTeardown, kReadFailed},
      {"no WAN", 0, kWans, "[]", true, stopped, kNoWan},
      {"no WAN list", 0, kWans, "", true, stopped, kRefused + kNoWanInformation + kNoWan},
      {"pull", 0, kTunnels, "", false, stopped, kRefused},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    checkInChild([&row] {
      enterPrivateMounts();
      ApiServer api(kDocuments);
      Kernel kernel;
      const ActingAs as(kernel);
      ASSERT_TRUE(manageTunnels());
      kernel.news();
      v_apFqdnMonitor.clear();
      kernel.answers["ip tunnel"].status = row.inventory;
      if (!row.document.empty()) api.change(row.document, row.payload);
      const CapturedLog log(ZEL::Logger::PrintLevel::INFO_LEVEL);
      EXPECT_EQ(manageTunnels(), row.result);
      EXPECT_EQ(kernel.news(), row.acts);
      EXPECT_EQ(withoutReports(log.text()), row.log);
      EXPECT_TRUE(v_apFqdnMonitor.empty());
    });
  }
}

/// The daemon's loop catches what is thrown.
TEST(ManageTunnels, KeepsWhatWasDoneBeforeARecordOfAWrongType) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([] {
    enterPrivateMounts();
    ApiServer api(kDocuments);
    api.change(kTunnels, R"({"greTunnels":[
        {"name":"good","enabled":true,"remoteIp":"203.0.113.7","ttl":64},
        {"name":"bad","enabled":true,"remoteIp":"203.0.113.8","ttl":[]},
        {"name":"behind","enabled":true,"remoteIp":"203.0.113.9","ttl":64}]})");
    Kernel kernel;
    const ActingAs as(kernel);
    EXPECT_THROW(manageTunnels(), Json::LogicError);
    EXPECT_EQ(kernel.news(),
              (kTeardown + Lines{kWritesOpenvpn, kStopsIpsec,
                                 "run ip tunnel add good mode gre remote 203.0.113.7 local 198.51.100.2 ttl 64",
                                 "run ip link set good up"}));
  });
}

}  // namespace
