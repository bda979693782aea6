#include "gre/tunnel_creation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "api/wan_list.h"
#include "tests/unit/harness/captured_log.h"
#include "tests/unit/harness/json_document.h"
#include "tests/unit/harness/stand_in.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;

constexpr int kInfo = 50;
constexpr int kTrace = 100;

const GreTunnel kTunnel{"gre1", "203.0.113.7", "10.9.9.1", "255.255.255.252", "64"};

TEST(GreCommands, areComposedExactly) {
  EXPECT_EQ(createCommand(kTunnel, "198.51.100.2"),
            "ip tunnel add gre1 mode gre remote 203.0.113.7 local 198.51.100.2 ttl 64");
  EXPECT_EQ(linkUpCommand(kTunnel), "ip link set gre1 up");
  EXPECT_EQ(addressCommand(kTunnel), "ip addr add 10.9.9.1/255.255.255.252 dev gre1");
  EXPECT_EQ(routeCommand(kTunnel, "192.168.50.0/24"), "ip route add 192.168.50.0/24 dev gre1");
}

TEST(GreCommands, keepTheirBlanksWhereATextIsEmpty) {
  const GreTunnel empty{};
  EXPECT_EQ(createCommand(empty, ""), "ip tunnel add  mode gre remote  local  ttl ");
  EXPECT_EQ(linkUpCommand(empty), "ip link set  up");
  EXPECT_EQ(addressCommand(empty), "ip addr add / dev ");
  EXPECT_EQ(routeCommand(empty, "/"), "ip route add / dev ");
}

TEST(GreCommands, nameARemoteHostWithoutAddressByNothing) {
  GreTunnel tunnel = kTunnel;
  tunnel.remoteIp.clear();
  EXPECT_EQ(createCommand(tunnel, "198.51.100.2"), "ip tunnel add gre1 mode gre remote  local 198.51.100.2 ttl 64");
}

TEST(GreCommands, quoteNothing) {
  GreTunnel tunnel = kTunnel;
  tunnel.name = "a$b;c";
  EXPECT_EQ(linkUpCommand(tunnel), "ip link set a$b;c up");
}

TEST(ReadGreTunnel, takesTheMembersOfTheRecord) {
  const GreTunnel tunnel = readGreTunnel(jsonOf(
      R"({"name":"gre1","remoteIp":"203.0.113.7","tunnelIp":"10.9.9.1","tunnelMask":"255.255.255.252","ttl":64})"));
  EXPECT_EQ(tunnel.name, "gre1");
  EXPECT_EQ(tunnel.remoteIp, "203.0.113.7");
  EXPECT_EQ(tunnel.tunnelIp, "10.9.9.1");
  EXPECT_EQ(tunnel.tunnelMask, "255.255.255.252");
  EXPECT_EQ(tunnel.ttl, "64");
}

TEST(ReadGreTunnel, takesAbsentMembersForEmptyTexts) {
  for (const char* record : {"{}", "null", R"({"name":null,"remoteIp":null,"tunnelIp":null,"tunnelMask":null})"}) {
    const GreTunnel tunnel = readGreTunnel(jsonOf(record));
    EXPECT_EQ(tunnel.name + tunnel.remoteIp + tunnel.tunnelIp + tunnel.tunnelMask, "");
    EXPECT_EQ(tunnel.ttl, "0");
  }
}

TEST(ReadGreTunnel, takesTheTtlAsTextOrNumber) {
  const struct {
    const char* record;
    const char* ttl;
  } rows[] = {
      {R"({"ttl":"255"})", "255"}, {R"({"ttl":255})", "255"},     {R"({"ttl":"inherit"})", "inherit"},
      {R"({"ttl":""})", ""},       {R"({"ttl":0})", "0"},         {"{}", "0"},
      {R"({"ttl":null})", "0"},    {R"({"ttl":64.9})", "64"},     {R"({"ttl":true})", "1"},
      {R"({"ttl":-1})", "-1"},     {R"({"ttl":" 64 "})", " 64 "},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.record);
    EXPECT_EQ(readGreTunnel(jsonOf(row.record)).ttl, row.ttl);
  }
}

