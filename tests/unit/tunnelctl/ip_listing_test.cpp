#include "tunnelctl/ip_listing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// A device on one line: "name up gre local>remote addresses received/sent".
std::string shown(const Device& device) {
  std::string text = device.name + (device.isUp ? " up" : " down");
  if (device.isGre) text += " gre " + device.local + ">" + device.remote;
  for (const Ipv4Network& address : device.addresses) text += " " + textOf(address);
  if (device.traffic)
    text += " " + std::to_string(device.traffic->received) + "/" + std::to_string(device.traffic->sent);
  return text;
}

std::string shown(const Route& route) {
  return textOf(route.destination) + " " + route.device;
}

template <class Item>
std::vector<std::string> shownAll(const std::vector<Item>& items) {
  std::vector<std::string> texts;
  for (const Item& item : items) texts.push_back(shown(item));
  return texts;
}

std::vector<std::string> devicesOf(const std::string& json) {
  std::vector<Device> devices;
  EXPECT_TRUE(parseDevicesJson(json, devices)) << json;
  return shownAll(devices);
}

std::vector<std::string> routesOf(const std::string& json) {
  std::vector<Route> routes;
  EXPECT_TRUE(parseRoutesJson(json, routes)) << json;
  return shownAll(routes);
}

// As iproute2 6.1 prints it, but for members that nobody looks at; the empty object is one of its ways, too.
constexpr const char* kAddresses = R"([
  {"ifindex":2,"link_index":2,"ifname":"wan","flags":["BROADCAST","MULTICAST","UP","LOWER_UP"],"operstate":"UP",
   "link_type":"ether","linkinfo":{"info_kind":"veth"},"addr_info":[
     {"family":"inet","local":"198.51.100.2","prefixlen":24,"scope":"global","label":"wan"},
     {"family":"inet6","local":"fe80::f4f5:4fff:fe21:e81a","prefixlen":64,"scope":"link"}],
   "stats64":{"rx":{"bytes":28722,"packets":97},"tx":{"bytes":43420,"packets":97}}},
  {"ifindex":4,"link":null,"ifname":"gre0","flags":["NOARP"],"operstate":"DOWN","link_type":"gre",
   "linkinfo":{"info_kind":"gre","info_data":{"remote":"any","local":"any","ttl":0,"pmtudisc":false}},
   "addr_info":[],"stats64":{"rx":{"bytes":0},"tx":{"bytes":0}}},
  {"ifindex":5,"link":null,"ifname":"gretap0","flags":["BROADCAST","MULTICAST"],"link_type":"ether",
   "linkinfo":{"info_kind":"gretap","info_data":{"remote":"any","local":"any"}},"addr_info":[]},
  {"ifindex":7,"link":null,"ifname":"Branch_Office_1","flags":["POINTOPOINT","NOARP","UP","LOWER_UP"],
   "operstate":"UNKNOWN","link_type":"gre","address":"198.51.100.2","link_pointtopoint":true,"broadcast":"203.0.113.2",
   "linkinfo":{"info_kind":"gre","info_data":{"remote":"203.0.113.2","local":"198.51.100.2","ttl":64}},
   "addr_info":[{"family":"inet","local":"10.1.1.1","prefixlen":30,"scope":"global","label":"Branch_Office_1"}],
   "stats64":{"rx":{"bytes":308,"packets":5},"tx":{"bytes":252,"packets":4}}},
  {"ifindex":11,"ifname":"tuntls","flags":["POINTOPOINT","MULTICAST","NOARP","UP","LOWER_UP"],"link_type":"none",
   "linkinfo":{"info_kind":"tun","info_data":{"type":"tun"}},"addr_info":[
     {"family":"inet","local":"10.3.0.1","address":"10.3.0.2","prefixlen":32,"scope":"global","label":"tuntls"}],
   "stats64":{"rx":{"bytes":18446744073709551615,"packets":4},"tx":{"bytes":276,"packets":5}}},
  {}])";

TEST(ParseDevicesJson, readsWhatIproute2Prints) {
  EXPECT_THAT(devicesOf(kAddresses), ElementsAre("wan up 198.51.100.2/24 28722/43420", "gre0 down 0/0", "gretap0 down",
                                                 "Branch_Office_1 up gre 198.51.100.2>203.0.113.2 10.1.1.1/30 308/252",
                                                 "tuntls up 10.3.0.1/32 18446744073709551615/276"));
}

