#include <algorithm>
#include <set>

#include "effects/effects.h"
#include "ipsec/configuration_store.h"
#include "support/text.h"
#include "tunnelctl/status_rows.h"

namespace {

using ZEL::Text;

constexpr const char* kKind = "ipsec";
constexpr int kNoSuchProgram = 127;  // of the shell

using Connections = std::vector<const WrittenConnection*>;

/// A tunnel as it is to be judged: its record, if it has one, the names of its connections, and those that are written.
struct Tunnel {
  std::string name;
  const TunnelRecord* record;
  std::vector<std::string> names;
  Connections written;
};

Connections writtenOf(const std::string& tunnel, const Facts& facts) {
  Connections found;
  for (const WrittenConnection& connection : facts.connections) {
    if (tunnelOf(connection) == tunnel) found.push_back(&connection);
  }
  return found;
}

const WrittenConnection* writtenAs(const std::string& name, const Tunnel& tunnel) {
  const auto found = std::find_if(tunnel.written.begin(), tunnel.written.end(),
                                  [&name](const WrittenConnection* written) { return written->name == name; });
  return found == tunnel.written.end() ? nullptr : *found;
}

bool isInstalled(const std::string& connection, const IpsecListing& listing) {
  return std::any_of(listing.children.begin(), listing.children.end(), [&connection](const ChildAssociation& child) {
    return child.isInstalled && child.connection == connection;
  });
}

/// Why the service has the connection and nothing came of it: by what became of the keys.
std::string unansweredReason(const WrittenConnection& written, const std::string& peer, const IpsecListing& listing) {
  const auto isOfPeer = [&peer](const KeyExchange& exchange) { return exchange.peer == peer; };
  const auto& exchanges = listing.keyExchanges;
  if (std::any_of(exchanges.begin(), exchanges.end(),
                  [&](const KeyExchange& exchange) { return isOfPeer(exchange) && exchange.isEstablished; }))
    return "keys are exchanged, but no SA is: the peer refuses the networks or the proposal of phase 2";
  if (std::any_of(exchanges.begin(), exchanges.end(),
                  [&](const KeyExchange& exchange) { return isOfPeer(exchange) && exchange.isAnswered; }))
    return written.right + " answers, but no keys are exchanged yet: if it stays so, the key or the identity differs";
  if (std::any_of(exchanges.begin(), exchanges.end(), isOfPeer))
    return Text::joined({"no answer from ", written.right, " yet"});
  if (parseAddress(written.right).value_or(0) == 0) return "no peer has connected yet";
  return "no SA: the peer refused the proposal, the key or the identity, and the log of the IPsec service says which";
}

/// Why there is no peer to connect to; "" when there is one.
std::string peerReason(const WrittenConnection& written, const Tunnel& tunnel, const Facts& facts) {
  if (!written.right.empty() || tunnel.record == nullptr) return "";
  const std::string& host = tunnel.record->host;
  const auto address = facts.addresses.find(host);
  if (host.empty()) return "it has no remote host";
  if (address == facts.addresses.end() || address->second.empty()) return host + " has no address";
  return host + " had no address at the last run; a run is due";
}

std::string unwrittenReason() {
  return Text::joined(
      {"it is not written in ", ipsecConfPath(), ": it is newer than the last run, or refused, and the log says why"});
}

/// Why a connection is not up; "" when it is.
std::string reasonOf(const std::string& name, const Tunnel& tunnel, const Facts& facts) {
  const IpsecListing& listing = facts.ipsec;
  const WrittenConnection* const written = writtenAs(name, tunnel);
  if (written == nullptr) return unwrittenReason();
  if (isConfigurationKnown(facts) && written->left != facts.configuration.wan)
    return Text::joined({"it begins at ", written->left, ", but the current WAN is ", facts.configuration.wan});
  if (isInstalled(name, listing)) return "";
  if (std::string reason = peerReason(*written, tunnel, facts); !reason.empty()) return reason;
  const auto peer = listing.peers.find(name);
  if (peer == listing.peers.end())
    return Text::joined({"the IPsec service has not loaded ", name, ", and its log says why"});
  return unansweredReason(*written, peer->second, listing);
}

Verdict judgeConnections(const Tunnel& tunnel, const Facts& facts) {
  std::vector<std::string> broken;
  for (const std::string& name : tunnel.names) {
    if (!reasonOf(name, tunnel, facts).empty()) broken.push_back(name);
  }
  if (broken.empty()) return {};
  const std::string reason = reasonOf(broken.front(), tunnel, facts);
  const std::size_t all = tunnel.names.size();
  if (broken.size() == all) return down(reason);
  return {TunnelState::kPartial, Text::joined({std::to_string(all - broken.size()), " of ", std::to_string(all),
                                               " networks are joined; ", broken.front(), ": ", reason})};
}

/// Why the service could not be asked; "" when it could.
std::string serviceComplaint(const Facts& facts) {
  if (facts.ipsecStatus == kNoAnswer) return "ipsec statusall does not answer in time";
  const bool hasProcess = std::any_of(facts.processes.begin(), facts.processes.end(),
                                      [](const Process& process) { return process.name == "charon"; });
  return facts.isIpsecRunning || facts.isRoot || !hasProcess ? "" : "only root may ask the IPsec service";
}

/// Why nothing of IPsec can be up; nothing when it can.
std::optional<Verdict> serviceVerdict(const Facts& facts) {
  const IpsecService service = ipsecService(facts);
  if (!service.complaint.empty()) return unknown(service.complaint);
  if (facts.ipsecStatus == kNoSuchProgram) return down("there is no program ipsec");
  if (!service.isRunning) return down("the IPsec service does not run");
  if (service.written > 0 && service.loaded == 0)
    return down(
        Text::joined({"the IPsec service does not read ", ipsecConfPath(), ", which its own ipsec.conf must include"}));
  return std::nullopt;
}

Verdict judgeTunnel(const Tunnel& tunnel, const Facts& facts) {
  if (tunnel.record != nullptr && !tunnel.record->isReadable)
    return unknown("a member of its record has a wrong type, which ends every run");
  if (isConfigurationKnown(facts) && facts.configuration.wan.empty())
    return down("no WAN is current, so nothing is built");
  if (tunnel.names.empty()) return down("there is no local network that it could join");
  if (tunnel.written.empty()) return down(unwrittenReason());
  if (const std::optional<Verdict> verdict = serviceVerdict(facts)) return *verdict;
  return judgeConnections(tunnel, facts);
}

Traffic trafficOf(const Tunnel& tunnel, const IpsecListing& listing) {
  Traffic traffic;
  for (const ChildAssociation& child : listing.children) {
    if (std::find(tunnel.names.begin(), tunnel.names.end(), child.connection) == tunnel.names.end()) continue;
    traffic.received += child.received;
    traffic.sent += child.sent;
  }
  return traffic;
}

/// When keys were last agreed upon with a peer of the tunnel.
std::optional<std::int64_t> lastKeys(const Tunnel& tunnel, const Facts& facts) {
  std::optional<std::int64_t> last;
  for (const std::string& name : tunnel.names) {
    const auto peer = facts.ipsec.peers.find(name);
    if (peer == facts.ipsec.peers.end()) continue;
    for (const KeyExchange& exchange : facts.ipsec.keyExchanges) {
      if (exchange.isEstablished && exchange.peer == peer->second)
        last = std::max(last.value_or(0), facts.now - exchange.age);
    }
  }
  return last;
}

TunnelRow rowOf(const Tunnel& tunnel, const Verdict& verdict, const Facts& facts) {
  TunnelRow row{kKind, tunnel.name, verdict};
  if (!tunnel.written.empty()) {
    row.local = tunnel.written.front()->left;
    row.remote = tunnel.written.front()->right;
  }
  if (row.remote.empty() && tunnel.record != nullptr) row.remote = tunnel.record->host;
  if (facts.isIpsecRunning) {
    row.traffic = trafficOf(tunnel, facts.ipsec);
    row.lastContact = lastKeys(tunnel, facts);
  }
  return row;
}

/// A tunnel that is known by what is written only.
Tunnel foundTunnel(const std::string& name, const Facts& facts) {
  Tunnel tunnel{name, nullptr, {}, writtenOf(name, facts)};
  for (const WrittenConnection* written : tunnel.written) tunnel.names.push_back(written->name);
  return tunnel;
}

Verdict judgeFound(const Tunnel& tunnel, const Facts& facts) {
  if (isConfigurationKnown(facts))
    return {TunnelState::kStale, "it is written, but no longer configured; a run is due"};
  return judgeTunnel(tunnel, facts);
}

bool isShown(const TunnelRecord& record) {
  return record.isEnabled || !record.isReadable;
}

}  // namespace

std::vector<TunnelRow> ipsecRows(const Facts& facts) {
  std::vector<TunnelRow> rows;
  std::set<std::string> shown;
  for (const TunnelRecord& record : facts.configuration.ipsec) {
    if (!isShown(record)) continue;
    const Tunnel tunnel{record.name, &record, record.connections, writtenOf(record.name, facts)};
    rows.push_back(rowOf(tunnel, judgeTunnel(tunnel, facts), facts));
    shown.insert(record.name);
  }
  for (const WrittenConnection& connection : facts.connections) {
    const std::string name = tunnelOf(connection);
    if (!shown.insert(name).second) continue;
    const Tunnel tunnel = foundTunnel(name, facts);
    rows.push_back(rowOf(tunnel, judgeFound(tunnel, facts), facts));
  }
  return rows;
}

IpsecService ipsecService(const Facts& facts) {
  IpsecService service;
  service.isRunning = facts.isIpsecRunning;
  service.complaint = serviceComplaint(facts);
  service.written = facts.connections.size();
  for (const WrittenConnection& connection : facts.connections) {
    if (facts.ipsec.peers.count(connection.name) > 0) ++service.loaded;
  }
  return service;
}