TEST(ReadGreTunnel, takesTheMaskAsWritten) {
  EXPECT_EQ(addressCommand(readGreTunnel(jsonOf(R"({"name":"gre1","tunnelIp":"10.0.0.1","tunnelMask":"30"})"))),
            "ip addr add 10.0.0.1/30 dev gre1");
  EXPECT_EQ(addressCommand(readGreTunnel(jsonOf(R"({"name":"gre1","tunnelIp":"10.0.0.1","tunnelMask":30})"))),
            "ip addr add 10.0.0.1/30 dev gre1");
}

TEST(ReadGreTunnel, throwsForMembersThatCannotBeConverted) {
  for (const char* record : {"[]", "5", R"("text")", R"({"name":[]})", R"({"remoteIp":{}})", R"({"tunnelIp":[]})",
                             R"({"tunnelMask":{}})", R"({"ttl":[]})", R"({"ttl":{}})", R"({"ttl":1e10})"}) {
    EXPECT_THROW(readGreTunnel(jsonOf(record)), Json::LogicError) << record;
  }
}

class CreateGreTunnel : public testing::Test {
 protected:
  CreateGreTunnel() { currentWanIp = "198.51.100.2"; }
  ~CreateGreTunnel() override { currentWanIp.clear(); }

  const StandIn ip_{"ip", "", 1};  // no command succeeds, and none of the others minds
};

const char* const kCreate = "ip|tunnel|add|gre1|mode|gre|remote|203.0.113.7|local|198.51.100.2|ttl|64";
const char* const kLinkUp = "ip|link|set|gre1|up";
const char* const kAddress = "ip|addr|add|10.9.9.1/255.255.255.252|dev|gre1";

