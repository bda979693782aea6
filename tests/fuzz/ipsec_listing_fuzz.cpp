// What `ipsec statusall` prints and what ipsec.conf holds, and what comes of it.

#include "tunnelctl/ipsec_listing.h"

#include <algorithm>
#include <string>
#include <vector>

#include "tests/fuzz/harness/require.h"
#include "tunnelctl/status_output.h"

namespace {

constexpr const char* kConnection = "Connections:\nz_1:  192.0.2.1...192.0.2.2  IKEv2\nz_1:   child:  a === b TUNNEL\n";
constexpr const char* kAssociations =
    "Security Associations (1 up):\nz_1[9]: ESTABLISHED 2 minutes ago, x\nz_1{99999}:  INSTALLED, TUNNEL\n"
    "z_1{99999}:  AES, 7 bytes_i, 8 bytes_o\n";

void requireSections(const std::string& text) {
  const std::vector<WrittenConnection> connections = parseIpsecConf(text);
  require(connections.size() <= static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1,
          "a line begins one section at most");
  for (const WrittenConnection& connection : connections) {
    const std::string tunnel = tunnelOf(connection);
    require(connection.name.compare(0, tunnel.size(), tunnel) == 0, "a tunnel's name begins those of its connections");
  }
  const std::vector<WrittenConnection> longer = parseIpsecConf(text + "\nconn z_1\n\tleft=192.0.2.1\n\tright=\n");
  require(longer.size() == connections.size() + 1, "one more section is one more connection");
  require(longer.back().name == "z_1" && longer.back().left == "192.0.2.1" && longer.back().right.empty(),
          "a whole section is read");
}

/// What is behind all else is read whatever stands before it.
void requireLast(const std::string& text) {
  IpsecListing listing;
  require(parseIpsecStatus(text + "\n" + kConnection + kAssociations, listing), "a service that tells something runs");
  require(listing.peers.count("z_1") == 1 && listing.peers["z_1"] == "z_1", "a connection is read");
  require(!listing.keyExchanges.empty() && listing.keyExchanges.back().isEstablished &&
              listing.keyExchanges.back().age == 120,
          "a key exchange is read");
  const ChildAssociation& child = listing.children.back();
  require(child.isInstalled && child.connection == "z_1" && child.received >= 7 && child.sent >= 8, "a child is read");
}

void requireRows(const std::string& text) {
  Facts facts;
  facts.apiComplaint = "no answer";
  facts.isIpsecRunning = parseIpsecStatus(text, facts.ipsec);
  require(facts.isIpsecRunning == (text.find_first_not_of(" \t\n\v\f\r") != std::string::npos),
          "nothing is no service");
  facts.connections = parseIpsecConf(text);
  const Status status = judge(facts);
  require(status.tunnels.size() <= facts.connections.size(), "a connection is of one tunnel");
  require(status.tunnels.empty() == facts.connections.empty(), "a connection is of a tunnel");
  require(status.ipsec.loaded <= status.ipsec.written, "no more are loaded than are written");
  require(!statusText(status).empty() && !statusMetrics(status).empty(), "a status can be shown");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  requireSections(text);
  requireLast(text);
  requireRows(text);
  return 0;
}
