#include "tunnelctl/console.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(Fitted, cutsTheMiddleOutOfWhatIsTooLong) {
  const struct {
    std::string text;
    std::size_t columns;
    std::string fitted;
  } rows[] = {{"", 5, ""},
              {"abcde", 5, "abcde"},
              {"abcdef", 5, "ab..f"},
              {"abcdefgh", 6, "ab..gh"},
              {"abcdef", 2, "ab"},
              {"abcdef", 0, ""},
              {"\xC3\xBC\xC3\xBC\xC3\xBC\xC3\xBC", 4, "\xC3\xBC\xC3\xBC\xC3\xBC\xC3\xBC"},
              {"\xC3\xBC\xC3\xBC\xC3\xBC\xC3\xBC\xC3\xBC\xC3\xBC", 5, "\xC3\xBC\xC3\xBC..\xC3\xBC"}};
  for (const auto& row : rows) EXPECT_EQ(fitted(row.text, row.columns), row.fitted) << row.text << row.columns;
}

TEST(Fitted, showsWhatCannotBePrintedAsAQuestionMark) {
  const struct {
    std::string text, fitted;
  } rows[] = {{"a\x1B[31mb", "a?[31mb"},
              {"a\nb\rc", "a?b?c"},
              {"\x7F", "?"},
              {"\xFF\xFE", "??"},
              {"\xC3", "?"},
              {"\xC0\x80", "??"},
              {std::string("a\0b", 3), "a?b"},
              {"\tx", "    x"},
              {"\xE2\x82\xAC", "\xE2\x82\xAC"},
              {"\xF0\x9F\x98\x80", "\xF0\x9F\x98\x80"},
              {"\xE2\x82", "??"}};
  for (const auto& row : rows) EXPECT_EQ(fitted(row.text, 50), row.fitted);
}

TEST(Column, isFilledUp) {
  EXPECT_EQ(column("ab", 4), "ab  ");
  EXPECT_EQ(column("\xC3\xBC", 3), "\xC3\xBC  ");
  EXPECT_EQ(column("abcdef", 4), "a..f");
}

TEST(Paragraph, isBrokenAtBlanks) {
  const std::string word(40, 'x');
  EXPECT_EQ(paragraph("", 2), "\n");
  EXPECT_EQ(paragraph("  a  b ", 2), "  a  b \n");
  EXPECT_EQ(paragraph(word + " " + word + " " + word, 3), word + " " + word + "\n   " + word + "\n");
}

TEST(Paragraph, hasNoLineOfMoreThanAHundredColumns) {
  for (std::size_t size = 0; size < 350; ++size) {
    const std::string text = "first " + std::string(size, 'x') + " " + std::string(60, 'y') + " last";
    const std::string lines = paragraph(text, 8);
    for (std::size_t begin = 0; begin < lines.size();) {
      const std::size_t end = lines.find('\n', begin);
      EXPECT_LE(end - begin, 100U) << size;
      begin = end + 1;
    }
  }
}

TEST(Coloured, isPlainWhereNoTerminalIs) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(coloured(Colour::kRed, "text"), "text");
  testing::internal::GetCapturedStdout();
}

}  // namespace
