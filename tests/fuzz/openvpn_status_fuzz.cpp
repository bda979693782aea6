// The status files of openvpn, and what comes of them.

#include "tunnelctl/openvpn_status.h"

#include <algorithm>
#include <string>

#include "tests/fuzz/harness/require.h"
#include "tunnelctl/status_output.h"

namespace {

bool begins(const std::string& text, const std::string& beginning) {
  return text.compare(0, beginning.size(), beginning) == 0;
}

void requireStatus(const std::string& text, const OpenvpnStatus& status) {
  const bool isServer = begins(text, "OpenVPN CLIENT LIST") || begins(text, "TITLE");
  require(isServer || begins(text, "OpenVPN STATISTICS"), "a status begins as one");
  require(status.isServer == isServer, "a server is told by its beginning");
  require(status.clients <= std::count(text.begin(), text.end(), '\n'), "a line is one client at most");
  require(isServer || status.clients == 0, "a tunnel between two points has no clients");
}

/// What stands behind the end is what openvpn has not cut off yet.
void requireEnd(const std::string& text, const std::optional<OpenvpnStatus>& status) {
  const auto longer = parseOpenvpnStatus(text + "\nEND\nAuth read bytes,7\nCLIENT_LIST,a,b,c,1,2,3\n");
  require(longer.has_value() == status.has_value(), "a status ends at its end");
  if (!status) return;
  require(longer->received == status->received && longer->sent == status->sent && longer->clients == status->clients &&
              longer->authenticated == status->authenticated,
          "what is behind the end does not count");
}

/// A tunnel of which there is a child, and this file.
void requireRow(const std::string& text) {
  Facts facts;
  facts.now = 100;
  facts.apiComplaint = "no answer";
  OpenvpnFiles files;
  files.name = "vpn";
  files.status = TimedText{text, 100};
  facts.openvpn = {files};
  Process child;
  child.arguments = {"openvpn", "--config", "/var/run/openvpn_vpn.conf"};
  facts.processes = {child};
  const Status status = judge(facts);
  require(status.tunnels.size() == 1, "the tunnel has a row");
  require(!statusText(status).empty() && !statusMetrics(status).empty(), "a status can be shown");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  const std::optional<OpenvpnStatus> status = parseOpenvpnStatus(text);
  if (status) requireStatus(text, *status);
  requireEnd(text, status);
  requireRow(text);
  return 0;
}
