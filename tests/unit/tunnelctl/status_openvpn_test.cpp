#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "tests/unit/tunnelctl/status_samples.h"

namespace {

using status_test::kNow;
using status_test::shown;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int kChild = 200;

std::string pointStatus(const std::string& arrived, const std::string& authenticated) {
  return "OpenVPN STATISTICS\nTUN/TAP read bytes,10\nTUN/TAP write bytes,20\nTCP/UDP read bytes," + arrived +
         "\nAuth read bytes," + authenticated + "\nEND\n";
}

/// A tunnel "vpn" with certificates that is up.
Facts upFacts() {
  Facts facts = status_test::facts();
  TunnelRecord record;
  record.name = "vpn";
  record.isEnabled = true;
  facts.configuration.openvpn = {record};
  OpenvpnFiles files;
  files.name = "vpn";
  files.hasConfiguration = true;
  files.device = "tunvpn";
  files.remote = "head.example";
  files.status = TimedText{pointStatus("3000", "96"), kNow - 1};
  facts.openvpn = {files};
  facts.processes.push_back(status_test::process(
      kChild, "openvpn", {"openvpn", "--config", "/var/run/openvpn_vpn.conf", "--status"}, status_test::kDaemon));
  Device device;
  device.name = "tunvpn";
  device.isUp = true;
  facts.devices.push_back(device);
  return facts;
}

/// The same with a static key, its far end pinged four seconds ago.
Facts pingedFacts(const std::string& found) {
  Facts facts = upFacts();
  facts.openvpn[0].pingAddress = "10.8.0.2";
  facts.openvpn[0].connect = TimedText{found, kNow - 4};
  return facts;
}

struct Row {
  const char* what;
  std::function<void(Facts&)> breakIt;
  std::string row;
};

void expectRows(const Facts& well, const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    Facts facts = well;
    row.breakIt(facts);
    EXPECT_THAT(shown(openvpnRows(facts)), ElementsAre(row.row)) << row.what;
  }
}

TEST(OpenvpnRows, tellTheStateAndWhy) {
  expectRows(
      upFacts(),
      {{"all is well", [](Facts&) {}, "vpn up"},
       {"no child",
        [](Facts& f) {
          f.processes.pop_back();
          f.openvpn[0].status->writtenAt = kNow - 20;
        },
        "vpn down: no child for 20 s: openvpn cannot start, or leaves at once, and its lines in the system log say "
        "why"},
       {"no child that ever wrote a status",
        [](Facts& f) {
          f.processes.pop_back();
          f.openvpn[0].status.reset();
        },
        "vpn down: no child: openvpn cannot start, or leaves at once, and its lines in the system log say why"},
       {"another tunnel's child", [](Facts& f) { f.processes.back().arguments[2] = "/var/run/openvpn_vpn2.conf"; },
        "vpn down: no child for 1 s: openvpn cannot start, or leaves at once, and its lines in the system log say why"},
       {"no child and no daemon", [](Facts& f) { f.processes.clear(); },
        "vpn down: no child: the daemon does not run, and its children end with it"},
       {"nothing written",
        [](Facts& f) {
          f.processes.pop_back();
          f.openvpn[0] = {};
        },
        "vpn down: its configuration has not been written: it is newer than the last run"},
       {"no WAN", [](Facts& f) { f.configuration.wan = ""; }, "vpn down: no WAN is current, so nothing is started"},
       {"a status of an earlier child", [](Facts& f) { f.openvpn[0].status->writtenAt = kNow - 61; },
        "vpn down: openvpn has run for 60 s and has not written its status yet"},
       {"an empty status", [](Facts& f) { f.openvpn[0].status->text = ""; },
        "vpn down: openvpn has run for 60 s and has not written its status yet"},
       {"an old status", [](Facts& f) { f.openvpn[0].status->writtenAt = kNow - 40; },
        "vpn down: openvpn has not written its status for 40 s: it waits to connect again, or hangs"},
       {"a status that is none", [](Facts& f) { f.openvpn[0].status->text = "x"; },
        "vpn unknown: the status of openvpn cannot be read"},
       {"a status that only root may read", [](Facts& f) { f.openvpn[0].isStatusForbidden = true; },
        "vpn unknown: only root may read the status of openvpn"},
       {"no device", [](Facts& f) { f.devices.pop_back(); },
        "vpn down: its device tunvpn is not there: openvpn has not connected yet"},
       {"link down", [](Facts& f) { f.devices.back().isUp = false; },
        "vpn down: the link of its device tunvpn is down"},
       {"devices that cannot be listed",
        [](Facts& f) {
          f.devices.clear();
          f.devicesStatus = 1;
        },
        "vpn up"},
       {"no device in the configuration", [](Facts& f) { f.openvpn[0].device = ""; }, "vpn up"},
       {"nobody at the other end", [](Facts& f) { f.openvpn[0].status->text = pointStatus("0", "0"); },
        "vpn down: nothing has come from the other end"},
       {"no data yet", [](Facts& f) { f.openvpn[0].status->text = pointStatus("3000", "0"); },
        "vpn unknown: the other end answers, but nothing has come through the tunnel yet"},
       {"a server without clients", [](Facts& f) { f.openvpn[0].status->text = "OpenVPN CLIENT LIST\nEND\n"; },
        "vpn up"},
       {"a record of a wrong type", [](Facts& f) { f.configuration.openvpn[0].isReadable = false; },
        "vpn unknown: a member of its record has a wrong type, which ends every run"},
       {"disabled", [](Facts& f) { f.configuration.openvpn[0].isEnabled = false; },
        "vpn stale: it runs, but is no longer configured; a run is due"},
       {"only the file of what is disabled",
        [](Facts& f) {
          f.configuration.openvpn[0].isEnabled = false;
          f.processes.pop_back();
        },
        "vpn stale: nothing runs; the file of an earlier configuration is left"},
       {"no API",
        [](Facts& f) {
          f.configuration = {};
          f.apiComplaint = "no answer";
        },
        "vpn up"},
       {"no API and no child",
        [](Facts& f) {
          f.configuration = {};
          f.apiComplaint = "no answer";
          f.processes.pop_back();
        },
        "vpn unknown: no child: only the API could tell whether there should be one"}});
}

