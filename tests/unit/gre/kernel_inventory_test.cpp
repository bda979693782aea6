#include "gre/kernel_inventory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/unit/harness/captured_log.h"
#include "tests/unit/harness/json_document.h"
#include "tests/unit/harness/stand_in.h"

namespace {

using testing::ElementsAre;

constexpr int kTrace = 100;

/// A tunnel as the inventory records it.
std::string tunnel(const std::string& name, const std::string& remoteIp, const std::string& localIp,
                   const std::string& ttl) {
  return R"({"localIp":")" + localIp + R"(","name":")" + name + R"(","remoteIp":")" + remoteIp + R"(","ttl":")" + ttl +
         R"("})";
}

TEST(ParseKernelTunnels, readsTheGreTunnels) {
  const std::string gre1 = tunnel("gre1", "10.1.1.1", "10.2.2.2", "255");
  const struct {
    const char* what;
    std::string output;
    std::vector<std::string> tunnels;
  } rows[] = {
      {"nothing", "", {}},
      {"a tunnel", "gre1: gre/ip  remote 10.1.1.1  local 10.2.2.2  ttl 255", {gre1}},
      {"a line end", "gre1: gre/ip  remote 10.1.1.1  local 10.2.2.2  ttl 255\n", {gre1}},
      {"a carriage return", "gre1: gre/ip  remote 10.1.1.1  local 10.2.2.2  ttl 255\r\n", {gre1}},
      {"tabs and more blanks", " gre1:\tgre/ip \t remote\t10.1.1.1 local  10.2.2.2\tttl   255 \t\n", {gre1}},
      {"further words", "gre1: gre/ip  remote 10.1.1.1  local 10.2.2.2  ttl 255  key 5  tos inherit\n", {gre1}},
      {"other keywords", "gre1: gre/ip  x 10.1.1.1  y 10.2.2.2  z 255\n", {gre1}},
      {"texts that are no addresses",
       "gre1: gre/ip  remote any  local any  ttl inherit  nopmtudisc\n",
       {tunnel("gre1", "any", "any", "inherit")}},
      {"no colon", "gre1 gre/ip  remote 10.1.1.1  local 10.2.2.2  ttl 255\n", {gre1}},
      {"many colons", "::gre1:: gre/ip  remote 10.1.1.1  local 10.2.2.2  ttl 255\n", {gre1}},
      {"a colon inside",
       "wan:1: gre/ip  remote 10.1.1.1  local 10.2.2.2  ttl 255\n",
       {tunnel("wan:1", "10.1.1.1", "10.2.2.2", "255")}},
      {"several tunnels in their order",
       "gre2: gre/ip  remote 10.1.1.3  local 10.2.2.2  ttl 64\n"
       "gre1: gre/ip  remote 10.1.1.1  local 10.2.2.2  ttl 255\n",
       {tunnel("gre2", "10.1.1.3", "10.2.2.2", "64"), gre1}},
      {"the kernel's own devices",
       "tunl0: any/ip  remote any  local any  ttl inherit  nopmtudisc\n"
       "gre0: gre/ip  remote any  local any  ttl inherit  nopmtudisc\n"
       "tunl0: gre/ip  remote any  local any  ttl inherit  nopmtudisc\n",
       {}},
      {"names that only begin like them",
       "tunl0x: gre/ip  remote 10.1.1.1  local 10.2.2.2  ttl 1\n"
       "gre00: gre/ip  remote 10.1.1.1  local 10.2.2.2  ttl 2\n"
       "xgre0: gre/ip  remote 10.1.1.1  local 10.2.2.2  ttl 3\n"
       "GRE0: gre/ip  remote 10.1.1.1  local 10.2.2.2  ttl 4\n",
       {tunnel("tunl0x", "10.1.1.1", "10.2.2.2", "1"), tunnel("gre00", "10.1.1.1", "10.2.2.2", "2"),
        tunnel("xgre0", "10.1.1.1", "10.2.2.2", "3"), tunnel("GRE0", "10.1.1.1", "10.2.2.2", "4")}},
      {"other modes",
       "ipip1: ip/ip  remote 10.1.1.1  local 10.2.2.2  ttl 64\n"
       "sit1: ipv6/ip  remote 10.1.1.1  local 10.2.2.2  ttl 64\n"
       "gre6: gre/ipv6  remote 2001:db8::1  local 2001:db8::2  ttl 64\n"
       "gre7: GRE/IP  remote 10.1.1.1  local 10.2.2.2  ttl 64\n"
       "gre8: gre/ip,  remote 10.1.1.1  local 10.2.2.2  ttl 64\n",
       {}},
      {"a line of nine characters", "g: gre/ip\n", {}},
      {"a line of ten characters", "g1: gre/ip\n", {tunnel("g1", "", "", "")}},
      {"garbage", "\x01\x02 no tunnel here at all, whatever this is\n\n\n \xFF\xFE\n", {}},
      {"empty lines",
       "\n\n"
       "gre1: gre/ip  remote 10.1.1.1  local 10.2.2.2  ttl 255\n"
       "\n",
       {gre1}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    std::vector<std::string> tunnels;
    for (const Json::Value& found : parseKernelTunnels(row.output)) tunnels.push_back(textOf(found));
    EXPECT_EQ(tunnels, row.tunnels);
  }
}

TEST(ParseKernelTunnels, isAnArrayAlsoWithoutTunnels) {
  EXPECT_EQ(textOf(parseKernelTunnels("")), "[]");
}

TEST(ParseKernelTunnels, keepsWhatAShorterLineLacks) {
  const std::string first = "gre1: gre/ip  remote 10.1.1.1  local 10.2.2.2  ttl 255\n";
  const struct {
    const char* line;
    std::string tunnel;
  } rows[] = {
      {"gre2: gre/ip  remote 10.3.3.3  local 10.4.4.4  ttl", tunnel("gre2", "10.3.3.3", "10.4.4.4", "255")},
      {"gre2: gre/ip  remote 10.3.3.3  local", tunnel("gre2", "10.3.3.3", "10.2.2.2", "255")},
      {"gre2: gre/ip  remote", tunnel("gre2", "10.1.1.1", "10.2.2.2", "255")},
      {"gre2: gre/ip", tunnel("gre2", "10.1.1.1", "10.2.2.2", "255")},
      {"longer-name-of-a-tunnel:", tunnel("longer-name-of-a-tunnel", "10.1.1.1", "10.2.2.2", "255")},
      {"          ", tunnel("gre1", "10.1.1.1", "10.2.2.2", "255")},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.line);
    const Json::Value tunnels = parseKernelTunnels(first + row.line + "\n");
    ASSERT_EQ(tunnels.size(), 2U);
    EXPECT_EQ(textOf(tunnels[1]), row.tunnel);
  }
}

