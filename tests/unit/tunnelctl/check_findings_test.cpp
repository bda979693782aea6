#include "tunnelctl/check_findings.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "support/system.h"
#include "support/text.h"

namespace {

/// Of the manual that lies in docs/.
std::string manual() {
  std::string text;
  ZEL::System::readFile(FINDINGS_PAGE, text);
  return text;
}

/// Severities by identifiers, as the manual's tables have them.
std::map<std::string, std::string> toldInManual() {
  std::map<std::string, std::string> told;
  for (const std::string& line : ZEL::Text::split(manual(), "\n", 0)) {
    const std::vector<std::string> cells = ZEL::Text::split(line, "|", 0);
    if (cells.size() != 6 || ZEL::Text::trim(cells[1])[0] != '`') continue;
    EXPECT_FALSE(ZEL::Text::trim(cells[3]).empty() || ZEL::Text::trim(cells[4]).empty()) << line;
    const bool isNew = told.emplace(ZEL::Text::trim(ZEL::Text::trim(cells[1]), '`'), ZEL::Text::trim(cells[2])).second;
    EXPECT_TRUE(isNew) << line;
  }
  return told;
}

TEST(ProblemKinds, areThoseOfTheManual) {
  std::map<std::string, std::string> kinds;
  for (const ProblemKind& kind : problemKinds()) kinds.emplace(kind.id, nameOf(kind.severity));
  EXPECT_EQ(kinds.size(), problemKinds().size());
  EXPECT_EQ(kinds, toldInManual());
}

TEST(ProblemKinds, sayTheEffectAndTheMend) {
  for (const ProblemKind& kind : problemKinds()) {
    const std::string sentence = kind.sentence;
    EXPECT_EQ(sentence.back(), '.') << sentence;
    EXPECT_NE(sentence.find("; "), std::string::npos) << sentence;
  }
}

TEST(Findings, putTheTextsInTheirPlaces) {
  const Json::Value nothing;
  Findings findings;
  findings.add(Place(nothing), Problem::kSameRemote, {"a{}b", "{}"});
  ASSERT_EQ(findings.sorted().size(), 1U);
  EXPECT_EQ(findings.sorted()[0].message,
            R"("a{}b" is the remote end of {}, too, and so this tunnel is missing; make one tunnel of them.)");
}

TEST(Findings, showNoControlCharactersAndNoLongTexts) {
  const Json::Value nothing;
  Findings findings;
  findings.add(Place(nothing), Problem::kTtl, {"a\n\x01" + std::string(1000, 'x')});
  const std::string message = findings.sorted()[0].message;
  EXPECT_EQ(message.substr(0, 5), "\"a??x");
  EXPECT_LT(message.size(), 250U);
}

TEST(Findings, areWarningsWhereNothingIsInForce) {
  const Json::Value nothing;
  Findings findings;
  findings.add(Place(nothing).inForceIf(false), Problem::kTtl, {""});
  findings.add(Place(nothing), Problem::kTtl, {""});
  EXPECT_EQ(findings.sorted()[0].severity, Severity::kWarning);
  EXPECT_EQ(findings.sorted()[1].severity, Severity::kError);
}

}  // namespace