TEST_F(CreateGreTunnel, runsTheCommandsInTheirOrder) {
  const CapturedLog log(kTrace);
  EXPECT_TRUE(createGreTunnel(jsonOf(
      R"({"name":"gre1","remoteIp":"203.0.113.7","tunnelIp":"10.9.9.1","tunnelMask":"255.255.255.252","ttl":64,
          "routes":[{"ip":"192.168.50.0","mask":24},{"ip":"10.0.0.0","mask":"255.255.0.0"}]})")));
  EXPECT_THAT(ip_.calls(), ElementsAre(kCreate, kLinkUp, kAddress, "ip|route|add|192.168.50.0/24|dev|gre1",
                                       "ip|route|add|10.0.0.0/255.255.0.0|dev|gre1"));
  EXPECT_EQ(log.text(),
            "INFO [TUNNEL_MNGR] CREATING GRE TUNNEL: gre1 local[198.51.100.2] remote[203.0.113.7] ttl[64]\n"
            "TRACE [TUNNEL_MNGR] ip tunnel add gre1 mode gre remote 203.0.113.7 local 198.51.100.2 ttl 64\n"
            "TRACE [TUNNEL_MNGR] ip link set gre1 up\n"
            "TRACE [TUNNEL_MNGR] ip addr add 10.9.9.1/255.255.255.252 dev gre1\n"
            "INFO [TUNNEL_MNGR] ADDING ROUTE: 192.168.50.0/24 => gre1\n"
            "TRACE [TUNNEL_MNGR] ip route add 192.168.50.0/24 dev gre1\n"
            "INFO [TUNNEL_MNGR] ADDING ROUTE: 10.0.0.0/255.255.0.0 => gre1\n"
            "TRACE [TUNNEL_MNGR] ip route add 10.0.0.0/255.255.0.0 dev gre1\n");
}

TEST_F(CreateGreTunnel, setsAnAddressOnlyWithAMask) {
  const struct {
    const char* members;
    std::vector<std::string> address;
  } rows[] = {
      {R"("tunnelIp":"10.9.9.1","tunnelMask":"255.255.255.252")", {kAddress}},
      {R"("tunnelIp":"","tunnelMask":"255.255.255.252")", {}},
      {R"("tunnelIp":"10.9.9.1","tunnelMask":"")", {}},
      {R"("tunnelIp":"10.9.9.1")", {}},
      {R"("tunnelMask":"255.255.255.252")", {}},
      {R"("tunnelIp":"","tunnelMask":"")", {}},
  };
  std::vector<std::string> expected;
  for (const auto& row : rows) {
    createGreTunnel(jsonOf(std::string(R"({"name":"gre1","remoteIp":"203.0.113.7","ttl":64,)") + row.members +
                           R"(,"routes":[{"ip":"10.0.0.0","mask":"8"}]})"));
    expected.insert(expected.end(), {kCreate, kLinkUp});
    expected.insert(expected.end(), row.address.begin(), row.address.end());
    expected.emplace_back("ip|route|add|10.0.0.0/8|dev|gre1");
  }
  EXPECT_THAT(ip_.calls(), ElementsAreArray(expected));
}

TEST_F(CreateGreTunnel, skipsRoutesThatLackAMember) {
  const struct {
    const char* routes;
    std::vector<std::string> destinations;
  } rows[] = {
      {R"([])", {}},
      {R"(null)", {}},
      {R"({})", {}},
      {R"("text")", {}},
      {R"([{}])", {}},
      {R"([null])", {}},
      {R"([{"ip":"10.0.0.0"}])", {}},
      {R"([{"mask":24}])", {}},
      {R"([{"ip":"10.0.0.0"},{"ip":"10.1.0.0","mask":16},{"mask":8}])", {"10.1.0.0/16"}},
      {R"([{"ip":"10.0.0.0","mask":""}])", {"10.0.0.0/"}},
      {R"([{"ip":"","mask":""}])", {"/"}},
      {R"([{"ip":"10.0.0.0","mask":0}])", {"10.0.0.0/0"}},
      {R"([{"ip":null,"mask":8}])", {"/8"}},
      {R"([{"ip":"10.0.0.0","mask":8},{"ip":"10.0.0.0","mask":8}])", {"10.0.0.0/8", "10.0.0.0/8"}},
  };
  std::vector<std::string> expected;
  for (const auto& row : rows) {
    EXPECT_TRUE(createGreTunnel(
        jsonOf(std::string(R"({"name":"gre1","remoteIp":"203.0.113.7","ttl":64,"routes":)") + row.routes + "}")))
        << row.routes;
    expected.insert(expected.end(), {kCreate, kLinkUp});
    for (const std::string& destination : row.destinations) {
      expected.push_back("ip|route|add|" + destination + "|dev|gre1");
    }
  }
  EXPECT_THAT(ip_.calls(), ElementsAreArray(expected));
}

TEST_F(CreateGreTunnel, addsARouteWithoutMaskAfterTheWarning) {
  const CapturedLog log(kInfo);
  createGreTunnel(
      jsonOf(R"({"name":"gre1","remoteIp":"203.0.113.7","ttl":64,"routes":[{"ip":"10.0.0.0","mask":null}]})"));
  EXPECT_THAT(ip_.calls(), ElementsAre(kCreate, kLinkUp, "ip|route|add|10.0.0.0/|dev|gre1"));
  EXPECT_THAT(log.text(), HasSubstr("WARNING [TUNNEL_MNGR] Unable to parse number *null\n*\n"
                                    "INFO [TUNNEL_MNGR] ADDING ROUTE: 10.0.0.0/ => gre1\n"));
}

TEST_F(CreateGreTunnel, throwsForAWrongRouteAfterTheCommandsBefore) {
  EXPECT_THROW(createGreTunnel(jsonOf(R"({"name":"gre1","remoteIp":"203.0.113.7","ttl":64,
                                          "routes":[{"ip":"10.0.0.0","mask":8},5]})")),
               Json::LogicError);
  EXPECT_THAT(ip_.calls(), ElementsAre(kCreate, kLinkUp, "ip|route|add|10.0.0.0/8|dev|gre1"));
}

}  // namespace