TEST(ParseDevicesJson, takesWhateverTheMembersAre) {
  const struct {
    std::string json;
    std::vector<std::string> devices;
  } rows[] = {
      {"[]", {}},
      {R"([5, "x", null, [], {"ifname":7}])", {}},
      {R"([{"ifname":"a"}])", {"a down"}},
      {R"([{"ifname":"a","flags":"UP","linkinfo":[],"addr_info":{},"stats64":{"rx":5,"tx":{"bytes":-1}}}])",
       {"a down"}},
      {R"([{"ifname":"a","flags":["LOWER_UP"]}])", {"a down"}},
      {R"([{"ifname":"a","linkinfo":{"info_kind":"gre","info_data":{"local":"0.0.0.0","remote":5}}}])",
       {"a down gre >"}},
      {R"([{"ifname":"a","addr_info":[{"local":"10.0.0.1"},{"local":"10.0.0.1","prefixlen":99},7]}])", {"a down"}},
  };
  for (const auto& row : rows) EXPECT_EQ(devicesOf(row.json), row.devices) << row.json;
}

TEST(ParseDevicesJson, refusesWhatIsNoArray) {
  for (const char* text : {"", "{}", "7", "[", "[{}", "Usage: ip [OPTIONS]", "1: lo: <LOOPBACK>"}) {
    std::vector<Device> devices(1);
    EXPECT_FALSE(parseDevicesJson(text, devices)) << text;
    EXPECT_EQ(devices.size(), 1U);
    std::vector<Route> routes(1);
    EXPECT_FALSE(parseRoutesJson(text, routes)) << text;
    EXPECT_EQ(routes.size(), 1U);
  }
}

TEST(ParseDevicesJson, refusesWhatIsNestedTooDeep) {
  std::vector<Device> devices;
  EXPECT_FALSE(parseDevicesJson(std::string(1002, '[') + std::string(1002, ']'), devices));
}

TEST(ParseRoutesJson, readsTheWaysAlongWhichPacketsGo) {
  EXPECT_THAT(routesOf(R"([
    {"dst":"192.168.20.0/24","gateway":"198.51.100.1","dev":"wan","table":"220","protocol":"static","flags":[]},
    {"dst":"default","gateway":"198.51.100.1","dev":"wan","flags":[]},
    {"dst":"10.3.0.2","dev":"tuntls","protocol":"kernel","scope":"link","prefsrc":"10.3.0.1","flags":[]},
    {"type":"unicast","dst":"192.168.21.0/24","dev":"Branch_Office_1","scope":"link","flags":[]},
    {"dst":"10.7.0.0/16","flags":[],"nexthops":[{"dev":"a","flags":[]},{"dev":"b","flags":[]}]},
    {"type":"local","dst":"10.1.1.1","dev":"Branch_Office_1","table":"local","flags":[]},
    {"type":"unreachable","dst":"10.8.0.0/16","flags":[]},
    {"dst":"10.9.0.0/16","dev":"lan","flags":["dead","linkdown"]},
    {"dst":"fe80::/64","dev":"wan","flags":[]}, {"dst":5}, 5])"),
              ElementsAre("192.168.20.0/24 wan", "0.0.0.0/0 wan", "10.3.0.2/32 tuntls",
                          "192.168.21.0/24 Branch_Office_1", "10.7.0.0/16 "));
}

