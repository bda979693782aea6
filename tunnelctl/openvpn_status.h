// The status files of openvpn(8), in the forms of all its versions of them. Pure functions; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

struct OpenvpnStatus {
  bool isServer = false;  ///< of many clients; a tunnel between two points is none
  std::uint64_t received = 0;
  std::uint64_t sent = 0;
  // Between two points only.
  std::uint64_t arrived = 0;        ///< bytes from the other end, whatever they were
  std::uint64_t authenticated = 0;  ///< bytes of data from it that were what they claimed to be
  // Of a server only.
  unsigned int clients = 0;
};

/// Nothing for a text that is no status, such as that of the empty file that openvpn has at its start.
std::optional<OpenvpnStatus> parseOpenvpnStatus(const std::string& text);
