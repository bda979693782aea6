#include "tunnelctl/nearest_word.h"

#include <gtest/gtest.h>

namespace {

const std::vector<std::string_view> kWords{"name", "enabled", "remoteIp", "checkPeriod", "ttl", "ip"};

TEST(NearestWord, findsWhatDiffersByAThirdOfItsLetters) {
  const struct {
    const char* word;
    const char* nearest;
  } rows[] = {
      {"name", "name"},
      {"NAME", "name"},  // capitals
      {"nme", "name"},
      {"naame", "name"},  // one is missing, or too many
      {"nane", "name"},
      {"nmae", "name"},  // one is wrong, or exchanged with its neighbour
      {"nanx", ""},
      {"mnea", ""},  // two of four
      {"enabld", "enabled"},
      {"enbld", ""},  // of five letters one may be wrong
      {"enbaeld", "enabled"},
      {"nebaeld", ""},  // of seven two
      {"checkperoid", "checkPeriod"},
      {"chkPrds", ""},
      {"tll", "ttl"},
      {"t", ""},  // one may be wrong in any word
      {"i", "ip"},
      {"", ""},
      {"description", ""},
  };
  for (const auto& row : rows) EXPECT_EQ(nearestWord(row.word, kWords), row.nearest) << row.word;
}

TEST(NearestWord, exchangesNoLetterTwice) {
  EXPECT_EQ(nearestWord("bca", {"abc"}), "");  // two exchanges, or an insertion and a removal
  EXPECT_EQ(nearestWord("ba", {"ab"}), "ab");
}

TEST(NearestWord, takesTheNearestAndOfSeveralTheFirst) {
  EXPECT_EQ(nearestWord("remoteId", {"remoteIp", "remoteI", "remoteId"}), "remoteId");
  EXPECT_EQ(nearestWord("remoteIx", {"remoteIp", "remoteId"}), "remoteIp");
  EXPECT_EQ(nearestWord("x", {}), "");
}

}  // namespace
