#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "effects/effects.h"
#include "tests/unit/tunnelctl/status_samples.h"

namespace {

using status_test::shown;
using testing::ElementsAre;
using testing::StartsWith;

constexpr const char* kFirst = "office_192_168_3_0_24";
constexpr const char* kSecond = "office_192_168_2_0_24";
constexpr const char* kUnwritten =
    "it is not written in /var/run/ipsec/ipsec.conf: it is newer than the last run, or refused, and the log says why";

WrittenConnection written(const std::string& name, const std::string& network) {
  return {name, "198.51.100.2", network, "203.0.113.7"};
}

void connectOnly(Facts& facts, bool isEstablished) {
  facts.ipsec.children.clear();
  facts.ipsec.keyExchanges = {{kFirst, isEstablished, 5}};
}

/// A tunnel "office" that joins two networks.
Facts upFacts() {
  Facts facts = status_test::facts();
  TunnelRecord record;
  record.name = "office";
  record.isEnabled = true;
  record.host = "203.0.113.7";
  record.connections = {kFirst, kSecond};
  facts.configuration.ipsec = {record};
  facts.connections = {written(kFirst, "192.168.3.0/24"), written(kSecond, "192.168.2.0/24")};
  facts.isIpsecRunning = true;
  facts.ipsec.peers = {{kFirst, kFirst}, {kSecond, kFirst}};
  facts.ipsec.keyExchanges = {{kFirst, true, 30}, {kFirst, true, 20}, {"other", true, 1}};
  facts.ipsec.children = {{kFirst, true, 84, 168}, {kSecond, true, 1, 2}, {"other", true, 1000, 1000}};
  facts.processes.push_back(status_test::process(7, "charon", {"/usr/lib/ipsec/charon"}));
  return facts;
}

TEST(IpsecRows, tellTheStateAndWhy) {
  const struct {
    const char* what;
    std::function<void(Facts&)> breakIt;
    std::string row;
  } rows[] = {
      {"all is well", [](Facts&) {}, "office up"},
      {"an old SA beside the new one",
       [](Facts& f) {
         f.ipsec.children.insert(f.ipsec.children.begin(), {kFirst, false, 0, 0});
       },
       "office up"},
      {"one network only", [](Facts& f) { f.ipsec.children.erase(f.ipsec.children.begin() + 1); },
       std::string("office partial: 1 of 2 networks are joined; ") + kSecond +
           ": keys are exchanged, but no SA is: the peer refuses the networks or the proposal of phase 2"},
      {"keys only", [](Facts& f) { connectOnly(f, true); },
       "office down: keys are exchanged, but no SA is: the peer refuses the networks or the proposal of phase 2"},
      {"no answer", [](Facts& f) { connectOnly(f, false); }, "office down: no answer from 203.0.113.7 yet"},
      {"an answer that leads to nothing",
       [](Facts& f) {
         connectOnly(f, false);
         f.ipsec.keyExchanges.push_back({kFirst, false, 0, true});
       },
       "office down: 203.0.113.7 answers, but no keys are exchanged yet: if it stays so, the key or the identity "
       "differs"},
      {"nothing",
       [](Facts& f) {
         connectOnly(f, false);
         f.ipsec.keyExchanges.clear();
       },
       "office down: no SA: the peer refused the proposal, the key or the identity, and the log of the IPsec service "
       "says which"},
      {"any peer, and none is there",
       [](Facts& f) {
         f.ipsec = {f.ipsec.peers, {}, {}};
         for (WrittenConnection& connection : f.connections) connection.right = "0.0.0.0";
       },
       "office down: no peer has connected yet"},
      {"a name without address",
       [](Facts& f) {
         f.ipsec = {f.ipsec.peers, {}, {}};
         for (WrittenConnection& connection : f.connections) connection.right = "";
         f.configuration.ipsec[0].host = "head.example";
       },
       "office down: head.example has no address"},
      {"a name that has an address by now",
       [](Facts& f) {
         f.ipsec = {f.ipsec.peers, {}, {}};
         for (WrittenConnection& connection : f.connections) connection.right = "";
         f.configuration.ipsec[0].host = "head.example";
         f.addresses["head.example"] = "203.0.113.7";
       },
       "office down: head.example had no address at the last run; a run is due"},
      {"no remote host",
       [](Facts& f) {
         f.ipsec = {f.ipsec.peers, {}, {}};
         for (WrittenConnection& connection : f.connections) connection.right = "";
         f.configuration.ipsec[0].host = "";
       },
       "office down: it has no remote host"},
      {"one that was not loaded",
       [](Facts& f) {
         f.ipsec.children.clear();
         f.ipsec.peers.erase(kFirst);
       },
       std::string("office down: the IPsec service has not loaded ") + kFirst + ", and its log says why"},
      {"other files",
       [](Facts& f) {
         f.ipsec = {{{"theirs", "theirs"}}, {}, {}};
       },
       "office down: the IPsec service does not read /var/run/ipsec/ipsec.conf, which its own ipsec.conf must include"},
      {"not written", [](Facts& f) { f.connections.clear(); }, std::string("office down: ") + kUnwritten},
      {"a network that is new", [](Facts& f) { f.connections.pop_back(); },
       std::string("office partial: 1 of 2 networks are joined; ") + kSecond + ": " + kUnwritten},
      {"no local network", [](Facts& f) { f.configuration.ipsec[0].connections.clear(); },
       "office down: there is no local network that it could join"},
      {"no WAN", [](Facts& f) { f.configuration.wan = ""; }, "office down: no WAN is current, so nothing is built"},
      {"another WAN", [](Facts& f) { f.configuration.wan = "198.51.100.9"; },
       "office down: it begins at 198.51.100.2, but the current WAN is 198.51.100.9"},
      {"no service",
       [](Facts& f) {
         f.isIpsecRunning = false;
         f.ipsecStatus = 3;
       },
       "office down: the IPsec service does not run"},
      {"no program",
       [](Facts& f) {
         f.isIpsecRunning = false;
         f.ipsecStatus = 127;
       },
       "office down: there is no program ipsec"},
      {"no answer of the service",
       [](Facts& f) {
         f.isIpsecRunning = false;
         f.ipsecStatus = kNoAnswer;
       },
       "office unknown: ipsec statusall does not answer in time"},
      {"not root",
       [](Facts& f) {
         f.isIpsecRunning = false;
         f.isRoot = false;
       },
       "office unknown: only root may ask the IPsec service"},
      {"not root, and no service",
       [](Facts& f) {
         f.isIpsecRunning = false;
         f.isRoot = false;
         f.processes.pop_back();
       },
       "office down: the IPsec service does not run"},
      {"a record of a wrong type", [](Facts& f) { f.configuration.ipsec[0].isReadable = false; },
       "office unknown: a member of its record has a wrong type, which ends every run"},
      {"disabled", [](Facts& f) { f.configuration.ipsec[0].isEnabled = false; },
       "office stale: it is written, but no longer configured; a run is due"},
      {"not configured", [](Facts& f) { f.configuration.ipsec.clear(); },
       "office stale: it is written, but no longer configured; a run is due"},
  };
  for (const auto& row : rows) {
    Facts facts = upFacts();
    row.breakIt(facts);
    EXPECT_THAT(shown(ipsecRows(facts)), ElementsAre(row.row)) << row.what;
  }
}

TEST(IpsecRows, areWhatIsWrittenWhereTheApiDoesNotAnswer) {
  Facts facts = upFacts();
  facts.apiComplaint = "no answer";
  facts.configuration = {};
  EXPECT_THAT(shown(ipsecRows(facts)), ElementsAre("office up"));
  facts.connections.push_back(written("b_192_168_2_0_24", "192.168.2.0/24"));
  facts.connections[1].right = "";
  facts.ipsec.children.erase(facts.ipsec.children.begin() + 1);
  EXPECT_THAT(shown(ipsecRows(facts)), ElementsAre(StartsWith("office partial: 1 of 2"),
                                                   StartsWith("b down: the IPsec service has not loaded b_")));
}

TEST(IpsecRows, haveTheEndsTheTrafficAndTheTimeOfTheKeys) {
  const TunnelRow row = ipsecRows(upFacts()).front();
  EXPECT_STREQ(row.kind, "ipsec");
  EXPECT_EQ(row.local, "198.51.100.2");
  EXPECT_EQ(row.remote, "203.0.113.7");
  ASSERT_TRUE(row.traffic.has_value());
  EXPECT_EQ(row.traffic->received, 85U);
  EXPECT_EQ(row.traffic->sent, 170U);
  EXPECT_EQ(row.lastContact, status_test::kNow - 20);
}

TEST(IpsecRows, haveTheConfiguredHostWhereNoneIsWritten) {
  Facts facts = upFacts();
  facts.connections.clear();
  facts.configuration.ipsec[0].host = "head.example";
  facts.isIpsecRunning = false;
  facts.ipsec = {};
  const TunnelRow row = ipsecRows(facts).front();
  EXPECT_EQ(row.local, "");
  EXPECT_EQ(row.remote, "head.example");
  EXPECT_FALSE(row.traffic.has_value());
  EXPECT_FALSE(row.lastContact.has_value());
}

TEST(IpsecService, tellsHowManyConnectionsItHasOfThoseThatAreWritten) {
  Facts facts = upFacts();
  facts.ipsec.peers["theirs"] = "theirs";
  facts.ipsec.peers.erase(kSecond);
  const IpsecService service = ipsecService(facts);
  EXPECT_TRUE(service.isRunning);
  EXPECT_EQ(service.complaint, "");
  EXPECT_EQ(service.written, 2U);
  EXPECT_EQ(service.loaded, 1U);
}

}  // namespace
