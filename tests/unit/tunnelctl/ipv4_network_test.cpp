#include "tunnelctl/ipv4_network.h"

#include <gtest/gtest.h>

#include <string>

namespace {

/// As `textOf` shows it, or "none".
std::string shown(const std::optional<Ipv4Network>& network) {
  return network ? textOf(*network) : "none";
}

TEST(ParseNetwork, readsTheTextsOfIp) {
  const struct {
    std::string text, network;
  } rows[] = {{"192.0.2.0/24", "192.0.2.0/24"},
              {"192.0.2.7/24", "192.0.2.7/24"},
              {"192.0.2.7", "192.0.2.7/32"},
              {"default", "0.0.0.0/0"},
              {"255.255.255.255/0", "255.255.255.255/0"},
              {"192.0.2.0/33", "none"},
              {"192.0.2.0/-1", "none"},
              {"192.0.2.0/", "none"},
              {"192.0.2.0/24/24", "none"},
              {"192.0.2", "none"},
              {"192.0.2.256", "none"},
              {"fe80::/64", "none"},
              {"all", "none"},
              {"", "none"}};
  for (const auto& row : rows) EXPECT_EQ(shown(parseNetwork(row.text)), row.network) << row.text;
}

TEST(ParseNetwork, takesAMaskInBothForms) {
  const struct {
    std::string address, mask, network;
  } rows[] = {{"10.9.9.1", "30", "10.9.9.1/30"},
              {"10.9.9.1", "255.255.255.252", "10.9.9.1/30"},
              {"10.9.9.1", "0.0.0.0", "10.9.9.1/0"},
              {"10.9.9.1", "", "none"},
              {"", "30", "none"},
              {"10.9.9.1", "thirty", "none"}};
  for (const auto& row : rows) EXPECT_EQ(shown(parseNetwork(row.address, row.mask)), row.network) << row.mask;
}

TEST(Ipv4Network, isEqualWithTheSameAddressAndPrefix) {
  EXPECT_TRUE(parseNetwork("10.0.0.1/8") == parseNetwork("10.0.0.1", "255.0.0.0"));
  EXPECT_FALSE(parseNetwork("10.0.0.1/8") == parseNetwork("10.0.0.2/8"));
  EXPECT_FALSE(parseNetwork("10.0.0.1/8") == parseNetwork("10.0.0.1/9"));
}

TEST(Contains, comparesTheBitsOfTheNetwork) {
  const struct {
    std::string network, address;
    bool contained;
  } rows[] = {{"default", "203.0.113.7", true},        {"203.0.113.0/24", "203.0.113.7", true},
              {"203.0.113.9/24", "203.0.113.7", true}, {"203.0.112.0/24", "203.0.113.7", false},
              {"203.0.113.7/32", "203.0.113.7", true}, {"203.0.113.6", "203.0.113.7", false},
              {"128.0.0.0/1", "203.0.113.7", true},    {"0.0.0.0/1", "203.0.113.7", false}};
  for (const auto& row : rows)
    EXPECT_EQ(contains(*parseNetwork(row.network), *parseAddress(row.address)), row.contained) << row.network;
}

}  // namespace
