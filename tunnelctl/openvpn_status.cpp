#include "tunnelctl/openvpn_status.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "support/text.h"

namespace {

using Texts = std::vector<std::string>;

std::uint64_t number(const std::string& text) {
  return strtoull(text.c_str(), nullptr, 10);
}

/// "TUN/TAP read bytes,192" and the like: what openvpn reads from the device it sends.
OpenvpnStatus betweenTwoPoints(const Texts& lines) {
  OpenvpnStatus status;
  for (const std::string& line : lines) {
    const std::size_t comma = line.find(',');
    if (comma == std::string::npos) continue;
    const std::string name = line.substr(0, comma);
    const std::uint64_t value = number(line.substr(comma + 1));
    if (name == "TUN/TAP write bytes") status.received = value;
    if (name == "TUN/TAP read bytes") status.sent = value;
    if (name == "TCP/UDP read bytes") status.arrived = value;
    if (name == "Auth read bytes") status.authenticated = value;
  }
  return status;
}

/// Where the two counters stand in a client's line, from its end: a client's name comes first and may hold anything.
struct Columns {
  std::size_t received;
  std::size_t sent;
};

void addClient(const Texts& fields, const Columns& columns, OpenvpnStatus& status) {
  if (columns.received == 0 || columns.sent == 0) return;
  if (fields.size() < columns.received || fields.size() < columns.sent) return;
  ++status.clients;
  status.received += number(fields[fields.size() - columns.received]);
  status.sent += number(fields[fields.size() - columns.sent]);
}

/// Version 1: a table "Common Name,Real Address,Bytes Received,Bytes Sent,Connected Since" up to the routes.
OpenvpnStatus serverOfVersion1(const Texts& lines) {
  OpenvpnStatus status;
  status.isServer = true;
  bool inTable = false;
  for (const std::string& line : lines) {
    if (line == "ROUTING TABLE") break;
    if (inTable) addClient(ZEL::Text::split(line, ",", 0), {3, 2}, status);
    inTable = inTable || line.compare(0, 12, "Common Name,") == 0;
  }
  return status;
}

std::size_t fromEnd(const Texts& header, const char* title) {
  return static_cast<std::size_t>(header.end() - std::find(header.begin(), header.end(), title));
}

/// Versions 2 and 3: each line begins with what it is, and a header names the fields.
OpenvpnStatus serverOfLaterVersion(const Texts& lines, const std::string& separator) {
  OpenvpnStatus status;
  status.isServer = true;
  Columns columns{0, 0};
  for (const std::string& line : lines) {
    const Texts fields = ZEL::Text::split(line, separator, 0);
    if (fields[0] == "CLIENT_LIST") addClient(fields, columns, status);
    if (fields[0] != "HEADER" || fields.size() < 2 || fields[1] != "CLIENT_LIST") continue;
    columns = {fromEnd(fields, "Bytes Received"), fromEnd(fields, "Bytes Sent")};
  }
  return status;
}

/// Up to "END": openvpn writes over what it has written before, and cuts the rest off afterwards.
Texts linesOf(const std::string& text) {
  Texts lines = ZEL::Text::split(text, "\n", 0);
  lines.erase(std::find(lines.begin(), lines.end(), "END"), lines.end());
  return lines;
}

}  // namespace

std::optional<OpenvpnStatus> parseOpenvpnStatus(const std::string& text) {
  const Texts lines = linesOf(text);
  if (lines.empty()) return std::nullopt;
  if (lines[0] == "OpenVPN STATISTICS") return betweenTwoPoints(lines);
  if (lines[0] == "OpenVPN CLIENT LIST") return serverOfVersion1(lines);
  for (const char* separator : {",", "\t"}) {
    if (lines[0].compare(0, 6, std::string("TITLE") + separator) == 0) return serverOfLaterVersion(lines, separator);
  }
  return std::nullopt;
}
