// What the tests of `check` share: a sound configuration, and changes to it with what is found then.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

/// A router's documents without a finding: /greTunnels/0 and /1, /ni/nis/0 (a bridge), /1 (its member) and /2 (alone),
/// /ipsecTunnels/0 (a shared key) and /1 (certificates), /ovpnTunnels/0 (a static key) and /1 (certificates).
Json::Value soundDocuments();

/// The same with changes: an object of values by pointer, of which the text "absent" removes a member.
Json::Value changed(const std::string& changes);

/// Changes to the sound documents, and what is found then.
struct Row {
  std::string changes;

  /// "identifier pointer" for each finding, in their order; "warning: " stands in front of an error's that is one only
  /// because of what is not in force.
  std::vector<std::string> findings;
};

using Rows = std::vector<Row>;

/// The findings as a row has them. A device is foreign whose name begins with "lan".
std::vector<std::string> foundIn(const Json::Value& documents);

/// Expects of each row what it says.
void expectFindings(const Rows& rows);

/// The rows of all files of tests, each file's under its own name.
Rows rowsOfTypes();
Rows rowsOfMembers();
Rows rowsOfGre();
Rows rowsOfLan();
Rows rowsOfIpsec();
Rows rowsOfAuthentication();
Rows rowsOfProposals();
Rows rowsOfOpenvpn();
Rows rowsOfOverlaps();
