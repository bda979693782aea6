// The router's WAN connections, of which one is current.
#pragma once

#include <json/value.h>

#include <string>

/// The document of the WAN list.
extern const std::string wanInfoUrl;

/// The address that the last tunnel management run found, "" when there was none: the local end of every tunnel.
/// Touched by the thread that performs the runs only.
extern std::string currentWanIp;

/// The "ip" of the first entry that is marked "current", or "" when none is. Whatever is no list, no entry or of a type
/// that cannot be converted counts as absent, so this never throws. Any thread.
std::string currentAddress(const Json::Value& wans);

/// Asks the API for the WAN list and returns its current address. When the request fails, an ERROR line says so and the
/// address is "". Blocks as long as the request does; any thread.
std::string queryCurrentWanAddress();
