#include "api/wan_list.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/unit/harness/json_document.h"

namespace {

struct Row {
  const char* wans;
  const char* address;
};

TEST(CurrentAddress, isThatOfTheFirstCurrentEntry) {
  const Row rows[] = {
      {R"([{"current":true,"ip":"198.51.100.2"}])", "198.51.100.2"},
      {R"([{"current":false,"ip":"10.0.0.1"},{"current":true,"ip":"10.0.0.2"}])", "10.0.0.2"},
      {R"([{"current":true,"ip":"10.0.0.1"},{"current":true,"ip":"10.0.0.2"}])", "10.0.0.1"},
      {R"([{"ip":"10.0.0.1"},{"current":true,"ip":"10.0.0.2"},{"current":true,"ip":"10.0.0.3"}])", "10.0.0.2"},
      {R"([{"current":1,"ip":"10.0.0.1"}])", "10.0.0.1"},
      {R"([{"current":0,"ip":"10.0.0.1"}])", ""},
      {R"([{"current":0.5,"ip":"10.0.0.1"}])", "10.0.0.1"},
      {R"([{"current":null,"ip":"10.0.0.1"}])", ""},
      {R"([{"current":false,"ip":"10.0.0.1"}])", ""},
      {R"([{"current":true,"ip":""},{"current":true,"ip":"10.0.0.2"}])", ""},
      {R"([{"current":true},{"current":true,"ip":"10.0.0.2"}])", ""},
      {"[]", ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.wans);
    EXPECT_EQ(currentAddress(jsonOf(row.wans)), row.address);
  }
}

TEST(CurrentAddress, takesWhatHasTheWrongShapeForAbsent) {
  const Row rows[] = {
      {"null", ""},
      {"true", ""},
      {"5", ""},
      {"5.5", ""},
      {R"("text")", ""},
      {"{}", ""},
      {R"({"current":true,"ip":"10.0.0.1"})", ""},
      {R"({"first":{"current":true,"ip":"10.0.0.1"}})", ""},
      {R"([null,true,5,5.5,"text",[],[[]],{},{"current":true,"ip":"10.0.0.1"}])", "10.0.0.1"},
      {R"([{"current":"true","ip":"10.0.0.1"}])", ""},
      {R"([{"current":"","ip":"10.0.0.1"},{"current":true,"ip":"10.0.0.2"}])", "10.0.0.2"},
      {R"([{"current":[],"ip":"10.0.0.1"}])", ""},
      {R"([{"current":[true],"ip":"10.0.0.1"}])", ""},
      {R"([{"current":{},"ip":"10.0.0.1"}])", ""},
      {R"([{"current":true,"ip":null}])", ""},
      {R"([{"current":true,"ip":[]}])", ""},
      {R"([{"current":true,"ip":["10.0.0.1"]}])", ""},
      {R"([{"current":true,"ip":{"ip":"10.0.0.1"}},{"current":true,"ip":"10.0.0.2"}])", ""},
      {R"([{"current":true,"ip":5}])", "5"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.wans);
    EXPECT_EQ(currentAddress(jsonOf(row.wans)), row.address);
  }
}

TEST(CurrentWanIp, isEmptyBeforeTheFirstRun) {
  EXPECT_EQ(currentWanIp, "");
}

}  // namespace
