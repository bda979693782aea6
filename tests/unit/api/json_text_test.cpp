#include "api/json_text.h"

#include <gtest/gtest.h>
#include <json/value.h>

#include <climits>

#include "tests/unit/harness/captured_log.h"

namespace {

constexpr int kWarning = 25;

Json::Value arrayOf(const Json::Value& element) {
  Json::Value array(Json::arrayValue);
  array.append(element);
  return array;
}

Json::Value objectOf(const char* key, const Json::Value& member) {
  Json::Value object(Json::objectValue);
  object[key] = member;
  return object;
}

TEST(JsonToText, takesTextsAndNumbers) {
  const struct {
    Json::Value value;
    std::string text;
  } rows[] = {
      {"255.255.0.0", "255.255.0.0"},
      {"", ""},
      {" 24 ", " 24 "},
      {std::string("a\0b", 3), std::string("a\0b", 3)},
      {24, "24"},
      {0, "0"},
      {-1, "-1"},
      {INT_MAX, "2147483647"},
      {INT_MIN, "-2147483648"},
      {Json::UInt(24), "24"},
      {Json::Int64(24), "24"},
      {24.7, "24"},
      {-0.5, "0"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.value.toStyledString());
    const CapturedLog log(kWarning);
    EXPECT_EQ(jsonToText(row.value), row.text);
    EXPECT_EQ(log.text(), "");
  }
}

TEST(JsonToText, warnsOfEverythingElse) {
  const struct {
    Json::Value value;
    const char* shown;
  } rows[] = {
      {Json::Value(), "null\n"},
      {true, "true\n"},
      {false, "false\n"},
      {Json::Value(Json::arrayValue), "[]\n"},
      {Json::Value(Json::objectValue), "{}\n"},
      {arrayOf(24), "[\n\t24\n]\n"},
      {objectOf("mask", 24), "{\n\t\"mask\" : 24\n}\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.shown);
    const CapturedLog log(kWarning);
    EXPECT_EQ(jsonToText(row.value), "");
    EXPECT_EQ(log.text(), "WARNING [TUNNEL_MNGR] Unable to parse number *" + std::string(row.shown) + "*\n");
  }
}

TEST(JsonToText, warnsAtTheWarningLevelOnly) {
  const CapturedLog log(kWarning - 1);
  EXPECT_EQ(jsonToText(Json::Value()), "");
  EXPECT_EQ(log.text(), "");
}

TEST(JsonToText, throwsBeyondTheRangeOfAnInt) {
  const Json::Value values[] = {Json::Int64{INT_MAX} + 1, Json::Int64{INT_MIN} - 1, Json::UInt64{1} << 63, 1e10};
  for (const Json::Value& value : values) EXPECT_THROW(jsonToText(value), Json::LogicError) << value.toStyledString();
}

}  // namespace
