#include <gtest/gtest.h>

#include "tests/unit/tunnelctl/check_rows.h"

namespace {

/// The first IPsec tunnel's network, and that of the first GRE tunnel's route.
std::string ipsec(const std::string& network, int prefix) {
  return R"("/ipsecTunnels/0/remoteNetworkIp": ")" + network + R"(", "/ipsecTunnels/0/remoteNetworkMask": )" +
         std::to_string(prefix);
}

std::string route(const std::string& network, int prefix) {
  return R"("/greTunnels/0/routes/0": {"ip": ")" + network + R"(", "mask": )" + std::to_string(prefix) + "}";
}

std::string routeOfOther(const std::string& network, int prefix) {
  return R"("/greTunnels/1/routes": [{"ip": ")" + network + R"(", "mask": )" + std::to_string(prefix) + "}]";
}

const char* const kIpsec = "/ipsecTunnels/0/remoteNetworkIp";
const char* const kRoute = "/greTunnels/0/routes/0/ip";
const char* const kOtherRoute = "/greTunnels/1/routes/0/ip";

Row row(const std::string& changes, const std::vector<std::string>& findings) {
  return {"{" + changes + "}", findings};
}

const Rows kRows{
    // a network of the LAN (192.168.1.0/24 and 192.168.2.0/24)
    row(ipsec("192.168.2.0", 24), {std::string("overlaps-lan ") + kIpsec}),
    row(ipsec("192.168.2.128", 25), {std::string("overlaps-lan ") + kIpsec}),
    row(ipsec("192.168.0.0", 16), {std::string("overlaps-tunnel ") + kRoute, std::string("overlaps-lan ") + kIpsec,
                                   "overlaps-tunnel /ipsecTunnels/1/remoteNetworkIp"}),
    row(ipsec("192.168.3.0", 24), {}),
    row(ipsec("0.0.0.0", 0), {}),
    row(route("192.168.2.0", 24), {std::string("overlaps-lan ") + kRoute}),
    row(route("192.168.2.128", 25), {std::string("overlaps-lan ") + kRoute}),
    row(R"("/ni/nis/2/available": false, )" + route("192.168.2.0", 24), {}),
    // another tunnel (192.168.80.0/24)
    row(ipsec("192.168.80.0", 24), {"overlaps-tunnel /ipsecTunnels/1/remoteNetworkIp"}),
    row(ipsec("192.168.80.64", 26), {std::string("overlaps-tunnel ") + kIpsec}),
    row(ipsec("192.168.80.5", 20), {"overlaps-tunnel /ipsecTunnels/1/remoteNetworkIp"}),
    row(ipsec("192.168.80.0", 24) + R"(, "/ipsecTunnels/1/enabled": false)", {}),
    row(ipsec("192.168.50.0", 24), {std::string("overlaps-tunnel ") + kIpsec}),
    row(ipsec("192.168.50.1", 32), {std::string("overlaps-tunnel ") + kIpsec}),
    row(route("192.168.80.64", 26), {std::string("overlaps-tunnel ") + kRoute}),
    row(route("192.168.80.0", 24), {"overlaps-tunnel /ipsecTunnels/1/remoteNetworkIp"}),
    row(ipsec("192.168.79.0", 24), {}),
    // routes among themselves: only the same twice
    row(routeOfOther("192.168.50.0", 24), {std::string("route-twice ") + kOtherRoute}),
    row(routeOfOther("192.168.50.128", 25), {}),
    row(route("10.0.0.0", 8) + ", " + routeOfOther("10.0.0.0", 9), {}),
    row(R"("/greTunnels/0/routes/1": {"ip": "192.168.50.0", "mask": "255.255.255.0"})",
        {"route-twice /greTunnels/0/routes/1/ip"}),
    row(route("0.0.0.0", 0) + ", " + routeOfOther("0.0.0.0", 0), {}),
    row(routeOfOther("192.168.50.0", 24) + R"(, "/greTunnels/0/enabled": false)", {}),
    // what is told elsewhere has no network
    row(ipsec("Any", 24) + ", " + R"("/greTunnels/0/routes/0/mask": "x")",
        {"route-network /greTunnels/0/routes/0/mask", std::string("remote-network ") + kIpsec}),
    // three, one in another
    row(ipsec("192.168.80.64", 26) + ", " + route("192.168.80.64", 27),
        {std::string("overlaps-tunnel ") + kRoute, std::string("overlaps-tunnel ") + kIpsec}),
    row(ipsec("10.0.0.0", 8) + ", " + route("10.1.0.0", 16) + ", " + routeOfOther("10.1.2.0", 24),
        {std::string("overlaps-tunnel ") + kRoute, std::string("overlaps-tunnel ") + kOtherRoute}),
};

TEST(CheckOverlaps, tellsOfNetworksThatAreInTwoPlaces) {
  expectFindings(kRows);
}

}  // namespace

Rows rowsOfOverlaps() {
  return kRows;
}
