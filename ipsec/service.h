// The IPsec service: its configuration as a whole, its start and its end. Main thread only.
#pragma once

#include <json/value.h>

#include <string>

/// Stops the service, waits for the command's end and returns its status as system(3) does.
int stopIpsec();

/// Rebuilds the service's files from the tunnel records and, when at least one tunnel could be written, restarts the
/// service and gives it a second. Otherwise, or when the files cannot be reset (an ERROR line), the service stays
/// stopped. Throws as `configureIpsecTunnels` does.
void startIpsec(const std::string& currentWanAddress, const Json::Value& ipsecTunnels);

/// Appends every enabled tunnel of the array to the service's files, in its order, and makes the two files readable by
/// all. A tunnel that fails is reported and keeps none of the others from being written. True when at least one was
/// written completely. Throws Json::LogicError for a record of a wrong type, after what came before it was written.
bool configureIpsecTunnels(const Json::Value& ipsecTunnels, const std::string& currentWanAddress);
