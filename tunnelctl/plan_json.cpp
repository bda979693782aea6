#include <algorithm>
#include <array>
#include <cstdio>

#include "tunnelctl/plan_report.h"
#include "tunnelctl/secrets.h"
#include "tunnelctl/unified_diff.h"

namespace {

using Kind = Act::Kind;

constexpr std::array<const char*, 3> kOutcomes{"done", "failed", "threw"};

std::string joinedLines(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

std::string shown(const std::string& path, const std::string& text, bool showSecrets) {
  return showSecrets ? text : joinedLines(withoutKeys(path, linesOf(text)));
}

std::string modeText(int mode) {
  std::array<char, 16> text{};
  snprintf(text.data(), text.size(), "%04o", static_cast<unsigned int>(mode));
  return text.data();
}

/// An act in the words that docs/tunnelctl.md has for it; null for one that is not told.
Json::Value jsonOf(const Act& act) {
  Json::Value object;
  switch (act.kind) {
    case Kind::kRun:
    case Kind::kAsk:
      object["run"] = act.subject;
      break;
    case Kind::kWrite:
      object["write"] = act.subject;
      break;
    case Kind::kAppend:
      object["append"] = act.subject;
      break;
    case Kind::kSetMode:
      object["chmod"] = act.subject;
      object["mode"] = modeText(act.number);
      break;
    case Kind::kSignal:
      object["end"] = act.number;
      break;
    case Kind::kBecome:
      for (const std::string& argument : act.arguments) object["start"].append(argument);
      break;
    case Kind::kPause:
      object["pause"] = act.number;
      break;
    default:
      return object;
  }
  if (act.actor != 0) object["child"] = act.actor;
  return object;
}

Json::Value filesOf(const Plan& plan, bool showSecrets) {
  Json::Value files(Json::objectValue);
  for (const FileChange& change : fileChanges(plan)) {
    Json::Value& file = files[change.path];
    file["different"] = isDifferent(change);
    file["before"] = change.existed ? shown(change.path, change.before, showSecrets) : Json::Value();
    file["after"] = change.remains ? shown(change.path, change.after, showSecrets) : Json::Value();
    const auto mode = plan.deeds.modes.find(change.path);
    if (mode != plan.deeds.modes.end()) file["mode"] = modeText(static_cast<int>(mode->second));
  }
  return files;
}

Json::Value logOf(const Plan& plan, int printLevel) {
  Json::Value log(Json::arrayValue);
  for (const PlannedLine& line : plan.log) {
    if (line.level > printLevel) continue;
    Json::Value entry;
    entry["level"] = line.label;
    entry["text"] = line.text;
    log.append(entry);
  }
  return log;
}

}  // namespace

Json::Value jsonOf(const Plan& plan, const ReportOptions& options) {
  Json::Value object;
  object["outcome"] = kOutcomes[static_cast<std::size_t>(plan.outcome)];
  object["wan"] = plan.hasWan;
  object["culprits"] = Json::Value(Json::arrayValue);
  for (const std::string& culprit : plan.culprits) object["culprits"].append(culprit);
  object["acts"] = Json::Value(Json::arrayValue);
  for (const Act& act : plan.deeds.acts) {
    const Json::Value told = jsonOf(act);
    if (!told.isNull()) object["acts"].append(told);
  }
  object["files"] = filesOf(plan, options.showSecrets);
  object["log"] = logOf(plan, options.printLevel);
  object["summary"] = summaryOf(plan, fileChanges(plan));
  return object;
}
