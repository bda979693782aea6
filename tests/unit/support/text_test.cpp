#include "support/text.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <string_view>
#include <vector>

namespace {

using Pieces = std::vector<std::string>;
using ZEL::Text;

TEST(TextSplit, splitsAtEveryDelimiterUpToTheLimit) {
  const struct {
    const char* text;
    const char* delimiter;
    int limit;
    Pieces pieces;
  } rows[] = {
      {"a,b,c", ",", 0, {"a", "b", "c"}},
      {"abc", ",", 0, {"abc"}},
      {"", ",", 0, {""}},
      {",", ",", 0, {"", ""}},
      {",a,,b,", ",", 0, {"", "a", "", "b", ""}},
      {"a::b:c::d", "::", 0, {"a", "b:c", "d"}},
      {":::", "::", 0, {"", ":"}},
      {"line 1\nline 2\n", "\n", 0, {"line 1", "line 2", ""}},
      {"abc", "", 0, {"abc"}},
      {"abc", "longer than the text", 0, {"abc"}},
      {"a,b,c", ",", 1, {"a,b,c"}},
      {"a,b,c", ",", 2, {"a", "b,c"}},
      {"a,b,c", ",", 3, {"a", "b", "c"}},
      {"a,b,c", ",", 4, {"a", "b", "c"}},
      {"a,b,c", ",", -1, {"a", "b", "c"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << '"' << row.text << "\" at \"" << row.delimiter << "\", limit " << row.limit);
    EXPECT_EQ(Text::split(row.text, row.delimiter, row.limit), row.pieces);
  }
}

TEST(TextSplit, keepsNulBytes) {
  const std::string text("a\0b,c", 5);
  EXPECT_THAT(Text::split(text, ",", 0), testing::ElementsAre(text.substr(0, 3), "c"));
}

TEST(TextWords, liesBetweenWhiteSpace) {
  EXPECT_EQ(Text::words(""), Pieces());
  EXPECT_EQ(Text::words(" \t\r\n\v\f"), Pieces());
  EXPECT_EQ(Text::words("a"), Pieces({"a"}));
  EXPECT_EQ(Text::words("  a, bc\t\n d\v\fe\r"), Pieces({"a,", "bc", "d", "e"}));
}

TEST(TextTrim, takesWhiteSpaceFromBothEnds) {
  const struct {
    const char* text;
    const char* trimmed;
  } rows[] = {
      {"", ""},
      {" ", ""},
      {" \t\r\n\v\f", ""},
      {"a", "a"},
      {"  a b  ", "a b"},
      {"a\n", "a"},
      {"\r\n 4711 \r\n", "4711"},
      {"\xC2\xA0"
       "a",
       "\xC2\xA0"
       "a"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(Text::trim(row.text), row.trimmed);
  }
}

TEST(TextTrim, takesOneCharacterFromBothEnds) {
  const struct {
    const char* text;
    unsigned char character;
    const char* trimmed;
  } rows[] = {
      {"gre1:", ':', "gre1"},
      {":gre1", ':', "gre1"},
      {"::a:b::", ':', "a:b"},
      {":::", ':', ""},
      {"", ':', ""},
      {"gre1", ':', "gre1"},
      {" a ", ':', " a "},
      {"\xFF"
       "a\xFF",
       0xFF, "a"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(Text::trim(row.text, row.character), row.trimmed);
  }
}

TEST(TextParse, readsWholeDecimalNumbers) {
  const struct {
    const char* text;
    int value;
  } rows[] = {
      {"0", 0},
      {"-0", 0},
      {"5", 5},
      {"-5", -5},
      {"100", 100},
      {"007", 7},
      {"2147483647", INT_MAX},
      {"-2147483648", INT_MIN},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    int value = 12345;
    EXPECT_TRUE(Text::parse(value, row.text));
    EXPECT_EQ(value, row.value);
  }
}

TEST(TextParse, refusesEverythingElseAndLeavesTheValue) {
  const char* const texts[] = {"",     " ",   "-",   "--5",        "abc",         "5x",
                               "x5",   "5 ",  " 5",  "5\n",        "1.0",         "1e3",
                               "0x10", "5 6", "1,0", "2147483648", "-2147483649", "99999999999999999999",
                               "+-5"};
  for (const char* text : texts) {
    SCOPED_TRACE(text);
    int value = 12345;
    EXPECT_FALSE(Text::parse(value, text));
    EXPECT_EQ(value, 12345);
  }
}

TEST(TextParse, refusesANumberBeforeANulByte) {
  int value = 12345;
  EXPECT_FALSE(Text::parse(value, std::string("5\0", 2)));
  EXPECT_EQ(value, 12345);
}

TEST(TextFormat, writesDecimals) {
  const struct {
    int value;
    const char* text;
  } rows[] = {{0, "0"}, {64, "64"}, {-1, "-1"}, {INT_MAX, "2147483647"}, {INT_MIN, "-2147483648"}};
  for (const auto& row : rows) EXPECT_EQ(Text::format(row.value), row.text);
}

TEST(TextReplace, replacesEveryOccurrence) {
  const struct {
    const char* text;
    const char* from;
    const char* to;
    const char* result;
  } rows[] = {
      {"My Tunnel 1", " ", "_", "My_Tunnel_1"},
      {"  ", " ", "_", "__"},
      {"abc", " ", "_", "abc"},
      {"", " ", "_", ""},
      {"aaa", "aa", "b", "ba"},
      {"aaaa", "aa", "a", "aa"},
      {"a.b.c", ".", "", "abc"},
      {"a.b", ".", "..", "a..b"},
      {"abc", "", "x", "abc"},
      {"a b", "a b", "", ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << '"' << row.text << "\": \"" << row.from << "\" to \"" << row.to << '"');
    EXPECT_EQ(Text::replace(row.text, row.from, row.to), row.result);
  }
}

TEST(TextJoined, putsPiecesInARow) {
  EXPECT_EQ(Text::joined({}), "");
  EXPECT_EQ(Text::joined({"", ""}), "");
  EXPECT_EQ(Text::joined({"a", std::string("b"), std::string_view("cd", 1), "\n"}), "abc\n");
  EXPECT_EQ(Text::joined({std::string_view("a\0b", 3), "c"}), std::string("a\0bc", 4));
}

TEST(TextBeginsWith, comparesTheFirstCharacters) {
  EXPECT_TRUE(Text::beginsWith("conn one", "conn "));
  EXPECT_TRUE(Text::beginsWith("conn", "conn"));
  EXPECT_TRUE(Text::beginsWith("", ""));
  EXPECT_FALSE(Text::beginsWith("con", "conn"));
  EXPECT_FALSE(Text::beginsWith("a conn", "conn"));
}

}  // namespace
