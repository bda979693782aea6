#include <gtest/gtest.h>

#include "tests/unit/tunnelctl/check_rows.h"

namespace {

const Rows kRows{
    // A member that is missing, and one that looks like it.
    {R"({"/greTunnels": "absent", "/gretunnels": []})", {"unknown-member /gretunnels"}},
    {R"({"/ovpnTunnels": "absent", "/openvpnTunnels": []})", {"unknown-member /openvpnTunnels"}},
    {R"({"/wans/0/curent": true, "/wans/0/current": "absent"})", {"unknown-member /wans/0/curent"}},
    {R"({"/wans/0/IP": "", "/wans/0/ip": "absent"})", {"unknown-member /wans/0/IP"}},
    {R"({"/greTunnels/1/tunnelIP": "10.1.1.1"})", {"unknown-member /greTunnels/1/tunnelIP"}},
    {R"({"/greTunnels/1/checkperiod": 5})", {"unknown-member /greTunnels/1/checkperiod"}},
    {R"({"/greTunnels/1/checkPeroid": 5})", {"unknown-member /greTunnels/1/checkPeroid"}},
    {R"({"/greTunnels/0/routes/0": {"ip": "10.0.0.0", "maks": 8}})",
     {"unknown-member /greTunnels/0/routes/0/maks", "route-skipped /greTunnels/0/routes/0/mask"}},
    {R"({"/greTunnels/0/routes/0": {"ip": "10.0.0.0", "msk": 8}})",
     {"unknown-member /greTunnels/0/routes/0/msk", "route-skipped /greTunnels/0/routes/0/mask"}},
    {R"({"/ni": {"nics": []}, "/ipsecTunnels": []})", {"unknown-member /ni/nics"}},
    {R"({"/ni/nis/1/type": "absent", "/ni/nis/1/tipe": "LAN"})", {"unknown-member /ni/nis/1/tipe"}},
    {R"({"/ni/nis/1/ipv4": {"ip": "", "Mask": ""}})", {"unknown-member /ni/nis/1/ipv4/Mask"}},
    {R"({"/ipsecTunnels/0/localid": "x"})", {"unknown-member /ipsecTunnels/0/localid"}},
    {R"({"/ipsecTunnels/0/encryptmethod": "x"})", {"unknown-member /ipsecTunnels/0/encryptmethod"}},
    {R"({"/ovpnTunnels/0/enabled": "absent", "/ovpnTunnels/0/enable": true})",
     {"unknown-member /ovpnTunnels/0/enable"}},
    {R"({"/syslog": {"loglevel": 5}})", {"unknown-member /syslog/loglevel"}},
    {R"({"/greTunnels/1/enabled": "absent", "/greTunnels/1/enabld": true})", {"unknown-member /greTunnels/1/enabld"}},
    // One that is there already is not meant by another; short and long names, and those of other programs, mean none.
    {R"({"/greTunnels/0/names": "x", "/wans/1/ips": []})", {}},
    {R"({"/wans/0": {"current": false, "id": 1}})", {}},
    {R"({"/greTunnels/1/description": "x", "/greTunnels/1/mtu": 1400, "/greTunnels/1/uuid": "x"})", {}},
    {R"({"/version": 3, "/ipsecTunnels/0/port": 500, "/ovpnTunnels/0/log": ""})", {}},
    {R"({"/greTunnels/1/xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxcheckPeriod": 5})", {}},
};

TEST(CheckUnknownMembers, tellsOfThoseThatLookLikeAMissingOne) {
  expectFindings(kRows);
}

}  // namespace

Rows rowsOfMembers() {
  return kRows;
}
