#include "configuration/local_networks.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/unit/harness/json_document.h"

namespace {

TEST(NetworkText, isTheNetworkOfAnAddress) {
  const struct {
    const char* ip;
    const char* mask;
    const char* network;
  } rows[] = {
      {"192.168.1.1", "255.255.255.0", "192.168.1.0/24"},
      {"192.168.2.77", "255.255.255.192", "192.168.2.64/26"},
      {"10.9.8.7", "255.0.0.0", "10.0.0.0/8"},
      {"10.9.8.7", "255.255.255.255", "10.9.8.7/32"},
      {"10.9.8.7", "0.0.0.0", "0.0.0.0/0"},
      {"255.255.255.255", "255.255.255.255", "255.255.255.255/32"},
      {"192.168.1.1", "255.0.255.0", "192.0.1.0/16"},
      {"192.168.1.1", "0.0.0.255", "0.0.0.1/8"},
      {"192.168.1.1", "85.85.85.85", "64.0.1.1/16"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << row.ip << " & " << row.mask);
    EXPECT_EQ(networkText(row.ip, row.mask), row.network);
  }
}

TEST(NetworkText, isEmptyForWhatIsNoAddressOrNoMask) {
  constexpr char kAddress[] = "192.168.1.1";
  constexpr char kMask[] = "255.255.255.0";
  for (const char* text : {"", " ", "24", "/24", "255.255.255", "256.0.0.0", "255.255.255.0.0", " 255.255.255.0",
                           "255.255.255.0 ", "255.255.255.x", "ffff:ff00::", "0xffffff00", "--"}) {
    SCOPED_TRACE(text);
    EXPECT_EQ(networkText(kAddress, text), "");
    EXPECT_EQ(networkText(text, kMask), "");
    EXPECT_EQ(networkText(text, text), "");
  }
}

/// An interface entry as text, to be put together into an array.
std::string interface(const std::string& members, const std::string& ip) {
  return "{" + members + R"(,"ipv4":{"ip":")" + ip + R"(","mask":"255.255.255.0"}})";
}

std::string standalone(const std::string& ip) {
  return interface(R"("type":"LAN","available":true,"nitype":"ETHERNET","bridge":"--")", ip);
}

std::string memberOf(const std::string& bridge) {
  return interface(R"("type":"LAN","available":true,"nitype":"ETHERNET","bridge":")" + bridge + '"', "172.16.0.1");
}

std::string bridge(const std::string& name, const std::string& ip) {
  return interface(R"("type":"LAN","available":true,"nitype":"BRIDGE","bridge":")" + name + '"', ip);
}

struct Row {
  const char* what;
  std::string interfaces;
  const char* networks;
};

void expectNetworks(const Row& row) {
  SCOPED_TRACE(row.what);
  EXPECT_EQ(textOf(localNetworks(jsonOf(row.interfaces))), row.networks);
}

TEST(LocalNetworks, hasThoseOfStandaloneLanInterfaces) {
  const std::string ethernet = R"("nitype":"ETHERNET","bridge":"--")";
  const Row rows[] = {
      {"one", "[" + standalone("192.168.1.1") + "]", R"(["192.168.1.0/24"])"},
      {"two, in reverse order", "[" + standalone("10.0.1.1") + "," + standalone("10.0.2.1") + "]",
       R"(["10.0.2.0/24","10.0.1.0/24"])"},
      {"the same twice", "[" + standalone("10.0.1.1") + "," + standalone("10.0.1.2") + "]",
       R"(["10.0.1.0/24","10.0.1.0/24"])"},
      {"a WAN", "[" + interface(R"("type":"WAN","available":true,)" + ethernet, "10.0.1.1") + "]", "[]"},
      {"a type in lower case", "[" + interface(R"("type":"lan","available":true,)" + ethernet, "10.0.1.1") + "]", "[]"},
      {"no type", "[" + interface(R"("available":true,)" + ethernet, "10.0.1.1") + "]", "[]"},
      {"not available", "[" + interface(R"("type":"LAN","available":false,)" + ethernet, "10.0.1.1") + "]", "[]"},
      {"availability not said", "[" + interface(R"("type":"LAN",)" + ethernet, "10.0.1.1") + "]", "[]"},
      {"availability as a number", "[" + interface(R"("type":"LAN","available":1,)" + ethernet, "10.0.1.1") + "]",
       R"(["10.0.1.0/24"])"},
      {"no nitype", "[" + interface(R"("type":"LAN","available":true,"bridge":"--")", "10.0.1.1") + "]",
       R"(["10.0.1.0/24"])"},
      {"no bridge named", "[" + interface(R"("type":"LAN","available":true,"nitype":"ETHERNET")", "10.0.1.1") + "]",
       "[]"},
  };
  for (const Row& row : rows) expectNetworks(row);
}

TEST(LocalNetworks, hasThoseOfBridgesThatLanInterfacesBelongTo) {
  const std::string unavailableBridge =
      interface(R"("type":"WAN","available":false,"nitype":"BRIDGE","bridge":"br0")", "10.0.9.1");
  const std::string bareBridge = interface(R"("nitype":"BRIDGE","bridge":"br0")", "10.0.9.1");
  const std::string wanMember =
      interface(R"("type":"WAN","available":true,"nitype":"ETHERNET","bridge":"br0")", "10.0.1.1");
  const std::string unavailableMember =
      interface(R"("type":"LAN","available":false,"nitype":"ETHERNET","bridge":"br0")", "10.0.1.1");
  const Row rows[] = {
      {"a member alone", "[" + memberOf("br0") + "]", "[]"},
      {"a member and its bridge", "[" + memberOf("br0") + "," + bridge("br0", "10.0.9.1") + "]", R"(["10.0.9.0/24"])"},
      {"the bridge before its member", "[" + bridge("br0", "10.0.9.1") + "," + memberOf("br0") + "]",
       R"(["10.0.9.0/24"])"},
      {"a bridge that is not available and no LAN", "[" + memberOf("br0") + "," + unavailableBridge + "]",
       R"(["10.0.9.0/24"])"},
      {"a bridge without type and availability", "[" + memberOf("br0") + "," + bareBridge + "]", R"(["10.0.9.0/24"])"},
      {"a bridge that nobody belongs to", "[" + memberOf("br1") + "," + bridge("br0", "10.0.9.1") + "]", "[]"},
      {"a bridge alone", "[" + bridge("br0", "10.0.9.1") + "]", "[]"},
      {"a bridge whose member is a WAN", "[" + wanMember + "," + bridge("br0", "10.0.9.1") + "]", "[]"},
      {"a bridge whose member is not available", "[" + unavailableMember + "," + bridge("br0", "10.0.9.1") + "]", "[]"},
      {"a bridge named by a bridge only", "[" + bridge("br0", "10.0.8.1") + "," + bridge("br0", "10.0.9.1") + "]",
       "[]"},
      {"two members of one bridge",
       "[" + memberOf("br0") + "," + memberOf("br0") + "," + bridge("br0", "10.0.9.1") + "]", R"(["10.0.9.0/24"])"},
      {"two bridges, in reverse order",
       "[" + bridge("br0", "10.0.8.1") + "," + memberOf("br1") + "," + memberOf("br0") + "," +
           bridge("br1", "10.0.9.1") + "]",
       R"(["10.0.9.0/24","10.0.8.0/24"])"},
      {"two entries of one bridge",
       "[" + memberOf("br0") + "," + bridge("br0", "10.0.8.1") + "," + bridge("br0", "10.0.9.1") + "]",
       R"(["10.0.9.0/24","10.0.8.0/24"])"},
      {"a bridge in no bridge, beside a standalone interface",
       "[" + standalone("10.0.1.1") + "," + bridge("--", "10.0.9.1") + "]", R"(["10.0.1.0/24","10.0.9.0/24"])"},
      {"an unnamed bridge of an unnamed member",
       "[" + interface(R"("type":"LAN","available":true)", "10.0.1.1") + "," +
           interface(R"("nitype":"BRIDGE")", "10.0.9.1") + "]",
       R"(["10.0.9.0/24"])"},
  };
  for (const Row& row : rows) expectNetworks(row);
}

TEST(LocalNetworks, hasTheBridgesAfterAllStandaloneInterfaces) {
  expectNetworks({"bridge first and last in the array",
                  "[" + bridge("br0", "10.0.8.1") + "," + standalone("10.0.1.1") + "," + memberOf("br0") + "," +
                      standalone("10.0.2.1") + "," + bridge("br0", "10.0.9.1") + "]",
                  R"(["10.0.2.0/24","10.0.1.0/24","10.0.9.0/24","10.0.8.0/24"])"});
}

TEST(LocalNetworks, leavesOutWhatHasNoAddress) {
  const std::string lan = R"({"type":"LAN","available":true,"bridge":"--")";
  const Row rows[] = {
      {"no ipv4", "[" + lan + "}," + standalone("10.0.1.1") + "]", R"(["10.0.1.0/24"])"},
      {"ipv4 null", "[" + lan + R"(,"ipv4":null}])", "[]"},
      {"ipv4 empty", "[" + lan + R"(,"ipv4":{}}])", "[]"},
      {"no mask", "[" + lan + R"(,"ipv4":{"ip":"10.0.1.1"}}])", "[]"},
      {"no ip", "[" + lan + R"(,"ipv4":{"mask":"255.255.255.0"}}])", "[]"},
      {"a prefix for a mask", "[" + lan + R"(,"ipv4":{"ip":"10.0.1.1","mask":"24"}}])", "[]"},
      {"a prefix number for a mask", "[" + lan + R"(,"ipv4":{"ip":"10.0.1.1","mask":24}}])", "[]"},
      {"a name for an ip", "[" + lan + R"(,"ipv4":{"ip":"router","mask":"255.255.255.0"}}])", "[]"},
      {"a bridge without one", "[" + memberOf("br0") + R"(,{"nitype":"BRIDGE","bridge":"br0"}])", "[]"},
  };
  for (const Row& row : rows) expectNetworks(row);
}

TEST(LocalNetworks, isAnEmptyArrayWithoutInterfaces) {
  for (const char* interfaces : {"null", "[]", "{}", "[null]", "[{}]"}) {
    expectNetworks({interfaces, interfaces, "[]"});
  }
}

TEST(LocalNetworks, throwsForMembersThatCannotBeConverted) {
  for (const char* interfaces : {
           "[5]",
           R"(["text"])",
           "[[]]",
           R"({"eth0":{}})",
           R"([{"type":[]}])",
           R"([{"type":{}}])",
           R"([{"type":"LAN","available":"yes"}])",
           R"([{"type":"LAN","available":true,"nitype":[]}])",
           R"([{"type":"LAN","available":true,"bridge":{}}])",
           R"([{"type":"LAN","available":true,"bridge":"--","ipv4":"10.0.1.1"}])",
           R"([{"type":"LAN","available":true,"bridge":"--","ipv4":{"ip":[]}}])",
       }) {
    EXPECT_THROW(localNetworks(jsonOf(interfaces)), Json::LogicError) << interfaces;
  }
}

}  // namespace
