// The router's local networks.
#pragma once

#include <json/value.h>

#include <string>

/// The network of an interface address as "network/prefix", for example "192.168.2.0/24", or "" when one of the two is
/// no dotted IPv4 text. The prefix is the number of one bits in the mask, wherever they stand.
std::string networkText(const std::string& ip, const std::string& mask);

/// The networks of the router's LAN from its array of network interfaces, as an array of texts: first those of the
/// available LAN interfaces that stand alone, then those of the bridges that available LAN interfaces belong to, each
/// group in reverse array order. Interfaces whose address or mask is none are left out.
///
/// Pure. Throws Json::LogicError for a member of a type that cannot be converted.
Json::Value localNetworks(const Json::Value& interfaces);
