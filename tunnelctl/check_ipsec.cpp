#include <algorithm>
#include <array>
#include <string>

#include "support/text.h"
#include "tunnelctl/check_addresses.h"
#include "tunnelctl/check_owners.h"
#include "tunnelctl/check_rules.h"

namespace {

constexpr std::size_t kLongestPemName = 255 - 4;  ///< what a directory takes, without ".pem"
constexpr std::string_view kUnreadable("\"=\t\n\0", 5);

bool hasCertificates(const Place& tunnel) {
  return tunnel["authMethod"].text() == "rsasig";
}

std::string nameOf(const Place& tunnel) {
  return ZEL::Text::replace(std::string(tunnel["name"].textOrNothing()), " ", "_");
}

/// What keeps a name from being that of a conn section, or of files; null if nothing does.
const char* objectionToName(std::string_view name, bool isFile) {
  if (name.find_first_of(kUnreadable) != std::string_view::npos)
    return "has a character with which the service reads none of its file, and no IPsec tunnel comes up";
  if (name.find('#') != std::string_view::npos)
    return "has a \"#\", where the service ends the name, or reads none of its file";
  if (!isFile) return nullptr;
  if (name.find('/') != std::string_view::npos) return "has a \"/\" and is the name of no file";
  if (name.find(',') != std::string_view::npos) return "has a \",\", where the service ends the certificate's name";
  return name.size() > kLongestPemName ? "is too long for the name of a file" : nullptr;
}

void checkName(const Place& tunnel, Findings& findings) {
  const Place place = tunnel["name"];
  if (!place.text()) return;
  const std::string name = nameOf(tunnel);
  const bool isFile = hasCertificates(tunnel);
  if (const char* const objection = objectionToName(name, isFile); objection != nullptr) {
    findings.add(place, Problem::kIpsecName, {name, objection});
  } else if (name.empty() && tunnel.isInForce()) {
    findings.add(place, Problem::kNoName);
  } else if (isFile && name.compare(0, 1, ".") == 0) {
    findings.add(place, Problem::kHiddenFiles, {name});
  }
}

void checkVersion(const Place& tunnel, Findings& findings) {
  const Place place = tunnel["type"];
  const auto type = place.text();
  if (type == "IKE" || type == "IKEv2" || (type == "" && !tunnel.isInForce())) return;
  findings.add(place, Problem::kIkeVersion, {shownValue(place.value())});
}

void checkPeer(const Place& tunnel, Findings& findings) {
  const Place place = tunnel["remoteWanIp"];
  const auto host = place.text();
  if (!host || (host->empty() && !tunnel.isInForce())) return;
  if (!isHost(*host) || isAlikeInSmallLetters(*host, "any")) findings.add(place, Problem::kAnyPeer, {*host});
}

void checkRemoteNetwork(const Place& tunnel, Findings& findings) {
  const Place place = tunnel["remoteNetworkIp"];
  const auto network = place.text();
  if (!network || parseAddress(*network) || (network->empty() && !tunnel.isInForce())) return;
  const char* const meaning = network == "Any" ? "the one address 0.0.0.0" : "no network but the peer itself";
  findings.add(place, Problem::kRemoteNetwork, {*network, meaning});
}

void checkRemoteMask(const Place& tunnel, Findings& findings) {
  const Place place = tunnel["remoteNetworkMask"];
  const auto mask = place.text();
  if (!mask || parseNumber(*mask, kAddressBits) || tunnel["remoteNetworkIp"].text() == "Any") return;
  int number = 0;
  if (parseAddress(*mask) || ZEL::Text::parse(number, std::string(*mask))) {
    findings.add(place, Problem::kSingleAddress, {*mask});
  } else if (!mask->empty() || tunnel.isInForce()) {
    findings.add(place, Problem::kAllTraffic, {*mask});
  }
}

void checkLifetimes(const Place& tunnel, Findings& findings) {
  for (const char* member : {"ikelife", "keylife"}) {
    const Place place = tunnel[member];
    const Json::Value& hours = place.value();
    if (!hours.isConvertibleTo(Json::uintValue) || hours.asUInt() > 0) continue;
    if (!hours.isNull() || tunnel.isInForce()) findings.add(place, Problem::kEndlessKeys);
  }
}

/// The certificates of authorities count for all tunnels, so it is enough if one has brought its.
void checkCaCertificates(const std::vector<Place>& tunnels, Findings& findings) {
  std::vector<Place> missing;
  for (const Place& tunnel : tunnels) {
    if (!tunnel.isInForce() || !hasCertificates(tunnel)) continue;
    if (tunnel["caCert"].text() != "") return;
    missing.push_back(tunnel["caCert"]);
  }
  for (const Place& place : missing) findings.add(place, Problem::kNoCaCertificate);
}

}  // namespace

void checkIpsecTunnels(const Place& root, Findings& findings) {
  // The networks' part of a connection's name is the same for all tunnels, so these differ as the tunnels' names do.
  Owners names(Problem::kIpsecNameTwice);
  const std::vector<Place> tunnels = ipsecTunnelsOf(root);
  for (const Place& tunnel : tunnels) {
    checkName(tunnel, findings);
    if (tunnel["name"].text()) names.add(nameOf(tunnel), tunnel, tunnel["name"], findings);
    checkVersion(tunnel, findings);
    checkPeer(tunnel, findings);
    checkRemoteNetwork(tunnel, findings);
    checkRemoteMask(tunnel, findings);
    checkProposals(tunnel, findings);
    checkLifetimes(tunnel, findings);
    checkAuthentication(tunnel, hasCertificates(tunnel), findings);
    checkCertificates(tunnel, hasCertificates(tunnel), findings);
    checkPeriod(tunnel, findings);
  }
  checkCaCertificates(tunnels, findings);
}
