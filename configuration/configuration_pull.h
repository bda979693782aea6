// The tunnels as the configuration API has them.
#pragma once

#include <json/value.h>

#include <string>

/// The document of the GRE and IPsec tunnels and of the network interfaces.
extern const std::string configUrl;

/// Fetches the GRE and the IPsec tunnel records and makes them ready for use: blanks in "name" become "_", the remote
/// host ("remoteIp" of a GRE tunnel, "remoteWanIp" of an IPsec tunnel) becomes its dotted address, or "" when it has
/// none, and every IPsec tunnel gets the router's local networks as "localIpWithCidr".
///
/// For each enabled tunnel one FqdnMonitor is appended to `v_apFqdnMonitor`, not yet started. False, with everything
/// untouched, when the API request failed. Blocks for the request and for the names, which are resolved side by side.
/// Throws Json::LogicError for a record of a wrong type, after what came before it was done. Main thread only.
bool pullConfigurations(Json::Value& greTunnels, Json::Value& ipsecTunnels);

/// The minutes between two look-ups of a tunnel's remote host: the record's number cut to 16 bits, and 1 in place of 0.
unsigned int checkPeriodMinutes(const Json::Value& checkPeriod);
