#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <string>

#include "tunnelctl/check_addresses.h"
#include "tunnelctl/check_lan.h"
#include "tunnelctl/check_rules.h"

namespace {

enum Kind : std::uint8_t { kLan, kGre, kIpsec };
constexpr std::size_t kKinds = 3;

/// A network that is behind a tunnel, or the LAN's.
struct Network {
  std::uint32_t bits;
  int prefix;
  Kind kind;
  Place tunnel;
  Place place;          ///< what is wrong with it is told there
  bool isTold = false;  ///< that it overlaps the LAN
};

bool holds(const Network& outer, const Network& inner) {
  return outer.prefix <= inner.prefix && ((outer.bits ^ inner.bits) & maskBits(outer.prefix)) == 0;
}

std::string textOf(const Network& network) {
  std::array<char, INET_ADDRSTRLEN> text{};
  const in_addr address{htonl(network.bits)};
  return inet_ntop(AF_INET, &address, text.data(), text.size()) + ("/" + std::to_string(network.prefix));
}

/// A network that takes everything overlaps others because it is meant to, so there is none to compare.
void append(std::vector<Network>& networks, Kind kind, const Place& tunnel, const Place& ip,
            std::optional<int> prefix) {
  const auto bits = parseAddress(ip.textOrNothing());
  if (bits && prefix && *prefix > 0) networks.push_back({*bits & maskBits(*prefix), *prefix, kind, tunnel, ip});
}

std::vector<Network> networksOf(const Place& root) {
  std::vector<Network> networks;
  for (const Interface& interface : interfacesOf(root)) {
    const Place ipv4 = interface.place["ipv4"];
    if (interface.counts) append(networks, kLan, ipv4, ipv4["ip"], parseMask(ipv4["mask"].textOrNothing()));
  }
  for (const Place& tunnel : greTunnelsOf(root)) {
    if (!tunnel.isInForce()) continue;
    for (const Place& route : tunnel["routes"].elements())
      append(networks, kGre, tunnel, route["ip"], parseMask(route["mask"].textOrNothing()));
  }
  for (const Place& tunnel : ipsecTunnelsOf(root)) {
    const auto prefix = parseNumber(tunnel["remoteNetworkMask"].textOrNothing(), kAddressBits);
    if (tunnel.isInForce()) append(networks, kIpsec, tunnel, tunnel["remoteNetworkIp"], prefix);
  }
  return networks;
}

/// Equal networks, of which the first of each kind is kept.
using Group = std::array<Network*, kKinds>;

const Network& anyOf(const Group& group) {
  return **std::find_if(group.begin(), group.end(), [](const Network* network) { return network != nullptr; });
}

void tellLan(Network& network, const Network& lan, Findings& findings) {
  if (!network.isTold) findings.add(network.place, Problem::kOverlapsLan, {textOf(network), textOf(lan)});
  network.isTold = true;
}

/// Tells how a network stands to others, equal to each other, that hold it. A route for a part of another route is what
/// routes are for, and so is one for what lies around the LAN. True when another tunnel was told of.
bool compare(Network& network, const Group& group, Findings& findings) {
  if (network.kind == kLan) {
    if (group[kIpsec] != nullptr) tellLan(*group[kIpsec], network, findings);
    return false;
  }
  if (group[kLan] != nullptr) tellLan(network, *group[kLan], findings);
  const Network* other = group[kIpsec];
  if (other == nullptr && (network.kind == kIpsec || network.prefix == anyOf(group).prefix)) other = group[kGre];
  if (other == nullptr) return false;
  if (network.kind == kGre && other->kind == kGre) {
    findings.add(network.place, Problem::kRouteTwice, {textOf(network), other->tunnel.pointer()});
  } else {
    findings.add(network.place, Problem::kOverlapsTunnel, {textOf(network), textOf(*other), other->tunnel.pointer()});
  }
  return true;
}

/// Looks at networks in the order of their addresses, wider ones first. Of two that overlap one holds the other, so it
/// is enough to keep those that hold the present one.
class Overlaps {
 public:
  void look(Network& network, Findings& findings) {
    while (!groups_.empty() && !holds(anyOf(groups_.back()), network)) groups_.pop_back();
    bool isTold = false;
    for (auto group = groups_.rbegin(); group != groups_.rend() && !isTold; ++group)
      isTold = compare(network, *group, findings);
    if (groups_.empty() || anyOf(groups_.back()).prefix != network.prefix) groups_.push_back({});
    Network*& first = groups_.back()[network.kind];
    if (first == nullptr) first = &network;
  }

 private:
  std::vector<Group> groups_;
};

}  // namespace

void checkOverlaps(const Place& root, Findings& findings) {
  std::vector<Network> networks = networksOf(root);
  std::multimap<std::uint64_t, std::size_t> places;  // equal keys keep their order
  for (std::size_t i = 0; i < networks.size(); ++i)
    places.emplace(std::uint64_t{networks[i].bits} << 8U | static_cast<unsigned int>(networks[i].prefix), i);
  Overlaps overlaps;
  for (const auto& [key, place] : places) overlaps.look(networks[place], findings);
}
