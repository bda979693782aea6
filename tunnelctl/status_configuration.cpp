#include "tunnelctl/status_configuration.h"

#include <algorithm>
#include <utility>

#include "api/wan_list.h"
#include "configuration/local_networks.h"
#include "ipsec/connection_section.h"
#include "support/text.h"
#include "tunnelctl/json_member.h"

namespace {

constexpr const char* kNameless = "?";

std::string interfaceNameOf(const Json::Value& record) {
  return ZEL::Text::replace(record["name"].asString(), " ", "_");
}

std::string maskText(const Json::Value& mask) {
  return mask.isNumeric() ? std::to_string(mask.asInt()) : mask.asString();
}

TunnelRecord readGre(const Json::Value& record) {
  TunnelRecord tunnel;
  tunnel.name = interfaceNameOf(record);
  tunnel.isEnabled = record["enabled"].asBool();
  tunnel.host = record["remoteIp"].asString();
  if (const auto address = parseNetwork(record["tunnelIp"].asString(), record["tunnelMask"].asString()))
    tunnel.addresses.push_back(*address);
  const Json::Value& routes = record["routes"];
  for (Json::ArrayIndex i = 0; i < routes.size(); ++i) {
    if (const auto route = parseNetwork(routes[i]["ip"].asString(), maskText(routes[i]["mask"])))
      tunnel.routes.push_back(*route);
  }
  return tunnel;
}

/// The router's local networks, none where the interfaces cannot be read.
Json::Value networksOf(const Json::Value& documents) {
  try {
    return localNetworks(documents["ni"]["nis"]);
  } catch (const Json::LogicError&) {
    return {Json::arrayValue};
  }
}

TunnelRecord readIpsec(const Json::Value& record) {
  TunnelRecord tunnel;
  tunnel.name = interfaceNameOf(record);
  tunnel.isEnabled = record["enabled"].asBool();
  tunnel.host = record["remoteWanIp"].asString();
  return tunnel;
}

TunnelRecord readOpenvpn(const Json::Value& record) {
  TunnelRecord tunnel;
  tunnel.name = record["name"].asString();
  tunnel.isEnabled = record["enabled"].asBool();
  return tunnel;
}

TunnelRecord unreadable(const Json::Value& record) {
  TunnelRecord tunnel;
  const std::string name = textMember(record, "name");
  tunnel.name = name.empty() ? kNameless : name;
  tunnel.isReadable = false;
  return tunnel;
}

/// An enabled record takes the place of a disabled one with its name.
void add(TunnelRecord&& tunnel, std::vector<TunnelRecord>& tunnels) {
  const auto same = std::find_if(tunnels.begin(), tunnels.end(),
                                 [&tunnel](const TunnelRecord& other) { return other.name == tunnel.name; });
  if (same == tunnels.end()) {
    tunnels.push_back(std::move(tunnel));
  } else if (tunnel.isEnabled && !same->isEnabled && same->isReadable) {
    *same = std::move(tunnel);
  }
}

std::vector<TunnelRecord> readAll(const Json::Value& records, TunnelRecord (*read)(const Json::Value&)) {
  std::vector<TunnelRecord> tunnels;
  if (!records.isArray()) return tunnels;
  for (const Json::Value& record : records) {
    try {
      add(read(record), tunnels);
    } catch (const Json::LogicError&) {
      add(unreadable(record), tunnels);
    }
  }
  return tunnels;
}

/// Names the connections that a tunnel has, one for each of the router's local networks.
void addConnections(const Json::Value& networks, TunnelRecord& tunnel) {
  if (!tunnel.isReadable) return;
  for (const Json::Value& network : networks)
    tunnel.connections.push_back(makeConnName(tunnel.name, network.asString()));
}

}  // namespace

Configuration readConfiguration(const Json::Value& documents) {
  Configuration configuration;
  configuration.wan = currentAddress(memberOf(documents, "wans"));
  configuration.gre = readAll(memberOf(documents, "greTunnels"), readGre);
  configuration.ipsec = readAll(memberOf(documents, "ipsecTunnels"), readIpsec);
  configuration.openvpn = readAll(memberOf(documents, "ovpnTunnels"), readOpenvpn);
  const Json::Value networks = networksOf(documents);
  for (TunnelRecord& tunnel : configuration.ipsec) addConnections(networks, tunnel);
  return configuration;
}
