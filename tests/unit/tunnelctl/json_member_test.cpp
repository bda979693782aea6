#include "tunnelctl/json_member.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/unit/harness/json_document.h"

namespace {

TEST(MemberOf, isNullWhereThereIsNone) {
  EXPECT_EQ(memberOf(jsonOf(R"({"a": 5})"), "a").asInt(), 5);
  for (const char* text : {"{}", "[]", "5", "null", R"("text")"})
    EXPECT_TRUE(memberOf(jsonOf(text), "a").isNull()) << text;
}

TEST(TextMember, isATextOrEmpty) {
  EXPECT_EQ(textMember(jsonOf(R"({"a": "b"})"), "a"), "b");
  EXPECT_EQ(textMember(jsonOf(R"({"a": 5})"), "a"), "");
}

TEST(CountMember, isNeverNegative) {
  EXPECT_EQ(countMember(jsonOf(R"({"a": 18446744073709551615})"), "a"), 18446744073709551615U);
  for (const char* value : {"-1", "1.5", "\"1\"", "null", "1e30"})
    EXPECT_FALSE(countMember(jsonOf(std::string(R"({"a": )") + value + "}"), "a").has_value()) << value;
}

TEST(ParseArray, isNullForAnythingElse) {
  EXPECT_EQ(parseArray("[1, 2]").size(), 2U);
  EXPECT_TRUE(parseArray("[]").isArray());
  for (const std::string& text : {std::string("{}"), std::string("[1,]"), std::string(), std::string(1002, '[')})
    EXPECT_TRUE(parseArray(text).isNull()) << text;
}

}  // namespace
