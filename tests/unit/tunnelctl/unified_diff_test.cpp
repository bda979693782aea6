#include "tunnelctl/unified_diff.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace {

using Lines = std::vector<std::string>;

std::string textOf(const std::vector<DiffLine>& diff) {
  const std::string marks = " -+";
  std::string text;
  for (const DiffLine& line : diff) {
    if (line.kind != DiffLine::Kind::kHunk) text += marks[static_cast<std::size_t>(line.kind) - 1];
    text += line.text + "\n";
  }
  return text;
}

Lines numbers(int count) {
  Lines lines;
  for (int i = 1; i <= count; ++i) lines.push_back(std::to_string(i));
  return lines;
}

TEST(LinesOf, tellsOfAMissingLineFeed) {
  EXPECT_EQ(linesOf(""), Lines());
  EXPECT_EQ(linesOf("a\n\nb\n"), (Lines{"a", "", "b"}));
  EXPECT_EQ(linesOf("a\nb"), (Lines{"a", "b", "\\ No newline at end of file"}));
}

TEST(UnifiedDiff, isEmptyForEqualTexts) {
  EXPECT_TRUE(unifiedDiff({}, {}).empty());
  EXPECT_TRUE(unifiedDiff({"a", "b"}, {"a", "b"}).empty());
}

TEST(UnifiedDiff, isThatOfTheUnifiedFormat) {
  Lines changed = numbers(20);
  changed[9] = "ten";
  Lines shorter = numbers(20);
  shorter.erase(shorter.begin(), shorter.begin() + 2);
  Lines twice = numbers(20);
  twice[1] = "two";
  twice[18] = "nineteen";
  const struct {
    Lines before, after;
    std::string diff;
  } rows[] = {
      {{}, {"a"}, "@@ -0,0 +1 @@\n+a\n"},
      {{"a", "b"}, {}, "@@ -1,2 +0,0 @@\n-a\n-b\n"},
      {numbers(20), changed, "@@ -7,7 +7,7 @@\n 7\n 8\n 9\n-10\n+ten\n 11\n 12\n 13\n"},
      {numbers(20), shorter, "@@ -1,5 +1,3 @@\n-1\n-2\n 3\n 4\n 5\n"},
      {numbers(20), twice,
       "@@ -1,5 +1,5 @@\n 1\n-2\n+two\n 3\n 4\n 5\n@@ -16,5 +16,5 @@\n 16\n 17\n 18\n-19\n+nineteen\n 20\n"},
      {{"a", "b", "c"}, {"a", "x", "b", "c"}, "@@ -1,3 +1,4 @@\n a\n+x\n b\n c\n"},
  };
  for (const auto& row : rows) EXPECT_EQ(textOf(unifiedDiff(row.before, row.after)), row.diff);
}

/// Applies a diff to the text before, trusting its lines and not its ranges.
Lines applied(const Lines& before, const std::vector<DiffLine>& diff) {
  Lines after;
  std::size_t place = 0;
  for (const DiffLine& line : diff) {
    if (line.kind == DiffLine::Kind::kHunk) continue;
    while (place < line.before) after.push_back(before[place++]);
    if (line.kind != DiffLine::Kind::kOnlyBefore) after.push_back(line.text);
    if (line.kind != DiffLine::Kind::kOnlyAfter) ++place;
  }
  while (place < before.size()) after.push_back(before[place++]);
  return after;
}

std::size_t differencesIn(const std::vector<DiffLine>& diff) {
  std::size_t count = 0;
  for (const DiffLine& line : diff) {
    if (line.kind == DiffLine::Kind::kOnlyBefore || line.kind == DiffLine::Kind::kOnlyAfter) ++count;
  }
  return count;
}

/// The fewest differences, by the table of longest common subsequences.
std::size_t fewestDifferences(const Lines& a, const Lines& b) {
  std::vector<std::vector<std::size_t>> common(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 1; i <= a.size(); ++i) {
    for (std::size_t j = 1; j <= b.size(); ++j)
      common[i][j] = a[i - 1] == b[j - 1] ? common[i - 1][j - 1] + 1 : std::max(common[i - 1][j], common[i][j - 1]);
  }
  return a.size() + b.size() - 2 * common[a.size()][b.size()];
}

TEST(UnifiedDiff, leadsFromOneTextToTheOtherWithTheFewestDifferences) {
  std::mt19937 random(1);
  const auto draw = [&random] {
    Lines lines(random() % 30);
    for (std::string& line : lines) line = std::string(1, static_cast<char>('a' + random() % 4));
    return lines;
  };
  for (int i = 0; i < 500; ++i) {
    const Lines before = draw();
    const Lines after = draw();
    const std::vector<DiffLine> diff = unifiedDiff(before, after);
    EXPECT_EQ(applied(before, diff), after);
    EXPECT_EQ(differencesIn(diff), fewestDifferences(before, after));
  }
}

TEST(UnifiedDiff, takesTextsWithTooManyDifferencesForAltogetherDifferent) {
  Lines after = numbers(2000);
  for (std::size_t i = 0; i < after.size(); i += 2) after[i] = "other";
  const std::vector<DiffLine> diff = unifiedDiff(numbers(2000), after);
  EXPECT_EQ(applied(numbers(2000), diff), after);
  EXPECT_EQ(differencesIn(diff), 4000U);
}

}  // namespace