TEST(OpenvpnRows, tellWhatThePingOfTheFarEndFound) {
  expectRows(
      pingedFacts("connected"),
      {{"all is well", [](Facts&) {}, "vpn up"},
       {"no data, but an answer", [](Facts& f) { f.openvpn[0].status->text = pointStatus("0", "0"); }, "vpn up"},
       {"no ping yet", [](Facts& f) { f.openvpn[0].connect.reset(); }, "vpn unknown: 10.8.0.2 has not been pinged yet"},
       {"no ping of this child yet", [](Facts& f) { f.openvpn[0].connect->writtenAt = kNow - 61; },
        "vpn unknown: 10.8.0.2 has not been pinged yet"},
       {"no answer", [](Facts& f) { f.openvpn[0].connect->text = ""; },
        "vpn down: the last ping of 10.8.0.2 failed 4 s ago"}});
}

TEST(OpenvpnRows, areNoneForWhatIsDisabledAndNotThere) {
  Facts facts = upFacts();
  facts.configuration.openvpn[0].isEnabled = false;
  facts.openvpn[0].hasConfiguration = false;
  facts.processes.pop_back();
  EXPECT_THAT(openvpnRows(facts), IsEmpty());
}

TEST(OpenvpnRows, haveTheOtherEndTheTrafficAndTheLastPing) {
  const TunnelRow row = openvpnRows(pingedFacts("connected")).front();
  EXPECT_STREQ(row.kind, "openvpn");
  EXPECT_EQ(row.remote, "head.example");
  ASSERT_TRUE(row.traffic.has_value());
  EXPECT_EQ(row.traffic->received, 20U);
  EXPECT_EQ(row.traffic->sent, 10U);
  EXPECT_EQ(row.lastContact, kNow - 4);
  EXPECT_FALSE(openvpnRows(pingedFacts("")).front().lastContact.has_value());
}

TEST(OpenvpnRows, countTheClientsOfAServer) {
  Facts facts = upFacts();
  const std::string head = "OpenVPN CLIENT LIST\nCommon Name,x\n";
  facts.openvpn[0].status->text = head + "a,1,2,3,4\n";
  EXPECT_EQ(openvpnRows(facts).front().remote, "1 client");
  facts.openvpn[0].status->text = head + "a,1,2,3,4\nb,1,2,3,4\n";
  EXPECT_EQ(openvpnRows(facts).front().remote, "2 clients");
}

TEST(OpenvpnRows, haveNoTrafficOfAnEarlierChild) {
  Facts facts = upFacts();
  facts.openvpn[0].status->writtenAt = kNow - 61;
  EXPECT_FALSE(openvpnRows(facts).front().traffic.has_value());
}

}  // namespace