TEST(ParseKernelTunnels, keepsTheWordsAlsoOfLinesThatItLeavesOut) {
  const Json::Value tunnels = parseKernelTunnels(
      "ipip1: ip/ip  remote 10.3.3.3  local 10.4.4.4  ttl 7\n"
      "gre1: gre/ip  remote\n");
  ASSERT_EQ(tunnels.size(), 1U);
  EXPECT_EQ(textOf(tunnels[0]), tunnel("gre1", "10.3.3.3", "10.4.4.4", "7"));
}

TEST(ParseKernelTunnels, keepsNothingOfTheOutputBefore) {
  parseKernelTunnels("gre1: gre/ip  remote 10.1.1.1  local 10.2.2.2  ttl 255\n");
  EXPECT_EQ(textOf(parseKernelTunnels("gre2: gre/ip  remote\n")[0]), tunnel("gre2", "", "", ""));
}

TEST(ParseCurrentGreTunnels, runsTheCommandAndReadsItsOutput) {
  const StandIn ip("ip",
                   "gre0: gre/ip  remote any  local any  ttl inherit\n"
                   "short\n"
                   "gre1: gre/ip  remote 10.1.1.1  local 10.2.2.2  ttl 255\n",
                   0);
  const CapturedLog log(kTrace);
  Json::Value tunnels = jsonOf(R"(["old"])");
  std::vector<std::string> names{"before"};
  EXPECT_TRUE(parseCurrentGreTunnels(tunnels, names));
  EXPECT_THAT(ip.calls(), ElementsAre("ip|tunnel"));
  EXPECT_EQ(textOf(tunnels), "[" + tunnel("gre1", "10.1.1.1", "10.2.2.2", "255") + "]");
  EXPECT_THAT(names, ElementsAre("before", "gre1"));
  EXPECT_EQ(log.text(),
            "TRACE [TUNNEL_MNGR] -- PARSING CURRENT GRE TUNNELS --\n"
            "TRACE [TUNNEL_MNGR] LINE: [gre0: gre/ip  remote any  local any  ttl inherit]\n"
            "TRACE [TUNNEL_MNGR] LINE: [gre1: gre/ip  remote 10.1.1.1  local 10.2.2.2  ttl 255]\n");
}

TEST(ParseCurrentGreTunnels, succeedsWithoutTunnels) {
  const StandIn ip("ip", "", 0);
  Json::Value tunnels = jsonOf(R"(["old"])");
  std::vector<std::string> names;
  EXPECT_TRUE(parseCurrentGreTunnels(tunnels, names));
  EXPECT_EQ(textOf(tunnels), "[]");
  EXPECT_TRUE(names.empty());
}

TEST(ParseCurrentGreTunnels, leavesEverythingAsItIsWhenTheCommandFails) {
  const StandIn ip("ip", "gre1: gre/ip  remote 10.1.1.1  local 10.2.2.2  ttl 255\n", 3);
  const CapturedLog log(kTrace);
  Json::Value tunnels = jsonOf(R"(["old"])");
  std::vector<std::string> names{"before"};
  EXPECT_FALSE(parseCurrentGreTunnels(tunnels, names));
  EXPECT_EQ(textOf(tunnels), R"(["old"])");
  EXPECT_THAT(names, ElementsAre("before"));
  EXPECT_EQ(log.text(), "ERROR [TUNNEL_MNGR] error executing ip tunnel command [3]\n");
}

}  // namespace
