#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "effects/effects.h"
#include "tests/unit/tunnelctl/status_samples.h"

namespace {

using status_test::shown;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kNotBuilt = "gre1 down: it has not been built: it is newer than the last run, or ip refused it";

TunnelRecord record(const std::string& name) {
  TunnelRecord record;
  record.name = name;
  record.isEnabled = true;
  record.host = "203.0.113.7";
  record.addresses = {*parseNetwork("10.9.9.1/30")};
  record.routes = {*parseNetwork("192.168.50.0/24")};
  return record;
}

Device device(const std::string& name) {
  Device device;
  device.name = name;
  device.isUp = true;
  device.isGre = true;
  device.local = "198.51.100.2";
  device.remote = "203.0.113.7";
  device.addresses = {*parseNetwork("10.9.9.1/30")};
  device.traffic = Traffic{308, 252};
  return device;
}

/// A tunnel gre1 that is up.
Facts upFacts() {
  Facts facts = status_test::facts();
  facts.configuration.gre = {record("gre1")};
  facts.devices.push_back(device("gre1"));
  facts.routes.push_back({*parseNetwork("192.168.50.0/24"), "gre1"});
  return facts;
}

TEST(GreRows, tellTheStateAndWhy) {
  const struct {
    const char* what;
    std::function<void(Facts&)> breakIt;
    std::string row;
  } rows[] = {
      {"all is well", [](Facts&) {}, "gre1 up"},
      {"no device", [](Facts& f) { f.devices.pop_back(); }, kNotBuilt},
      {"no device and no daemon",
       [](Facts& f) {
         f.devices.pop_back();
         f.processes.clear();
       },
       "gre1 down: it has not been built, and the daemon does not run"},
      {"a name without address",
       [](Facts& f) {
         f.devices.pop_back();
         f.configuration.gre[0].host = "head.example";
         f.addresses["head.example"] = "";
       },
       "gre1 down: head.example has no address"},
      {"a name that has an address by now",
       [](Facts& f) {
         f.devices.pop_back();
         f.configuration.gre[0].host = "head.example";
         f.addresses["head.example"] = "203.0.113.7";
       },
       kNotBuilt},
      {"no remote host",
       [](Facts& f) {
         f.devices.pop_back();
         f.configuration.gre[0].host = "";
       },
       "gre1 down: it has no remote host"},
      {"a name that is too long",
       [](Facts& f) {
         f.configuration.gre[0].name = "a_name_of_16_byt";
         f.devices.pop_back();
       },
       "a_name_of_16_byt down: its name has more than 15 characters, which the kernel refuses"},
      {"another device of that name", [](Facts& f) { f.devices.back().isGre = false; },
       "gre1 down: another device has its name"},
      {"no WAN", [](Facts& f) { f.configuration.wan = ""; }, "gre1 down: no WAN is current, so nothing is built"},
      {"another WAN", [](Facts& f) { f.configuration.wan = "198.51.100.9"; },
       "gre1 down: it begins at 198.51.100.2, but the current WAN is 198.51.100.9"},
      {"another remote end", [](Facts& f) { f.configuration.gre[0].host = "203.0.113.8"; },
       "gre1 down: it ends at 203.0.113.7, but 203.0.113.8 is configured; a run is due"},
      {"a host name", [](Facts& f) { f.configuration.gre[0].host = "head.example"; }, "gre1 up"},
      {"link down", [](Facts& f) { f.devices.back().isUp = false; }, "gre1 down: its link is down; a run is due"},
      {"a local end that is nobody's", [](Facts& f) { f.devices[0].addresses.clear(); },
       "gre1 down: no interface has its local end 198.51.100.2"},
      {"no way to the other end", [](Facts& f) { f.routes.erase(f.routes.begin()); },
       "gre1 down: no route leads to its remote end 203.0.113.7"},
      {"a way to the other end through the tunnel itself", [](Facts& f) { f.routes[0].device = "gre1"; },
       "gre1 down: no route leads to its remote end 203.0.113.7"},
      {"no address", [](Facts& f) { f.devices.back().addresses.clear(); },
       "gre1 partial: it lacks its address 10.9.9.1/30; a run is due"},
      {"no route", [](Facts& f) { f.routes.pop_back(); },
       "gre1 partial: no route to 192.168.50.0/24 leads through it; a run is due"},
      {"the route through another device", [](Facts& f) { f.routes.back().device = "wan"; },
       "gre1 partial: no route to 192.168.50.0/24 leads through it; a run is due"},
      {"routes that cannot be listed",
       [](Facts& f) {
         f.routes.clear();
         f.routesStatus = 1;
       },
       "gre1 up"},
      {"routes that are not told in time",
       [](Facts& f) {
         f.routes.clear();
         f.routesStatus = kNoAnswer;
       },
       "gre1 unknown: ip does not list the kernel's routes"},
      {"routes that are not told in time, and no API",
       [](Facts& f) {
         f.apiComplaint = "no answer";
         f.configuration = {};
         f.routesStatus = kNoAnswer;
       },
       "gre1 unknown: ip does not list the kernel's routes"},
      {"devices that are not told in time",
       [](Facts& f) {
         f.devices.clear();
         f.devicesStatus = kNoAnswer;
       },
       "gre1 unknown: ip does not list the kernel's devices"},
      {"devices that cannot be listed",
       [](Facts& f) {
         f.devices.clear();
         f.devicesStatus = 127;
       },
       "gre1 unknown: ip does not list the kernel's devices"},
      {"a record of a wrong type", [](Facts& f) { f.configuration.gre[0].isReadable = false; },
       "gre1 unknown: a member of its record has a wrong type, which ends every run"},
      {"disabled", [](Facts& f) { f.configuration.gre[0].isEnabled = false; },
       "gre1 stale: it is disabled; the next run removes it"},
      {"not configured", [](Facts& f) { f.configuration.gre.clear(); },
       "gre1 stale: it is not in the configuration; the next run removes it"},
  };
  for (const auto& row : rows) {
    Facts facts = upFacts();
    row.breakIt(facts);
    EXPECT_THAT(shown(greRows(facts)), ElementsAre(row.row)) << row.what;
  }
}

TEST(GreRows, areWhatIsFoundWhereTheApiDoesNotAnswer) {
  Facts facts = upFacts();
  facts.apiComplaint = "no answer";
  facts.configuration = {};
  facts.devices.push_back(device("gre2"));
  facts.devices.back().isUp = false;
  EXPECT_THAT(shown(greRows(facts)), ElementsAre("gre1 up", "gre2 down: its link is down; a run is due"));
}

TEST(GreRows, areNoneForWhatIsDisabledAndNotThere) {
  Facts facts = upFacts();
  facts.configuration.gre[0].isEnabled = false;
  facts.devices.pop_back();
  EXPECT_THAT(greRows(facts), IsEmpty());
}

TEST(GreRows, comeInTheOrderOfTheConfigurationAndThenOfTheKernel) {
  Facts facts = upFacts();
  facts.configuration.gre = {record("b"), record("gre1"), record("a")};
  facts.devices.push_back(device("z"));
  facts.devices.push_back(device("y"));
  EXPECT_THAT(shown(greRows(facts)),
              ElementsAre(testing::StartsWith("b down"), "gre1 up", testing::StartsWith("a down"),
                          testing::StartsWith("z stale"), testing::StartsWith("y stale")));
}

TEST(GreRows, haveTheEndsAndTheTraffic) {
  Facts facts = upFacts();
  facts.configuration.gre.push_back(record("missing"));
  facts.configuration.gre[1].host = "head.example";
  const std::vector<TunnelRow> rows = greRows(facts);
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_STREQ(rows[0].kind, "gre");
  EXPECT_EQ(rows[0].local, "198.51.100.2");
  EXPECT_EQ(rows[0].remote, "203.0.113.7");
  ASSERT_TRUE(rows[0].traffic.has_value());
  EXPECT_EQ(rows[0].traffic->received, 308U);
  EXPECT_EQ(rows[0].traffic->sent, 252U);
  EXPECT_FALSE(rows[0].lastContact.has_value());
  EXPECT_EQ(rows[1].local, "");
  EXPECT_EQ(rows[1].remote, "head.example");
  EXPECT_FALSE(rows[1].traffic.has_value());
}

}  // namespace
