#include "tunnelctl/status.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tunnelctl/complaint.h"

namespace {

/// What is said to these words.
std::string complaintAbout(const std::vector<std::string>& words) {
  try {
    performStatus(words);
  } catch (const Complaint& complaint) {
    return complaint.what();
  }
  return "";
}

TEST(PerformStatus, refusesWordsThatAreNotItsOwn) {
  const struct {
    std::vector<std::string> words;
    std::string complaint;
  } rows[] = {
      {{"word"}, "too many words: word"},
      {{"--jason"}, "unknown option --jason, did you mean --json?"},
      {{"--format", "text"}, "unknown format text; there is prometheus, and --json"},
      {{"--format"}, "--format needs a value"},
      {{"--format", "prometheus", "--json"}, "--json and --format exclude each other"},
      {{"--wait"}, "--wait needs a value"},
      {{"--wait", "soon"}, "--wait takes a number from 0 to 2147483647"},
      {{"--wait", "-1"}, "--wait takes a number from 0 to 2147483647"},
      {{"--watch", "--json"}, "--watch draws a screen, and goes with no other option"},
      {{"--watch", "--wait", "5"}, "--watch draws a screen, and goes with no other option"},
      {{"--watch", "--format", "prometheus"}, "--watch draws a screen, and goes with no other option"},
  };
  for (const auto& row : rows) EXPECT_EQ(complaintAbout(row.words), row.complaint);
}

}  // namespace
