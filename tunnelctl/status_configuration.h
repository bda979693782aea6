// What `status` needs to know of the router's configuration.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "tunnelctl/ipv4_network.h"

/// What counts of a record of any kind, its name as the program uses it. A record that the program could not read,
/// since a member is of a wrong type, has the name that can be read, or "?".
struct TunnelRecord {
  std::string name{};
  bool isEnabled = false;
  bool isReadable = true;
  std::string host{};                      ///< the remote end of a GRE or IPsec tunnel
  std::vector<Ipv4Network> addresses{};    ///< of a GRE tunnel: one, or none
  std::vector<Ipv4Network> routes{};       ///< of a GRE tunnel
  std::vector<std::string> connections{};  ///< of an IPsec tunnel: their names, one for each local network
};

struct Configuration {
  std::string wan{};  ///< the address of the current one, or ""
  std::vector<TunnelRecord> gre{};
  std::vector<TunnelRecord> ipsec{};
  std::vector<TunnelRecord> openvpn{};
};

/// From all documents in one object (documents.h). Of several records with one name the first that is enabled counts,
/// or else the first. Addresses and routes that are none are left out. Pure; throws nothing for documents of wrong
/// types.
Configuration readConfiguration(const Json::Value& documents);
