#include <gtest/gtest.h>

#include <algorithm>

#include "tests/unit/tunnelctl/check_rows.h"

namespace {

using Strings = std::vector<std::string>;

/// One row for each member of a record of this kind and each value, which is found to be that.
void append(Rows& rows, const std::string& record, const Strings& members, const Strings& values,
            const std::string& problem) {
  for (const std::string& member : members) {
    for (const std::string& value : values)
      rows.push_back({"{\"" + record + "/" + member + "\": " + value + "}", {problem + " " + record + "/" + member}});
  }
}

/// What throws where a text, a flag or a count is read.
const Strings kNoText{"[]", "{}", "[1]", R"({"a": 1})"};
const Strings kNoFlag{R"("true")", R"("")", "[]", "{}"};
const Strings kNoCount{R"("5")", R"("")", "-1", "-0.5", "4294967296", "1e10", "[]", "{}"};

Rows rowsOfWrongMembers() {
  Rows rows;
  append(rows, "/greTunnels/0", {"name", "remoteIp", "tunnelIp", "tunnelMask"}, kNoText, "ends-run");
  append(rows, "/greTunnels/0", {"ttl"}, {"[]", "{}", "2147483648", "-2147483649", "1e10"}, "ends-run");
  append(rows, "/greTunnels/0", {"checkPeriod"}, kNoCount, "ends-run");
  append(rows, "/greTunnels/0", {"routes"}, {R"({"a": 1})"}, "ends-run");
  append(rows, "/greTunnels/0/routes/0", {"ip"}, kNoText, "ends-run");
  append(rows, "/greTunnels/0/routes/0", {"mask"}, {"2147483648", "1e10"}, "ends-run");
  append(rows, "/ipsecTunnels/0",
         {"name", "remoteWanIp", "remoteNetworkIp", "encryptMethod", "phase1", "phase2", "psk"}, kNoText, "ends-run");
  append(rows, "/ipsecTunnels/0", {"compression", "aggressiveMode", "uid"}, kNoFlag, "ends-run");
  append(rows, "/ipsecTunnels/0", {"checkPeriod", "ikelife", "keylife", "retries"}, kNoCount, "ends-run");
  append(rows, "/ipsecTunnels/0", {"remoteNetworkMask"}, {"2147483648", "1e10"}, "ends-run");
  append(rows, "/ipsecTunnels/1", {"caCert", "localCert", "localPrivKey", "localId", "remoteId"}, kNoText, "ends-run");
  append(rows, "/ipsecTunnels/1", {"uid"}, kNoFlag, "ends-run");
  append(rows, "/ni/nis/2", {"type", "nitype", "bridge"}, kNoText, "ends-run");
  append(rows, "/ni/nis/2", {"available"}, kNoFlag, "ends-run");
  append(rows, "/ni/nis/2", {"ipv4"}, {"[]", R"("192.168.2.1")", "5", "true"}, "ends-run");
  append(rows, "/ni/nis/2/ipv4", {"ip", "mask"}, kNoText, "ends-run");
  append(rows, "/ni/nis/0/ipv4", {"ip", "mask"}, kNoText, "ends-run");
  append(rows, "/ovpnTunnels/0", {"name", "config"}, kNoText, "ends-run");
  append(rows, "/syslog", {"logLevel"}, kNoCount, "ends-run");
  append(rows, "", {"syslog", "ni"}, {"[]", "[1]", "5", R"("")", "true"}, "ends-run");
  return rows;
}

/// What follows from such a member is told as well, so these stand by themselves.
const Rows kOther{
    // A flag that throws leaves the tunnel disabled, as far as the rest is concerned.
    {R"({"/greTunnels/1/enabled": "true"})", {"ends-run /greTunnels/1/enabled"}},
    {R"({"/ipsecTunnels/0/enabled": []})", {"ends-run /ipsecTunnels/0/enabled"}},
    {R"({"/ovpnTunnels/1/enabled": {}})", {"ends-run /ovpnTunnels/1/enabled"}},
    // Lists and records.
    {R"({"/greTunnels": {"a": 1}})", {"ends-run /greTunnels"}},
    {R"({"/ipsecTunnels": {"a": 1}})", {"ends-run /ipsecTunnels"}},
    {R"({"/ni/nis": {"a": 1}})", {"ends-run /ni/nis"}},
    {R"({"/greTunnels/2": 5})", {"ends-run /greTunnels/2"}},
    {R"({"/greTunnels/0/routes/1": []})", {"ends-run /greTunnels/0/routes/1"}},
    {R"({"/ipsecTunnels/2": "x"})", {"ends-run /ipsecTunnels/2"}},
    {R"({"/ni/nis/3": true})", {"ends-run /ni/nis/3"}},
    {R"({"/ovpnTunnels/2": []})", {"ends-run /ovpnTunnels/2"}},
    // What is of a wrong type and counts as absent.
    {R"({"/greTunnels": 5})", {"counts-as-absent /greTunnels"}},
    {R"({"/greTunnels": {}})", {"counts-as-absent /greTunnels"}},
    {R"({"/ipsecTunnels": "none"})", {"counts-as-absent /ipsecTunnels"}},
    {R"({"/ovpnTunnels": {}})", {"counts-as-absent /ovpnTunnels"}},
    {R"({"/ovpnTunnels": "none"})", {"counts-as-absent /ovpnTunnels"}},
    {R"({"/greTunnels/0/routes": 5})", {"counts-as-absent /greTunnels/0/routes"}},
    {R"({"/wans": {}})", {"counts-as-absent /wans", "no-wan /wans"}},
    {R"({"/wans/0": 5})", {"counts-as-absent /wans/0"}},
    {R"({"/wans/0": null})", {"counts-as-absent /wans/0"}},
    {R"({"/wans/0/current": "true"})", {"counts-as-absent /wans/0/current"}},
    {R"({"/wans/0/ip": []})", {"counts-as-absent /wans/0/ip"}},
    {R"({"/greTunnels/2": null})", {"counts-as-absent /greTunnels/2"}},
    {R"({"/ipsecTunnels/2": null})", {"counts-as-absent /ipsecTunnels/2"}},
    {R"({"/ovpnTunnels/2": null})", {"counts-as-absent /ovpnTunnels/2"}},
    {R"({"/greTunnels/0/routes/1": null})", {"counts-as-absent /greTunnels/0/routes/1"}},
    // What is absent, or null, is none.
    {R"({"/greTunnels": null, "/ipsecTunnels": null, "/ovpnTunnels": null, "/syslog": null, "/ni": null})", {}},
    {R"({"/greTunnels": [], "/ipsecTunnels": [], "/ovpnTunnels": [], "/syslog": {}, "/ni": {}})", {}},
    {R"({"/syslog/logLevel": null, "/greTunnels/0/ttl": null, "/greTunnels/0/checkPeriod": null})", {}},
    // Converted to what is meant: numbers as texts, 0 and 1 as flags, whole numbers as such.
    {R"({"/greTunnels/0/name": 5, "/greTunnels/0/tunnelMask": 30, "/ipsecTunnels/0/psk": 12345})", {}},
    {R"({"/greTunnels/0/enabled": 1, "/ipsecTunnels/0/compression": 0, "/ipsecTunnels/0/retries": 5.0})", {}},
    // ... and to what is not.
    {R"({"/greTunnels/0/name": true})", {"converted /greTunnels/0/name"}},
    {R"({"/ipsecTunnels/0/psk": 1.5})", {"converted /ipsecTunnels/0/psk"}},
    {R"({"/greTunnels/0/enabled": 2})", {"converted /greTunnels/0/enabled"}},
    {R"({"/ipsecTunnels/0/uid": 0.0})", {}},
    {R"({"/ipsecTunnels/0/compression": -0.5})", {"converted /ipsecTunnels/0/compression"}},
    {R"({"/greTunnels/0/checkPeriod": 5.9})", {"converted /greTunnels/0/checkPeriod"}},
    {R"({"/greTunnels/0/checkPeriod": true})", {"converted /greTunnels/0/checkPeriod"}},
    {R"({"/greTunnels/0/ttl": 64.5})", {"converted /greTunnels/0/ttl"}},
    {R"({"/greTunnels/0/ttl": true})", {"converted /greTunnels/0/ttl"}},
    {R"({"/greTunnels/0/routes/0/mask": 24.7})", {"converted /greTunnels/0/routes/0/mask"}},
    {R"({"/ipsecTunnels/0/remoteNetworkMask": 24.7})", {"converted /ipsecTunnels/0/remoteNetworkMask"}},
    {R"({"/wans/1/current": 2})", {"converted /wans/1/current"}},
    {R"({"/ovpnTunnels": {"a": {"name": "x", "enabled": false}}})", {"converted /ovpnTunnels"}},
};

/// Members that are not read as things are.
const Rows kUnread{
    {R"({"/ipsecTunnels/1/localId": "", "/ipsecTunnels/1/uid": "yes"})", {"ends-run /ipsecTunnels/1/uid"}},
    {R"({"/ipsecTunnels/1/remoteId": "", "/ipsecTunnels/1/uid": "yes"})", {"ends-run /ipsecTunnels/1/uid"}},
    {R"({"/greTunnels/1": {"enabled": false, "checkPeriod": "5", "tunnelIp": [], "ttl": {}, "routes": {"a": 1}}})",
     {"would-end-run /greTunnels/1/checkPeriod", "would-end-run /greTunnels/1/tunnelIp",
      "would-end-run /greTunnels/1/ttl", "would-end-run /greTunnels/1/routes"}},
    {R"({"/greTunnels/1": {"enabled": false, "name": []}})", {"ends-run /greTunnels/1/name"}},
    {R"({"/greTunnels/1": {"enabled": false, "remoteIp": {}}})", {"ends-run /greTunnels/1/remoteIp"}},
    {R"({"/greTunnels/1": {"enabled": false, "routes": [5, {"ip": [], "mask": 24}]}})",
     {"would-end-run /greTunnels/1/routes/0", "would-end-run /greTunnels/1/routes/1/ip"}},
    {R"({"/greTunnels/0/routes/0": {"ip": []}})",
     {"would-end-run /greTunnels/0/routes/0/ip", "route-skipped /greTunnels/0/routes/0/mask"}},
    {R"({"/ipsecTunnels/1": {"enabled": false, "ikelife": "3", "psk": []}})",
     {"would-end-run /ipsecTunnels/1/ikelife", "would-end-run /ipsecTunnels/1/psk"}},
    {R"({"/ipsecTunnels/1": {"enabled": false, "remoteWanIp": []}})", {"ends-run /ipsecTunnels/1/remoteWanIp"}},
    {R"({"/ipsecTunnels/0/caCert": []})", {"would-end-run /ipsecTunnels/0/caCert"}},
    {R"({"/ipsecTunnels/1/psk": []})", {"would-end-run /ipsecTunnels/1/psk"}},
    {R"({"/ipsecTunnels/0/localId": []})", {"would-end-run /ipsecTunnels/0/localId"}},
    {R"({"/ipsecTunnels/1": {"enabled": true, "name": "p", "authMethod": "rsasig", "uid": "yes", "localId": "",
          "type": "IKE", "remoteWanIp": "a.example", "remoteNetworkIp": "192.168.80.0", "remoteNetworkMask": 24,
          "encryptMethod": "aes256", "ikelife": 1, "keylife": 1}})",
     {"would-end-run /ipsecTunnels/1/uid", "no-certificate /ipsecTunnels/1/localCert",
      "no-certificate /ipsecTunnels/1/localPrivKey", "no-ca-certificate /ipsecTunnels/1/caCert"}},
    {R"({"/ipsecTunnels/0/type": "L2TP", "/ipsecTunnels/0/ikelife": "3"})",
     {"would-end-run /ipsecTunnels/0/ikelife", "ike-version /ipsecTunnels/0/type"}},
    {R"({"/ni": {}, "/ipsecTunnels/0/psk": [], "/ipsecTunnels/0/compression": "no"})",
     {"no-local-network /ni/nis", "would-end-run /ipsecTunnels/0/compression", "would-end-run /ipsecTunnels/0/psk"}},
    {R"({"/ni/nis/3": {"type": "WAN", "available": "yes", "bridge": [], "ipv4": 5}})",
     {"would-end-run /ni/nis/3/available", "would-end-run /ni/nis/3/bridge", "would-end-run /ni/nis/3/ipv4"}},
    {R"({"/ni/nis/3": {"type": "LAN", "available": false, "bridge": "--", "nitype": []}})",
     {"ends-run /ni/nis/3/nitype"}},
    {R"({"/ni/nis": [{"type": "LAN", "available": false, "bridge": "--", "nitype": []}], "/ipsecTunnels": []})",
     {"would-end-run /ni/nis/0/nitype"}},
    {R"({"/ni/nis/3": {"nitype": "BRIDGE", "bridge": "br9", "ipv4": {"ip": []}}})",
     {"would-end-run /ni/nis/3/ipv4/ip"}},
    {R"({"/ni/nis/1/ipv4": "none"})", {"would-end-run /ni/nis/1/ipv4"}},
    {R"({"/ovpnTunnels/1": {"enabled": false, "name": [], "config": {}}})",
     {"would-end-run /ovpnTunnels/1/name", "would-end-run /ovpnTunnels/1/config"}},
    {R"({"/ovpnTunnels/1": {"enabled": true, "name": "depot", "config": []}})",
     {"would-end-run /ovpnTunnels/1/config", "ovpn-name-twice /ovpnTunnels/1/name"}},
    {R"({"/ovpnTunnels": [], "/syslog/logLevel": "5"})", {"would-end-run /syslog/logLevel"}},
    {R"({"/ovpnTunnels": [], "/syslog": 5})", {"would-end-run /syslog"}},
};

TEST(CheckTypes, tellsOfWhatThrowsWhereItIsRead) {
  // What is told besides of a flag or an identity that is not there belongs to other tests.
  for (const Row& row : rowsOfWrongMembers()) {
    SCOPED_TRACE(row.changes);
    const Strings found = foundIn(changed(row.changes));
    EXPECT_EQ(std::count(found.begin(), found.end(), row.findings[0]), 1);
  }
}

TEST(CheckTypes, tellsOfRecordsListsAndConversions) {
  expectFindings(kOther);
}

TEST(CheckTypes, knowsWhatIsNotRead) {
  expectFindings(kUnread);
}

}  // namespace

Rows rowsOfTypes() {
  Rows rows = rowsOfWrongMembers();
  rows.insert(rows.end(), kOther.begin(), kOther.end());
  rows.insert(rows.end(), kUnread.begin(), kUnread.end());
  return rows;
}
