// The IPsec service's connections: those that were written for it, and those that it tells of (`ipsec statusall`).
// Every text is taken; lines that are none of these are passed over. Pure functions; any thread.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

/// A conn section. `right` is "" where a host name had no address when it was written.
struct WrittenConnection {
  std::string name{};
  std::string left{};
  std::string leftSubnet{};
  std::string right{};
};

/// The conn sections of an ipsec.conf, in their order.
std::vector<WrittenConnection> parseIpsecConf(const std::string& text);

/// The name of the tunnel that a connection belongs to: the connection's without what tells networks apart.
std::string tunnelOf(const WrittenConnection& connection);

/// Keys that are agreed upon with a peer, or being agreed upon (an IKE SA).
struct KeyExchange {
  std::string peer{};  ///< as in IpsecListing::peers
  bool isEstablished = false;
  std::int64_t age = 0;     ///< seconds since it was established
  bool isAnswered = false;  ///< the peer has taken part in it
};

/// What protects the packets of a connection (a CHILD SA).
struct ChildAssociation {
  std::string connection{};
  bool isInstalled = false;
  std::uint64_t received = 0;  ///< bytes
  std::uint64_t sent = 0;
};

/// What the service tells. It keeps connections that have all but their networks in common under the name of the first
/// of them, their peer's name: only key exchanges go by that.
struct IpsecListing {
  std::map<std::string, std::string> peers{};  ///< of the connections that it has loaded, by their names
  std::vector<KeyExchange> keyExchanges{};
  std::vector<ChildAssociation> children{};
};

/// False, with `listing` untouched, for an empty text, which is what a service that does not run tells.
bool parseIpsecStatus(const std::string& output, IpsecListing& listing);
