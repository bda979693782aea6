#include "tunnelctl/plan_report.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <utility>

#include "support/logger.h"
#include "support/text.h"
#include "tunnelctl/console.h"
#include "tunnelctl/secrets.h"
#include "tunnelctl/unified_diff.h"

namespace {

using ZEL::Text;

using Kind = Act::Kind;

constexpr std::size_t kIndentation = 10;  ///< where what is done begins

std::string inOneLine(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    if (!text.empty()) text += ' ';
    text += word;
  }
  return text;
}

/// What stands in front of an act, and the act; "" in front of one that is not worth a line of its own.
std::pair<std::string, std::string> wordsOf(const Act& act) {
  switch (act.kind) {
    case Kind::kRun:
    case Kind::kAsk:
      return {"run", act.subject};
    case Kind::kWrite:
      return {"write", act.subject};
    case Kind::kAppend:
      return {"append", "to " + act.subject};
    case Kind::kSetMode: {
      std::array<char, 16> mode{};
      snprintf(mode.data(), mode.size(), "%04o ", static_cast<unsigned int>(act.number));
      return {"mode", mode.data() + act.subject};
    }
    case Kind::kSignal:
      return {"end", "child " + std::to_string(act.number)};
    case Kind::kBecome:
      return {"start", inOneLine(act.arguments)};
    case Kind::kPause:
      return {"wait", std::to_string(act.number) + " ms"};
    default:
      return {};
  }
}

void printAct(const Act& act) {
  const auto [verb, object] = wordsOf(act);
  if (verb.empty()) return;
  const char* const who = act.actor != 0 && act.kind != Kind::kBecome ? " (by the child)" : "";
  const std::string text = Text::joined({"  ", column(verb, kIndentation - 3), " ", object, who});
  fputs(paragraph(text, kIndentation).c_str(), stdout);
}

Colour colourOf(int level) {
  using Level = ZEL::Logger::PrintLevel;
  if (level <= Level::ERROR_LEVEL) return Colour::kRed;
  return level <= Level::WARNING_LEVEL ? Colour::kYellow : Colour::kGrey;
}

void printLine(const PlannedLine& line) {
  const std::string text = Text::joined({"  log     ", line.label, " ", line.text});
  fputs(coloured(colourOf(line.level), paragraph(text, kIndentation)).c_str(), stdout);
}

/// The acts in their order, with the lines that are logged between them.
void printActs(const Plan& plan, int printLevel) {
  puts(coloured(Colour::kBold, "What the next run would do").c_str());
  auto line = plan.log.begin();
  for (std::size_t i = 0; i <= plan.deeds.acts.size(); ++i) {
    for (; line != plan.log.end() && line->actsBefore == i; ++line) {
      if (line->level <= printLevel) printLine(*line);
    }
    if (i < plan.deeds.acts.size()) printAct(plan.deeds.acts[i]);
  }
}

/// The differences between the texts as they are, in lines as they may be shown.
std::vector<DiffLine> shownDiff(const FileChange& change, bool showSecrets) {
  const std::vector<std::string> before = linesOf(change.before);
  const std::vector<std::string> after = linesOf(change.after);
  std::vector<DiffLine> diff = unifiedDiff(before, after);
  if (showSecrets) return diff;
  const std::vector<std::string> shownBefore = withoutKeys(change.path, before);
  const std::vector<std::string> shownAfter = withoutKeys(change.path, after);
  for (DiffLine& line : diff) {
    if (line.kind == DiffLine::Kind::kHunk) continue;
    line.text = line.kind == DiffLine::Kind::kOnlyAfter ? shownAfter[line.after] : shownBefore[line.before];
  }
  return diff;
}

void printDiffLine(const DiffLine& line) {
  switch (line.kind) {
    case DiffLine::Kind::kHunk:
      return static_cast<void>(puts(coloured(Colour::kGrey, line.text).c_str()));
    case DiffLine::Kind::kBoth:
      return static_cast<void>(fputs(paragraph(" " + line.text, 1).c_str(), stdout));
    case DiffLine::Kind::kOnlyBefore:
      return static_cast<void>(fputs(coloured(Colour::kRed, paragraph("-" + line.text, 1)).c_str(), stdout));
    case DiffLine::Kind::kOnlyAfter:
      return static_cast<void>(fputs(coloured(Colour::kGreen, paragraph("+" + line.text, 1)).c_str(), stdout));
  }
}

void printChange(const FileChange& change, bool showSecrets) {
  if (!isDifferent(change)) return;
  const std::string name = fitted(change.path, kMostColumns - 4);
  printf("\n--- %s\n+++ %s\n", change.existed ? name.c_str() : "/dev/null",
         change.remains ? name.c_str() : "/dev/null");
  for (const DiffLine& line : shownDiff(change, showSecrets)) printDiffLine(line);
}

std::string plural(std::size_t count, const char* what) {
  return Text::joined({std::to_string(count), " ", what, count == 1 ? "" : "s"});
}

std::string outcomeOf(const Plan& plan) {
  if (plan.outcome == Plan::Outcome::kThrew) return "The run would end here: a member has a type that it cannot read.";
  if (plan.outcome == Plan::Outcome::kFailed) return "The run would fail here.";
  return plan.hasWan ? "" : "No WAN: everything would stay down.";
}

}  // namespace

std::string summaryOf(const Plan& plan, const std::vector<FileChange>& changes) {
  const auto different = std::count_if(changes.begin(), changes.end(), isDifferent);
  const std::size_t ended = plan.deeds.subjects(Kind::kSignal).size();
  const std::size_t started = plan.deeds.subjects(Kind::kStart).size();
  const std::size_t commands = plan.deeds.subjects(Kind::kRun).size();
  const TunnelChanges& tunnels = plan.tunnels;
  return Text::joined({"GRE tunnels: ", std::to_string(tunnels.fresh), " new, ", std::to_string(tunnels.gone),
                       " gone, ", std::to_string(tunnels.other), " other, ", std::to_string(tunnels.same),
                       " the same again. ", plural(static_cast<std::size_t>(different), "file"),
                       " different. OpenVPN: ", std::to_string(ended), " ended, ", std::to_string(started),
                       " started. Outage: about ", plural(commands, "command"), "."});
}

void printPlan(const Plan& plan, const ReportOptions& options) {
  const std::vector<FileChange> changes = fileChanges(plan);
  printActs(plan, options.printLevel);
  for (const FileChange& change : changes) printChange(change, options.showSecrets);
  if (const std::string outcome = outcomeOf(plan); !outcome.empty())
    printf("\n%s", coloured(Colour::kRed, paragraph(outcome, 0)).c_str());
  for (const std::string& culprit : plan.culprits) fputs(paragraph("  " + culprit, 4).c_str(), stdout);
  printf("\n%s", paragraph(summaryOf(plan, changes), 2).c_str());
}
