#include "simulation/configuration.h"

#include "simulation/text.h"

namespace simulation {
namespace {

std::string quoted(const std::string& text) {
  return "\"" + text + "\"";
}

std::string joined(const std::vector<std::string>& records) {
  std::string text = "[";
  for (const std::string& record : records) text += (text.size() > 1 ? "," : "") + record;
  return text + "]";
}

const char* flag(bool value) {
  return value ? "true" : "false";
}

std::string drawnHost(Random& random, unsigned int number) {
  if (random.chance(30)) return "203.0.113." + std::to_string(10 + number);
  return hostNames()[random.below(hostNames().size())];
}

std::string greRecord(Random& random, unsigned int number, bool enabled) {
  const std::string text = std::to_string(number);
  std::string record = R"({"name":"gre )" + text + R"(","enabled":)" + flag(enabled) + R"(,"remoteIp":)" +
                       quoted(drawnHost(random, number)) + R"(,"ttl":)" + (random.chance(50) ? "64" : R"("255")") +
                       R"(,"checkPeriod":)" + std::to_string(random.between(0, 2));
  if (random.chance(80)) record += R"(,"tunnelIp":"10.9.)" + text + R"(.1","tunnelMask":"30")";
  record += R"(,"routes":[)";
  if (random.chance(60)) record += R"({"ip":"192.168.5)" + text + R"(.0","mask":24})";
  return record + "]}";
}

std::string ipsecRecord(Random& random, unsigned int number, bool enabled) {
  const std::string text = std::to_string(number);
  const std::string authentication = random.chance(50)
                                         ? R"("authMethod":"secret","psk":"key )" + text + "\""
                                         : R"("authMethod":"rsasig","caCert":"ca )" + text + R"(","localCert":"cert )" +
                                               text + R"(","localPrivKey":"key )" + text + "\"";
  const std::string ciphers = random.chance(50) ? R"("phase1":"aes256-sha2_256;modp2048","phase2":"aes128-sha1")"
                                                : R"("encryptMethod":"aes256")";
  return R"({"name":"ipsec)" + text + R"(","enabled":)" + flag(enabled) + R"(,"type":"IKEv2",)" + authentication + "," +
         ciphers + R"(,"remoteWanIp":)" + quoted(drawnHost(random, 20 + number)) + R"(,"remoteNetworkIp":"192.168.7)" +
         text + R"(.0","remoteNetworkMask":24,"ikelife":3,"keylife":1,)" + R"("retries":0,"uid":false,"checkPeriod":)" +
         std::to_string(random.between(0, 2)) + "}";
}

std::string openvpnRecord(Random& random, unsigned int number, bool enabled) {
  const std::string text = std::to_string(number);
  const std::string kind = random.chance(60)
                               ? R"(ifconfig 10.8.)" + text + ".1 10.8." + text + R"(.2\n)"
                               : R"(client-config-dir /var/run/clients)" + text + R"(\n<ca>\nca\n</ca>\n)";
  return R"({"name":"vpn)" + text + R"(","enabled":)" + flag(enabled) + R"(,"config":"dev tun\nremote 203.0.113.5)" +
         text + R"(\n)" + kind + "\"}";
}

constexpr const char* kInterfaces =
    R"({"nis":[{"type":"LAN","nitype":"BRIDGE","bridge":"br0","available":true,)"
    R"("ipv4":{"ip":"192.168.1.1","mask":"255.255.255.0"}},)"
    R"({"type":"LAN","nitype":"ETHERNET","bridge":"br0","available":true,"ipv4":{"ip":"","mask":""}},)"
    R"({"type":"LAN","nitype":"ETHERNET","bridge":"--","available":true,)"
    R"("ipv4":{"ip":"192.168.2.1","mask":"255.255.255.0"}}]})";

std::string envelope(const std::string& result) {
  return R"({"code":200,"result":)" + result + "}";
}

}  // namespace

const std::vector<std::string>& hostNames() {
  static const std::vector<std::string> names{"a.example", "b.example", "c.example", "d.example"};
  return names;
}

Configuration Configuration::drawn(Random& random, unsigned int most) {
  Configuration configuration;
  for (const std::string& host : hostNames())
    configuration.addresses[host] = "192.0.2." + std::to_string(random.between(1, 9));
  configuration.redraw(random, most);
  return configuration;
}

void Configuration::redraw(Random& random, unsigned int most) {
  watched_ = 0;
  openvpnNames_.clear();
  drawTunnels(random, most);
}

void Configuration::drawTunnels(Random& random, unsigned int most) {
  std::vector<std::string> gre;
  std::vector<std::string> ipsec;
  std::vector<std::string> openvpn;
  for (auto number = static_cast<unsigned int>(random.below(most + 1)); number > 0; --number) {
    const bool enabled = random.chance(85);
    watched_ += enabled ? 1 : 0;
    gre.push_back(greRecord(random, number, enabled));
  }
  for (auto number = static_cast<unsigned int>(random.below(most + 1)); number > 0; --number) {
    const bool enabled = random.chance(85);
    watched_ += enabled ? 1 : 0;
    ipsec.push_back(ipsecRecord(random, number, enabled));
  }
  for (auto number = static_cast<unsigned int>(random.below(most + 1)); number > 0; --number) {
    const bool enabled = random.chance(85);
    if (enabled) openvpnNames_.push_back("vpn" + std::to_string(number));
    openvpn.push_back(openvpnRecord(random, number, enabled));
  }
  greTunnels_ = joined(gre);
  ipsecTunnels_ = joined(ipsec);
  openvpnTunnels_ = joined(openvpn);
}

std::string Configuration::answer(const std::string& url) const {
  if (endsWith(url, "/waninfo/wans"))
    return envelope(R"([{"current":false,"ip":"203.0.113.40"})" +
                    (wan.empty() ? "" : R"(,{"current":true,"ip":)" + quoted(wan) + "}") + "]");
  if (endsWith(url, "fields=ovpnTunnels")) return envelope(R"({"ovpnTunnels":)" + openvpnTunnels_ + "}");
  if (endsWith(url, "fields=syslog")) return envelope(R"({"syslog":{"logLevel":20}})");
  return envelope(R"({"greTunnels":)" + greTunnels_ + R"(,"ipsecTunnels":)" + ipsecTunnels_ + R"(,"ni":)" +
                  kInterfaces + "}");
}

std::string Configuration::wrongAnswer(const std::string& url) const {
  if (endsWith(url, "/waninfo/wans")) return envelope(R"([7,{"current":"yes"},{"current":true,"ip":["1"]}])");
  if (endsWith(url, "fields=ovpnTunnels")) return envelope(R"({"ovpnTunnels":[{"name":"vpn1","enabled":[1]}]})");
  if (endsWith(url, "fields=syslog")) return envelope(R"({"syslog":{"logLevel":"high"}})");
  return envelope(R"({"greTunnels":[{"name":"gre 1","enabled":true,"remoteIp":"a.example","routes":7}],)"
                  R"("ipsecTunnels":[{"name":["x"]}],"ni":{}})");
}

}  // namespace simulation
