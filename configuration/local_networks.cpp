#include "configuration/local_networks.h"

#include <arpa/inet.h>

#include <array>
#include <bitset>
#include <cstdint>
#include <set>

namespace {

/// What an interface that belongs to no bridge has for the bridge's name.
constexpr const char* kNoBridge = "--";

bool isAvailableLanInterface(const Json::Value& interface) {
  return interface["type"].asString() == "LAN" && interface["available"].asBool() &&
         interface["nitype"].asString() != "BRIDGE";
}

void appendNetwork(const Json::Value& interface, Json::Value& networks) {
  const Json::Value& ipv4 = interface["ipv4"];
  const std::string network = networkText(ipv4["ip"].asString(), ipv4["mask"].asString());
  if (!network.empty()) networks.append(network);
}

}  // namespace

std::string networkText(const std::string& ip, const std::string& mask) {
  in_addr address{};
  in_addr maskBits{};
  if (inet_pton(AF_INET, mask.c_str(), &maskBits) != 1 || inet_pton(AF_INET, ip.c_str(), &address) != 1) return "";
  address.s_addr &= maskBits.s_addr;
  std::array<char, 32> text{};
  inet_ntop(AF_INET, &address, text.data(), text.size());
  return text.data() + ("/" + std::to_string(std::bitset<32>(maskBits.s_addr).count()));
}

Json::Value localNetworks(const Json::Value& interfaces) {
  Json::Value networks(Json::arrayValue);
  std::set<std::string> bridges;
  for (Json::ArrayIndex i = interfaces.size(); i-- > 0;) {
    const Json::Value& interface = interfaces[i];
    if (!isAvailableLanInterface(interface)) continue;
    const std::string bridge = interface["bridge"].asString();
    bridges.insert(bridge);
    if (bridge == kNoBridge) appendNetwork(interface, networks);
  }
  for (Json::ArrayIndex i = bridges.empty() ? 0 : interfaces.size(); i-- > 0;) {
    const Json::Value& interface = interfaces[i];
    if (interface["nitype"].asString() != "BRIDGE") continue;
    if (bridges.count(interface["bridge"].asString()) > 0) appendNetwork(interface, networks);
  }
  return networks;
}
