#include "tunnelctl/check_addresses.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

TEST(ParseAddress, takesFourDecimalNumbersOnly) {
  EXPECT_EQ(parseAddress("1.2.3.4"), 0x01020304U);
  EXPECT_EQ(parseAddress("255.255.255.255"), 0xFFFFFFFFU);
  for (const char* text :
       {"", "1.2.3", "1.2.3.256", "01.2.3.4", "1.2.3.4 ", " 1.2.3.4", "1.2.3.4\n", "1.2.3.4/5", "::1", "a.b.c.d"})
    EXPECT_EQ(parseAddress(text), std::nullopt) << text;
  EXPECT_EQ(parseAddress(std::string_view("1.2.3.4\0", 8)), std::nullopt);
  EXPECT_EQ(parseAddress(std::string(1000, '1')), std::nullopt);
}

TEST(ParseMask, takesBothForms) {
  for (int prefix = 0; prefix <= 32; ++prefix) EXPECT_EQ(parseMask(std::to_string(prefix)), prefix);
  EXPECT_EQ(parseMask("0.0.0.0"), 0);
  EXPECT_EQ(parseMask("255.255.254.0"), 23);
  EXPECT_EQ(parseMask("255.255.255.255"), 32);
  for (const char* text :
       {"", "33", "-1", "-0", "00", "024", "24 ", "0x18", "255.0.255.0", "0.0.0.255", "/24", "99999999999"})
    EXPECT_EQ(parseMask(text), std::nullopt) << text;
}

TEST(IsHost, takesNamesAndAddresses) {
  const std::string label(63, 'x');
  for (const std::string& text :
       std::vector<std::string>{"a", "a.b", "a.b.", "203.0.113.7", "4u.net", "my_router-1", label, "1.2.3.a"})
    EXPECT_TRUE(isHost(text)) << text;
  for (const std::string& text :
       std::vector<std::string>{"", ".", "a..b", ".a", "a b", "10.1", "5", "1.2.3.4.", "1.2.3.256", "a.1",
                                "\xC3\xA9.net", "a/24", label + "x", "::1"})
    EXPECT_FALSE(isHost(text)) << text;
  EXPECT_TRUE(isHost(label + "." + label + "." + label + "." + std::string(61, 'x')));
  EXPECT_FALSE(isHost(label + "." + label + "." + label + "." + std::string(62, 'x')));
}

TEST(HasShellCharacter, knowsWhatTheShellTakesApart) {
  for (const char c : std::string("|&;<>()$`\\\"'*?[\n")) EXPECT_TRUE(hasShellCharacter(std::string("a") + c)) << c;
  for (const char* text : {"~a", "#a"}) EXPECT_TRUE(hasShellCharacter(text)) << text;
  for (const char* text : {"", "a~", "a#", "a b", "a=b", "a!b", "{a}", "a]", "a%b", "a\tb"})
    EXPECT_FALSE(hasShellCharacter(text)) << text;
}

TEST(IsIpv6Address, knowsThem) {
  EXPECT_TRUE(isIpv6Address("fd00::1"));
  EXPECT_TRUE(isIpv6Address("ffff:ffff:ffff:ffff:ffff:ffff:255.255.255.255"));
  EXPECT_FALSE(isIpv6Address("1.2.3.4"));
  EXPECT_FALSE(isIpv6Address("fd00::1/64"));
}

}  // namespace
