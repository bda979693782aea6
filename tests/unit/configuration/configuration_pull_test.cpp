#include "configuration/configuration_pull.h"

#include <gtest/gtest.h>

#include "tests/unit/harness/json_document.h"

namespace {

TEST(CheckPeriodMinutes, isCutTo16BitsAndNeverZero) {
  const struct {
    const char* checkPeriod;
    unsigned int minutes;
  } rows[] = {
      {"null", 1},  // an absent member
      {"0", 1},     {"1", 1},     {"5", 5},        {"65535", 65535},      {"65536", 1},
      {"65537", 1}, {"65538", 2}, {"70000", 4464}, {"4294967295", 65535}, {"4294901760", 1},
      {"5.9", 5},   {"0.5", 1},   {"true", 1},     {"false", 1},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.checkPeriod);
    EXPECT_EQ(checkPeriodMinutes(jsonOf(row.checkPeriod)), row.minutes);
  }
}

TEST(CheckPeriodMinutes, throwsForWhatIsNoPeriod) {
  for (const char* checkPeriod : {"-1", "-0.5", "4294967296", "1e10", R"("5")", R"("")", "[]", "{}", "[5]"}) {
    EXPECT_THROW(checkPeriodMinutes(jsonOf(checkPeriod)), Json::LogicError) << checkPeriod;
  }
}

}  // namespace
