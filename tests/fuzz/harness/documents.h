// The configuration API's documents, as a fuzzer's bytes make them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// How a text begins that is a key.
inline const std::string kSecret = "secret:";

/// Which of the documents are drawn; the others are those of a router with one WAN, one LAN and no tunnels.
struct Drawn {
  bool wans = false;
  bool greTunnels = false;
  bool ipsecTunnels = false;
  bool interfaces = false;
  bool ovpnTunnels = false;
  bool obstacles = false;  ///< what the router has besides: tunnels, an API that is away, files that cannot be written
};

/// Makes `router` one that has these documents. Bytes that begin as a JSON document does ("{", "[") are one, with the
/// members of docs/examples/router.json; from any other bytes the documents are drawn, so that most of them have the
/// types that the program reads.
void furnishRouter(const std::uint8_t* data, std::size_t size, const Drawn& drawn);
