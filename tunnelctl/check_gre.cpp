#include <string>

#include "configuration/configuration_pull.h"
#include "tunnelctl/check_addresses.h"
#include "tunnelctl/check_owners.h"
#include "tunnelctl/check_rules.h"

namespace {

constexpr int kIpv6Bits = 128;
constexpr int kHighestTtl = 255;
constexpr unsigned int kLongestPeriod = 65535;

/// Tells of a text that the shell takes apart, and returns whether it does.
bool isShellText(const Place& place, Findings& findings) {
  const std::string_view text = place.textOrNothing();
  if (!hasShellCharacter(text)) return false;
  findings.add(place, Problem::kShellCharacters, {text});
  return true;
}

/// ip(8) takes a mask of either form for an IPv4 address, and for an IPv6 address a prefix length.
bool isMaskFor(std::string_view address, std::string_view mask) {
  return isIpv6Address(address) ? parseNumber(mask, kIpv6Bits).has_value() : parseMask(mask).has_value();
}

bool isAddress(std::string_view text) {
  return parseAddress(text) || isIpv6Address(text);
}

void checkRemote(const Place& place, Findings& findings) {
  const auto host = place.text();
  if (!host || isHost(*host) || (host->empty() && !place.isInForce())) return;
  findings.add(place, Problem::kGreRemote, {*host});
}

void checkAddress(const Place& tunnel, Findings& findings) {
  const Place ipPlace = tunnel["tunnelIp"];
  const Place maskPlace = tunnel["tunnelMask"];
  const auto ip = ipPlace.text();
  const auto mask = maskPlace.text();
  if (!ip || !mask || (ip->empty() && mask->empty())) return;
  if (ip->empty() || mask->empty()) {
    findings.add(ip->empty() ? ipPlace : maskPlace, Problem::kHalfAddress);
  } else if (isShellText(ipPlace, findings) || isShellText(maskPlace, findings)) {
    return;
  } else if (!isAddress(*ip)) {
    findings.add(ipPlace, Problem::kTunnelAddress, {*ip, "address"});
  } else if (!isMaskFor(*ip, *mask)) {
    findings.add(maskPlace, Problem::kTunnelAddress, {*mask, "mask"});
  }
}

void checkTtl(const Place& tunnel, Findings& findings) {
  const Place place = tunnel["ttl"];
  const auto ttl = place.text();
  if (place.value().isNull() || !ttl || ttl == "inherit" || parseNumber(*ttl, kHighestTtl)) return;
  if (!isShellText(place, findings)) findings.add(place, Problem::kTtl, {*ttl});
}

/// Bits that the kernel does not take in the address of a route.
bool hasBitsBehindMask(std::string_view ip, std::string_view mask) {
  const auto bits = parseAddress(ip);
  return bits && (*bits & ~maskBits(*parseMask(mask))) != 0;
}

void checkDestination(const Place& ipPlace, const Place& maskPlace, Findings& findings) {
  const auto ip = ipPlace.text();
  const auto mask = maskPlace.text();
  if (!ip || !mask || isShellText(ipPlace, findings) || isShellText(maskPlace, findings)) return;
  if (!isAddress(*ip)) {
    findings.add(ipPlace, Problem::kRouteNetwork, {*ip, "is no address"});
  } else if (!isMaskFor(*ip, *mask)) {
    findings.add(maskPlace, Problem::kRouteNetwork, {*mask, "is no mask"});
  } else if (hasBitsBehindMask(*ip, *mask)) {
    findings.add(ipPlace, Problem::kRouteNetwork, {*ip, "has bits behind its mask"});
  }
}

void checkRoute(const Place& route, Findings& findings) {
  if (!route.value().isObject()) return;
  const bool hasIp = route.value().isMember("ip");
  if (hasIp && route.value().isMember("mask")) {
    checkDestination(route["ip"], route["mask"], findings);
  } else {
    findings.add(route[hasIp ? "mask" : "ip"], Problem::kRouteSkipped);
  }
}

}  // namespace

void checkGreTunnels(const Place& root, Findings& findings) {
  Owners remotes(Problem::kSameRemote);  // the kernel has one tunnel for a pair of addresses
  for (const Place& tunnel : greTunnelsOf(root)) {
    const Place remote = tunnel["remoteIp"];
    isShellText(tunnel["name"], findings);
    checkRemote(remote, findings);
    if (!remote.textOrNothing().empty()) remotes.add(remote.textOrNothing(), tunnel, remote, findings);
    checkAddress(tunnel, findings);
    checkTtl(tunnel, findings);
    checkPeriod(tunnel, findings);
    for (const Place& route : tunnel["routes"].elements()) checkRoute(route, findings);
  }
}

void checkPeriod(const Place& tunnel, Findings& findings) {
  const Place place = tunnel["checkPeriod"];
  if (place.value().isNull() || !place.value().isConvertibleTo(Json::uintValue)) return;
  const unsigned int period = place.value().asUInt();
  if (period > 0 && period <= kLongestPeriod) return;
  const std::string taken = std::to_string(checkPeriodMinutes(place.value()));
  findings.add(place, Problem::kCheckPeriod, {std::to_string(period), taken});
}
