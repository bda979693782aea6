#include <gtest/gtest.h>

#include "tests/unit/tunnelctl/check_rows.h"

namespace {

const Rows kRows{
    {R"({"/ni": {}})", {"no-local-network /ni/nis"}},
    {R"({"/ni": "absent"})", {"no-local-network /ni"}},
    {R"({"/ni/nis/1/available": false, "/ni/nis/2/available": false})", {"no-local-network /ni/nis"}},
    {R"({"/ni": {}, "/ipsecTunnels/0/enabled": false, "/ipsecTunnels/1/enabled": false})", {}},
    {R"({"/ni/nis/2/ipv4/mask": "24"})", {"interface-address /ni/nis/2/ipv4/mask"}},
    {R"({"/ni/nis/2/ipv4/mask": 24})", {"interface-address /ni/nis/2/ipv4/mask"}},
    {R"({"/ni/nis/2/ipv4/ip": "192.168.2.1/24"})", {"interface-address /ni/nis/2/ipv4/ip"}},
    {R"({"/ni/nis/2/ipv4/ip": "absent"})", {"interface-address /ni/nis/2/ipv4/ip"}},
    {R"({"/ni/nis/0/ipv4/mask": ""})", {"interface-address /ni/nis/0/ipv4/mask"}},
    {R"({"/ni/nis/2/ipv4": {}})", {}},
    {R"({"/ni/nis/1/ipv4/mask": "24"})", {}},
    {R"({"/ni/nis/3": {"type": "WAN", "available": true, "bridge": "--", "ipv4": {"ip": "x", "mask": "24"}}})", {}},
    {R"({"/ni/nis/2/ipv4/mask": "255.0.255.0"})", {"mask-with-holes /ni/nis/2/ipv4/mask"}},
    {R"({"/ni/nis/2/ipv4/mask": "255.255.254.0"})", {}},
    {R"({"/ni/nis/2/bridge": ""})", {"interface-bridge /ni/nis/2/bridge"}},
    {R"({"/ni/nis/2/bridge": "br1"})", {"interface-bridge /ni/nis/2/bridge"}},
    {R"({"/ni/nis/2/bridge": "absent"})", {"interface-bridge /ni/nis/2/bridge"}},
    {R"({"/ni/nis/2/bridge": "br1", "/ni/nis/2/available": false})", {"interface-bridge /ni/nis/2/bridge"}},
    {R"({"/ni/nis/2/ipv4/mask": "24", "/ni/nis/2/available": false})", {"interface-address /ni/nis/2/ipv4/mask"}},
    {R"({"/ni/nis/0/ipv4/mask": "24", "/ni/nis/1/available": false})", {"interface-address /ni/nis/0/ipv4/mask"}},
    {R"({"/ni/nis/2/bridge": "br1", "/ni/nis/2/type": "WAN"})", {}},
    {R"({"/ni/nis/2/bridge": 5, "/ni/nis/3": {"nitype": "BRIDGE", "bridge": "5"}})", {}},
    {R"({"/ni/nis/2/type": "Lan"})", {"interface-spelling /ni/nis/2/type"}},
    {R"({"/ni/nis/3": {"nitype": "bridge"}})", {"interface-spelling /ni/nis/3/nitype"}},
    {R"({"/ni/nis/2/type": "LAN2"})", {}},
};

TEST(CheckLan, tellsOfInterfacesThatGiveNoNetwork) {
  expectFindings(kRows);
}

}  // namespace

Rows rowsOfLan() {
  return kRows;
}
