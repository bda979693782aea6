// IPsec tunnels whose ends share a key.
#pragma once

#include <json/value.h>

#include <string>

/// Who the two ends are to each other: by their addresses, or by what is configured, empty or not.
struct PskIdentities {
  bool configured;
  std::string local;
  std::string remote;
};

/// `localAddress` is this end's WAN address. Throws Json::LogicError for a member of a type that cannot be converted.
PskIdentities readPskIdentities(const Json::Value& tunnel, const std::string& localAddress);

/// The lines that close the tunnel's conn sections. They name identities only where these are configured.
std::string pskAuthLines(const PskIdentities& identities);

/// The tunnel's line in the secrets, with its line feed. Nothing is escaped.
std::string pskSecretsLine(const PskIdentities& identities, const std::string& key);

/// Appends one enabled tunnel: its conn sections, then its secrets line. False at the first of these that fails; what
/// was appended before stays, until the next reset. Throws as above. Main thread only.
bool configurePskTunnel(const Json::Value& tunnel, const std::string& localAddress);