TEST(ParseDevices, readsWhatIproute2PrintsInPlainText) {
  EXPECT_THAT(shownAll(parseDevices(
                  "2: wan@if2: <BROADCAST,MULTICAST,UP,LOWER_UP> mtu 1500 qdisc noqueue state UP qlen 1000\n"
                  "    link/ether f6:f5:4f:21:e8:1a brd ff:ff:ff:ff:ff:ff link-netnsid 0\n"
                  "    inet 198.51.100.2/24 scope global wan\n"
                  "       valid_lft forever preferred_lft forever\n"
                  "    inet6 fe80::f4f5:4fff:fe21:e81a/64 scope link \n"
                  "4: gre0@NONE: <NOARP> mtu 1476 qdisc noop state DOWN group default qlen 1000\n"
                  "    link/gre 0.0.0.0 brd 0.0.0.0\n"
                  "7: Branch_Office_1@NONE: <POINTOPOINT,NOARP,UP,LOWER_UP> mtu 1476 qdisc noqueue state UNKNOWN\n"
                  "    link/gre 198.51.100.2 peer 203.0.113.2\n"
                  "    inet 10.1.1.1/30 scope global Branch_Office_1\n"
                  "11: tuntls: <POINTOPOINT,MULTICAST,NOARP,UP,LOWER_UP> mtu 1500 qdisc fq_codel state UNKNOWN\n"
                  "    link/none \n"
                  "    inet 10.3.0.1 peer 10.3.0.2/32 scope global tuntls\n")),
              ElementsAre("wan up 198.51.100.2/24", "gre0 down",
                          "Branch_Office_1 up gre 198.51.100.2>203.0.113.2 10.1.1.1/30", "tuntls up 10.3.0.1/32"));
}

TEST(ParseDevices, readsWhatBusyBoxPrints) {
  EXPECT_THAT(shownAll(parseDevices("8: Spare_Line@NONE: <POINTOPOINT,NOARP> mtu 1476 qdisc noqueue qlen 1000\n"
                                    "    link/gre 198.51.100.2 peer 203.0.113.21\n"
                                    "9: other@NONE: <POINTOPOINT,NOARP,UP,LOWER_UP> mtu 1476 qdisc noqueue\n"
                                    "    link/[778] 198.51.100.2 peer 203.0.113.22\n"
                                    "10: tunspare: <POINTOPOINT,UP> mtu 1500 qdisc fq_codel qlen 500\n"
                                    "    link/[65534] \n"
                                    "    inet 10.4.0.1 peer 10.4.0.2/32 scope global tunspare\n")),
              ElementsAre("Spare_Line down gre 198.51.100.2>203.0.113.21", "other up gre 198.51.100.2>203.0.113.22",
                          "tunspare up 10.4.0.1/32"));
}

TEST(ParseDevices, passesOverWhatIsNoLineOfAListing) {
  EXPECT_THAT(shownAll(parseDevices("")), IsEmpty());
  EXPECT_THAT(shownAll(parseDevices("    inet 10.0.0.1/8\nUsage: ip\n\n7:\n")), IsEmpty());
  EXPECT_THAT(shownAll(parseDevices("7: a\n link/gre\n inet\n inet x\n inet 10.0.0.1/99\n link/gre any peer any\n")),
              ElementsAre("a down gre >"));
}

TEST(ParseRoutes, readsPlainText) {
  EXPECT_THAT(shownAll(parseRoutes("192.168.20.0/24 via 198.51.100.1 dev wan table 220 proto static\n"
                                   "default via 198.51.100.1 dev wan \n"
                                   "unicast 10.3.0.2 dev tuntls scope link\n"
                                   "10.7.0.0/16 \n"
                                   "\tnexthop via 10.0.0.1 dev a weight 1\n"
                                   "local 10.1.1.1 dev Branch_Office_1 table local\n"
                                   "unreachable 10.8.0.0/16\n"
                                   "10.9.0.0/16 dev lan dead linkdown\n"
                                   "fe80::/64 dev lan\n\n")),
              ElementsAre("192.168.20.0/24 wan", "0.0.0.0/0 wan", "10.3.0.2/32 tuntls", "10.7.0.0/16 "));
}

TEST(AddTraffic, readsTheCountersOfTheKernel) {
  std::vector<Device> devices(3);
  devices[0].name = "Branch_Office_1";
  devices[1].name = "lo";
  devices[2].name = "other";
  addTraffic(devices,
             "Inter-|   Receive                                                |  Transmit\n"
             " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets errs drop fifo\n"
             "    lo:       1       0    0    0    0     0          0         0        2       0    0    0    0\n"
             "Branch_Office_1:     308       5    0    0    0     0          0         0      252       4    0\n"
             " other: 1 2 3\n");
  EXPECT_THAT(shownAll(devices), ElementsAre("Branch_Office_1 down 308/252", "lo down 1/2", "other down"));
}

}  // namespace
