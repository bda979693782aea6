// IPsec tunnels whose ends know each other by certificates.
#pragma once

#include <json/value.h>

#include <string>

/// The line of a tunnel record's private key in the secrets, with its line feed.
std::string rsaSecretsLine(const Json::Value& tunnel);

/// The lines that close the tunnel's conn sections. An identity counts when it is not empty and "uid" is set; "uid" is
/// looked at only where there is an identity.
std::string rsaAuthLines(const Json::Value& tunnel);

/// Writes one enabled tunnel: its CA certificate, certificate and private key as PEM files under its name, their
/// content as the record has it, then its secrets line, then its conn sections. `localAddress` is this end's WAN
/// address.
///
/// False at the first of these that fails; those before it stay, until the next reset. Main thread only. All three
/// throw Json::LogicError for a member of a type that cannot be converted.
bool configureRsaTunnel(const Json::Value& tunnel, const std::string& localAddress);
