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

GreRecord readGre(const Json::Value& record) {
  GreRecord tunnel;
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

IpsecRecord readIpsec(const Json::Value& record, const Json::Value& networks) {
  IpsecRecord tunnel;
  tunnel.name = interfaceNameOf(record);
  tunnel.isEnabled = record["enabled"].asBool();
  tunnel.host = record["remoteWanIp"].asString();
  for (const Json::Value& network : networks)
    tunnel.connections.push_back(makeConnName(tunnel.name, network.asString()));
  return tunnel;
}

TunnelRecord readOpenvpn(const Json::Value& record) {
  TunnelRecord tunnel;
  tunnel.name = record["name"].asString();
  tunnel.isEnabled = record["enabled"].asBool();
  return tunnel;
}

template <class Record>
Record unreadable(const Json::Value& record) {
  Record tunnel;
  const std::string name = textMember(record, "name");
  tunnel.name = name.empty() ? kNameless : name;
  tunnel.isReadable = false;
  return tunnel;
}

/// An enabled record takes the place of a disabled one with its name.
template <class Record>
void add(Record tunnel, std::vector<Record>& tunnels) {
  const auto same = std::find_if(tunnels.begin(), tunnels.end(),
                                 [&tunnel](const Record& other) { return other.name == tunnel.name; });
  if (same == tunnels.end()) {
    tunnels.push_back(std::move(tunnel));
  } else if (tunnel.isEnabled && !same->isEnabled && same->isReadable) {
    *same = std::move(tunnel);
  }
}

template <class Record, class Read>
std::vector<Record> readAll(const Json::Value& records, Read read) {
  std::vector<Record> tunnels;
  if (!records.isArray()) return tunnels;
  for (const Json::Value& record : records) {
    try {
      add(read(record), tunnels);
    } catch (const Json::LogicError&) {
      add(unreadable<Record>(record), tunnels);
    }
  }
  return tunnels;
}

}  // namespace

Configuration readConfiguration(const Json::Value& documents) {
  const Json::Value networks = networksOf(documents);
  Configuration configuration;
  configuration.wan = currentAddress(memberOf(documents, "wans"));
  configuration.gre = readAll<GreRecord>(memberOf(documents, "greTunnels"), readGre);
  configuration.ipsec =
      readAll<IpsecRecord>(memberOf(documents, "ipsecTunnels"),
                           [&networks](const Json::Value& record) { return readIpsec(record, networks); });
  configuration.openvpn = readAll<TunnelRecord>(memberOf(documents, "ovpnTunnels"), readOpenvpn);
  return configuration;
}
