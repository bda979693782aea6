#include "tunnelctl/check_lan.h"

#include <algorithm>
#include <set>

#include "configuration/local_networks.h"
#include "tunnelctl/check_addresses.h"
#include "tunnelctl/check_rules.h"

namespace {

constexpr std::string_view kNoBridge = "--";

struct Spelling {
  const char* member;
  std::string_view right;
};

constexpr std::array<Spelling, 2> kSpellings{{{"type", "LAN"}, {"nitype", "BRIDGE"}}};

std::string_view bridgeOf(const Interface& interface) {
  return interface.place["bridge"].textOrNothing();
}

Interface readInterface(const Place& place) {
  Interface interface { place };
  interface.isLan = place["type"].text() == "LAN";
  interface.isBridge = place["nitype"].text() == "BRIDGE";
  interface.isAvailableLan = interface.isLan && place["available"].flag() && !interface.isBridge;
  interface.counts = interface.isAvailableLan && bridgeOf(interface) == kNoBridge;
  return interface;
}

void checkSpelling(const Interface& interface, Findings& findings) {
  for (const Spelling& row : kSpellings) {
    const Place place = interface.place[row.member];
    const std::string_view text = place.textOrNothing();
    if (text != row.right && isAlikeInSmallLetters(text, row.right))
      findings.add(place, Problem::kInterfaceSpelling, {text, row.right});
  }
}

void checkBridge(const Interface& interface, const std::vector<Interface>& interfaces, Findings& findings) {
  const Place place = interface.place["bridge"];
  const auto bridge = place.text();
  if (!bridge || !interface.isLan || interface.isBridge || bridge == kNoBridge) return;
  const auto isThat = [&](const Interface& other) { return other.isBridge && bridgeOf(other) == *bridge; };
  if (std::none_of(interfaces.begin(), interfaces.end(), isThat))
    findings.add(place, Problem::kInterfaceBridge, {*bridge});
}

/// Of one that gives a network, now or when it is available. One that has neither address nor mask has none to give.
void checkAddress(const Interface& interface, Findings& findings) {
  const Place ipPlace = interface.place["ipv4"]["ip"];
  const Place maskPlace = interface.place["ipv4"]["mask"];
  const auto ip = ipPlace.text();
  const auto mask = maskPlace.text();
  const bool standsAlone = interface.isLan && bridgeOf(interface) == kNoBridge;
  if (!ip || !mask || (ip->empty() && mask->empty()) || !(standsAlone || interface.isBridge)) return;
  if (!parseAddress(*ip)) {
    findings.add(ipPlace, Problem::kInterfaceAddress, {*ip});
  } else if (!parseAddress(*mask)) {
    findings.add(maskPlace, Problem::kInterfaceAddress, {*mask});
  } else if (!parseMask(*mask)) {
    findings.add(maskPlace, Problem::kMaskWithHoles, {*mask, networkText(std::string(*ip), std::string(*mask))});
  }
}

void checkLocalNetworks(const Place& root, Findings& findings) {
  const auto tunnels = ipsecTunnelsOf(root);
  const bool any = std::any_of(tunnels.begin(), tunnels.end(), [](const Place& tunnel) { return tunnel.isInForce(); });
  if (any && !hasLocalNetworks(root)) findings.add(root["ni"]["nis"], Problem::kNoLocalNetwork);
}

}  // namespace

std::vector<Interface> interfacesOf(const Place& root) {
  std::vector<Interface> interfaces;
  std::set<std::string_view> bridges;
  for (const Place& record : root["ni"]["nis"].elements()) {
    if (!record.value().isObject()) continue;
    interfaces.push_back(readInterface(record));
    if (interfaces.back().isAvailableLan) bridges.insert(bridgeOf(interfaces.back()));
  }
  for (Interface& interface : interfaces)
    interface.counts = interface.counts || (interface.isBridge && bridges.count(bridgeOf(interface)) > 0);
  return interfaces;
}

bool looksAtBridges(const std::vector<Interface>& interfaces) {
  return std::any_of(interfaces.begin(), interfaces.end(), [](const Interface& one) { return one.isAvailableLan; });
}

bool hasLocalNetworks(const Place& root) {
  try {
    return !localNetworks(root["ni"]["nis"].value()).empty();
  } catch (const Json::LogicError&) {
    return true;
  }
}

void checkLan(const Place& root, Findings& findings) {
  const std::vector<Interface> interfaces = interfacesOf(root);
  for (const Interface& interface : interfaces) {
    checkSpelling(interface, findings);
    checkBridge(interface, interfaces, findings);
    checkAddress(interface, findings);
  }
  checkLocalNetworks(root, findings);
}
