// Bringing up one configured GRE tunnel with its address and its routes.
#pragma once

#include <json/value.h>

#include <string>

/// What a GRE tunnel record says about the tunnel's link and address. Absent members are empty texts; `ttl` is then
/// "0". The mask is the record's own text, dotted or a prefix length.
struct GreTunnel {
  std::string name;
  std::string remoteIp;
  std::string tunnelIp;
  std::string tunnelMask;
  std::string ttl;
};

/// Throws Json::LogicError for a member of a type that cannot be converted.
GreTunnel readGreTunnel(const Json::Value& record);

/// The commands, exactly as they are run; `localIp` is the WAN address at this end.
std::string createCommand(const GreTunnel& tunnel, const std::string& localIp);
std::string linkUpCommand(const GreTunnel& tunnel);
std::string addressCommand(const GreTunnel& tunnel);
std::string routeCommand(const GreTunnel& tunnel, const std::string& destination);

/// Creates the tunnel of a record whose host is resolved already, from the current WAN address, and adds its address,
/// where it has one with a mask, and its routes. Always true: what becomes of the commands is not looked at, and one
/// that fails keeps none of the others from being tried. Main thread only. Throws Json::LogicError as above, after the
/// commands that came before.
bool createGreTunnel(const Json::Value& record);
