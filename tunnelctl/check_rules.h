// The rules of `check`, by what they look at. Each adds what it finds. Pure; the root is an object, and but for the
// first two rules one that was made by `asRead`.
#pragma once

#include <string>

#include "tunnelctl/check_findings.h"

/// True for a device of the router that is no GRE tunnel, and so is not removed by a run.
using IsForeignDevice = bool (*)(const std::string& name);

/// `given` are the documents, `read` what `asRead` made of them.
void checkTypes(const Place& given, const Place& read, Findings& findings);

void checkUnknownMembers(const Place& root, Findings& findings);
void checkWans(const Place& root, Findings& findings);
void checkGreTunnels(const Place& root, Findings& findings);
void checkLan(const Place& root, Findings& findings);
void checkIpsecTunnels(const Place& root, Findings& findings);
void checkOvpnTunnels(const Place& root, Findings& findings);

/// The names of all devices that tunnels make.
void checkDevices(const Place& root, IsForeignDevice isForeign, Findings& findings);

/// Networks of different tunnels, and of tunnels and the LAN.
void checkOverlaps(const Place& root, Findings& findings);

/// Parts of the above.
void checkProposals(const Place& tunnel, Findings& findings);
void checkAuthentication(const Place& tunnel, bool hasCertificates, Findings& findings);
void checkCertificates(const Place& tunnel, bool areUsed, Findings& findings);
void checkPeriod(const Place& tunnel, Findings& findings);
