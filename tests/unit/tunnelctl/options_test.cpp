#include "tunnelctl/options.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tunnelctl/complaint.h"

namespace {

constexpr std::initializer_list<OptionKind> kKinds{{"from", true}, {"offline", false}, {"wait", true}};

Options of(const std::vector<std::string>& words) {
  return {words, kKinds, 1};
}

/// What is complained of, or "" when nothing is.
std::string complaintOf(const std::vector<std::string>& words) {
  try {
    of(words).number("wait", 0, 60);
    return "";
  } catch (const Complaint& complaint) {
    return complaint.what();
  }
}

TEST(Options, areSortedFromOperands) {
  const Options options = of({"--from", "a", "file", "--offline"});
  EXPECT_EQ(options.value("from"), "a");
  EXPECT_TRUE(options.has("offline"));
  EXPECT_FALSE(options.has("wait"));
  EXPECT_EQ(options.value("wait"), std::nullopt);
  EXPECT_EQ(options.operands(), std::vector<std::string>{"file"});
}

TEST(Options, takeTheirValueBehindAnEqualsSignToo) {
  EXPECT_EQ(of({"--from=a=b"}).value("from"), "a=b");
  EXPECT_EQ(of({"--from="}).value("from"), "");
  EXPECT_EQ(of({"--from", "--offline"}).value("from"), "--offline");
}

TEST(Options, countTheLastTime) {
  EXPECT_EQ(of({"--from", "a", "--from=b"}).value("from"), "b");
}

TEST(Options, leaveADashAndWhatStandsBehindTwoOfThem) {
  EXPECT_EQ(of({"-"}).operands(), std::vector<std::string>{"-"});
  EXPECT_EQ(of({"--", "--offline"}).operands(), std::vector<std::string>{"--offline"});
  EXPECT_FALSE(of({"--", "--offline"}).has("offline"));
  EXPECT_EQ(of({""}).operands(), std::vector<std::string>{""});
}

TEST(Options, readWholeNumbers) {
  EXPECT_EQ(of({"--wait", "0"}).number("wait", 0, 60), 0);
  EXPECT_EQ(of({"--wait=60"}).number("wait", 0, 60), 60);
  EXPECT_EQ(of({}).number("wait", 0, 60), std::nullopt);
}

TEST(Options, complainInOneSentence) {
  const struct {
    std::vector<std::string> words;
    std::string complaint;
  } rows[] = {
      {{"--offlin"}, "unknown option --offlin, did you mean --offline?"},
      {{"--xyzzy"}, "unknown option --xyzzy"},
      {{"--xyzzy=1"}, "unknown option --xyzzy"},
      {{"-o"}, "unknown option -o"},
      {{"--from"}, "--from needs a value"},
      {{"--offline=yes"}, "--offline takes no value"},
      {{"a", "b"}, "too many words: b"},
      {{"--wait", "61"}, "--wait takes a number from 0 to 60"},
      {{"--wait", "-1"}, "--wait takes a number from 0 to 60"},
      {{"--wait", "1s"}, "--wait takes a number from 0 to 60"},
      {{"--wait="}, "--wait takes a number from 0 to 60"},
  };
  for (const auto& row : rows) EXPECT_EQ(complaintOf(row.words), row.complaint);
}

}  // namespace
