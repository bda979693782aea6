// A tunnel's conn sections, as they stand in the IPsec service's configuration.
#pragma once

#include <json/value.h>

#include <string>

/// The conn sections of an IPsec tunnel record: one for each of its local networks ("localIpWithCidr"), the last
/// network first, each after an empty line. `localAddress` is this end's WAN address; `authLines` are the complete
/// lines that close every section.
///
/// "" when the record has no local network, or, with a WARNING line, when its "type" is neither "IKE" nor "IKEv2". An
/// encryption method that has no proposals leaves their value empty, with an ERROR line for each section. Throws
/// Json::LogicError for a member of a type that cannot be converted. Writes nothing but log lines; any thread.
std::string buildConnSection(const Json::Value& tunnel, const std::string& localAddress, const std::string& authLines);

/// The name of one section: the tunnel's name, "_", and the network with "_" for everything that is no digit.
std::string makeConnName(const std::string& name, const std::string& localNetwork);
