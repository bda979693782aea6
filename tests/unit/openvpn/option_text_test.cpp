#include "openvpn/option_text.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstddef>
#include <string>
#include <vector>

#include "tests/unit/harness/waiting.h"

namespace {

/// A text of all the bytes of a literal, embedded NULs included.
template <std::size_t size>
std::string bytes(const char (&literal)[size]) {
  return std::string(literal, size - 1);
}

struct Reading {
  std::string text;
  std::string option;
  bool found;
  std::string value;
};

TEST(GetConfigOption, ReadsTheFirstLineOfTheOption) {
  const std::vector<Reading> table{
      {"", "dev", false, ""},
      {"\n\n", "dev", false, ""},
      {"dev tun\n", "dev", true, "tun"},
      {"dev tun", "dev", true, "tun"},
      {"dev\n", "dev", true, ""},
      {"<ca>\nMIIB\n</ca>\n", "<ca>", true, ""},
      {"</ca>\n", "<ca>", false, ""},
      {"proto udp\ndev tun\ndev tap\n", "dev", true, "tun"},
      {"dev tun\r\nverb 3\r\n", "dev", true, "tun"},
      {"ifconfig  10.8.0.1 \t 10.8.0.2  \n", "ifconfig", true, "10.8.0.1 10.8.0.2"},
      {"ifconfig 1 2 3 4 5", "ifconfig", true, "1 2 3 4 5"},
      {"\n \t \ndev tun", "dev", true, "tun"},
      {"#dev tun\n;dev tun\n", "dev", false, ""},
      {"# dev tun\n", "dev", false, ""},
      {"device tun\n", "dev", false, ""},
      {"de\nv tun\n", "dev", false, ""},
      {"Dev tun\n", "dev", false, ""},
      {"\"dev\" tun\n", "dev", false, ""},
      {"proto dev tun\n", "dev", false, ""},
      {"client-config-dir /etc/ccd and more\n", "client-config-dir", true, "/etc/ccd and more"},
      {bytes("dev\0 tun\n"), "dev", false, ""},
      {bytes("dev tu\0n\n"), "dev", true, bytes("tu\0n")},
      {bytes("proto \0 udp\ndev tun\n"), "dev", true, "tun"},
      {"dev t\xC3\xBCn\xA0\x85\n", "dev", true, "t\xC3\xBCn\xA0\x85"},
  };
  for (const Reading& row : table) {
    std::string value = "left over";
    EXPECT_EQ(getConfigOption(row.text, row.option, value), row.found) << row.text;
    EXPECT_EQ(value, row.value) << row.text;
  }
}

TEST(GetConfigOption, SeparatesWordsAtEveryKindOfWhiteSpace) {
  for (const char space : {' ', '\t', '\v', '\f', '\r'}) {
    std::string value;
    const std::string gap{space};
    EXPECT_TRUE(getConfigOption(gap + "dev" + gap + gap + "tun" + gap + "x" + gap, "dev", value)) << int{space};
    EXPECT_EQ(value, "tun x") << int{space};
  }
}

TEST(GetConfigOption, TakesNoOtherByteForWhiteSpace) {
  for (int byte = 0; byte <= UCHAR_MAX; ++byte) {
    const char c = static_cast<char>(byte);
    if (std::string(" \t\n\v\f\r").find(c) != std::string::npos) continue;
    std::string value;
    EXPECT_FALSE(getConfigOption(std::string("dev") + c + "tun", "dev", value)) << byte;
    EXPECT_TRUE(getConfigOption(std::string("dev a") + c + "b", "dev", value)) << byte;
    EXPECT_EQ(value, std::string("a") + c + "b") << byte;
  }
}

struct Rewriting {
  std::string before;
  std::string option;
  std::string value;
  std::string after;
};

TEST(SetConfigOption, RewritesEveryLineOfTheOptionAndNothingElse) {
  const std::vector<Rewriting> table{
      {"", "verb", "2", "verb 2\n"},
      {"\n", "verb", "2", "\nverb 2\n"},
      {"dev tun\n", "verb", "2", "dev tun\nverb 2\n"},
      {"dev tun", "verb", "2", "dev tun\nverb 2\n"},
      {"verb 4\n", "verb", "7", "verb 7\n"},
      {"verb 4", "verb", "7", "verb 7\n"},
      {"verb\n", "verb", "7", "verb 7\n"},
      {"verb    4   # loud\n", "verb", "7", "verb 7\n"},
      {"  \t verb 4\nproto udp\n", "verb", "7", "  \t verb 7\nproto udp\n"},
      {"verb 1\ndev tun\n\tverb 2\nverb 3", "verb", "6", "verb 6\ndev tun\n\tverb 6\nverb 6\n"},
      {"\n\n  \ndev tun\n\n", "dev", "tunx", "\n\n  \ndev tunx\n\n"},
      {"proto udp\r\nverb 4\r\ndev tun\r\n", "verb", "7", "proto udp\r\nverb 7\ndev tun\r\n"},
      {"proto udp\r", "verb", "7", "proto udp\r\nverb 7\n"},
      {"\r verb 4\n", "verb", "7", "verb 7\n"},
      {" \v\tverb 4\n", "verb", "7", " verb 7\n"},
      {"\fverb\f4\n", "verb", "7", "verb 7\n"},
      {"#verb 4\n# verb 4\nverbose\n", "verb", "7", "#verb 4\n# verb 4\nverbose\nverb 7\n"},
      {"  dev \t tun  \n", "verb", "7", "  dev \t tun  \nverb 7\n"},
      {bytes("a\0b \0\nverb 4\0\n\0"), "verb", "7", bytes("a\0b \0\nverb 7\n\0\n")},
      {bytes("verb\0 4\n"), "verb", "7", bytes("verb\0 4\nverb 7\n")},
      {bytes("\0verb 4\n"), "verb", "7", bytes("\0verb 4\nverb 7\n")},
      {"dev tun\n", "dev", "", "dev \n"},
      {"\xFF\xFE\ndev tun\n", "dev", "tunx", "\xFF\xFE\ndev tunx\n"},
  };
  for (const Rewriting& row : table) {
    std::string text = row.before;
    setConfigOption(text, row.option, row.value);
    EXPECT_EQ(text, row.after) << row.before;
  }
}

TEST(SetConfigOption, ChangesNothingTheSecondTime) {
  std::string once = " verb 1\r\n\ndev tun";
  setConfigOption(once, "verb", "7");
  std::string twice = once;
  setConfigOption(twice, "verb", "7");
  EXPECT_EQ(twice, once);
}

struct Verb {
  unsigned int logLevel;
  const char* verb;
};

TEST(LogLevelToVerb, StepsAtItsBounds) {
  const std::vector<Verb> table{{0, "2"},  {1, "2"},   {9, "2"},  {10, "3"},         {19, "3"}, {20, "4"},
                                {29, "4"}, {30, "6"},  {39, "6"}, {40, "6"},         {49, "6"}, {50, "7"},
                                {51, "7"}, {100, "7"}, {55, "7"}, {4294967295U, "7"}};
  for (const Verb& row : table) EXPECT_EQ(logLevelToVerb(row.logLevel), row.verb) << row.logLevel;
}

struct Addresses {
  std::string arguments;
  std::string address;
};

TEST(PingAddressOf, TakesTheSecondWordOrTheOnlyOne) {
  const std::vector<Addresses> table{{"", ""},
                                     {" \t", ""},
                                     {"10.8.0.1", "10.8.0.1"},
                                     {"10.8.0.1 10.8.0.2", "10.8.0.2"},
                                     {"10.8.0.1 255.255.255.0", "255.255.255.0"},
                                     {"10.8.0.1 10.8.0.2 # far", "10.8.0.2"},
                                     {"10.8.0.1 #", "#"}};
  for (const Addresses& row : table) EXPECT_EQ(pingAddressOf(row.arguments), row.address) << row.arguments;
}

struct Name {
  std::string device;
  std::string tunnel;
  std::string interface;
};

TEST(InterfaceName, IsCutToWhatTheKernelTakes) {
  const std::vector<Name> table{{"tun", "office", "tunoffice"},
                                {"tun", "", "tun"},
                                {"", "office", "office"},
                                {"", "", ""},
                                {"tun", "twelvelettrs", "tuntwelvelettrs"},
                                {"tun", "thirteenlettr", "tunthirteenlett"},
                                {"tun", "averyveryverylongname", "tunaveryveryver"},
                                {"averyveryverylongdevice", "x", "averyveryverylo"},
                                {"tun0 extra", "a", "tun0 extraa"},
                                {"tun", bytes("a\0b"), bytes("tuna\0b")}};
  for (const Name& row : table) EXPECT_EQ(interfaceName(row.device, row.tunnel), row.interface) << row.tunnel;
}

/// Texts of a megabyte on which a step per line, per word or per blank that looked at every byte again would take
/// minutes.
TEST(OptionText, TakesAMegabyteOfAnyShapeInItsStride) {
  constexpr std::size_t kBytes = 1024 * 1024;
  std::string matching;
  std::string words = "x ";
  while (matching.size() < kBytes) matching += "x 1\n";
  while (words.size() < kBytes) words += "a ";
  const std::string indented = std::string(kBytes, '\t') + "x 1";
  for (std::string text : {matching, words, indented, std::string(kBytes, '\n')}) {
    std::string value;
    EXPECT_LT(timeOf([&text, &value] {
                getConfigOption(text, "x", value);
                getConfigOption(text, "absent", value);
                setConfigOption(text, "x", "2");
                EXPECT_TRUE(getConfigOption(text, "x", value));
              }),
              kDeadline);
    EXPECT_EQ(value, "2");
  }
}

}  // namespace
