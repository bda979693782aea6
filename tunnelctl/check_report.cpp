#include "tunnelctl/check_report.h"

#include <algorithm>
#include <cstdio>

#include "support/text.h"
#include "tunnelctl/console.h"

namespace {

using ZEL::Text;

constexpr std::size_t kIndentation = 11;
constexpr std::size_t kNameColumns = 40;

/// The steps of a pointer that lead to the record: a tunnel, a WAN or a network interface. "" for the documents' own.
std::string recordOf(const std::string& pointer) {
  const std::vector<std::string> steps = Text::split(pointer, "/", 0);
  const std::size_t most = steps.size() > 2 && steps[1] == "ni" ? 4 : 3;
  std::string record;
  for (std::size_t i = 1; i < std::min(steps.size(), most); ++i) record += "/" + steps[i];
  return record;
}

/// The value that a record's pointer leads to, or null.
const Json::Value& valueAt(const Json::Value& documents, const std::string& record) {
  const Json::Value* value = &documents;
  for (const std::string& step : Text::split(record, "/", 0)) {
    int element = 0;
    if (value->isArray() && Text::parse(element, step)) {
      value = &(*value)[static_cast<Json::ArrayIndex>(element)];
    } else if (value->isObject() && !step.empty()) {
      value = &(*value)[step];
    }
  }
  return *value;
}

/// The record's pointer, its name, where it has one, and whether it is disabled.
std::string headingOf(const Json::Value& documents, const std::string& record) {
  const Json::Value& value = valueAt(documents, record);
  std::string heading = record;
  if (!value.isObject()) return heading;
  if (value["name"].isString()) heading += Text::joined({" \"", fitted(value["name"].asString(), kNameColumns), "\""});
  if (value.isMember("enabled") && value["enabled"] == false) heading += ", disabled";
  return heading;
}

void printFinding(const Finding& finding, const std::string& record) {
  const std::string severity = nameOf(finding.severity);
  const std::string rest = finding.pointer.substr(record.size());
  std::string text =
      paragraph(Text::joined({"  ", column(severity, kIndentation - 3), " ", rest, rest.empty() ? "" : ": ",
                              finding.message, " [", kindOf(finding.problem).id, "]"}),
                kIndentation);
  const Colour colour = finding.severity == Severity::kError ? Colour::kRed : Colour::kYellow;
  fputs(text.replace(2, severity.size(), coloured(colour, severity)).c_str(), stdout);
}

std::string counted(std::size_t count, const char* noun) {
  return Text::joined({std::to_string(count), " ", noun, count == 1 ? "" : "s"});
}

}  // namespace

void printFindings(const Json::Value& documents, const std::vector<Finding>& findings) {
  std::string before = "none";
  for (const Finding& finding : findings) {
    const std::string record = recordOf(finding.pointer);
    if (record != before) fputs(coloured(Colour::kBold, paragraph(headingOf(documents, record), 2)).c_str(), stdout);
    before = record;
    printFinding(finding, record);
  }
  const auto errors = static_cast<std::size_t>(std::count_if(
      findings.begin(), findings.end(), [](const Finding& finding) { return finding.severity == Severity::kError; }));
  puts((counted(errors, "error") + ", " + counted(findings.size() - errors, "warning")).c_str());
}

Json::Value jsonOf(const std::vector<Finding>& findings) {
  Json::Value object;
  object["findings"] = Json::Value(Json::arrayValue);
  for (const Finding& finding : findings) {
    Json::Value entry;
    entry["severity"] = nameOf(finding.severity);
    entry["id"] = kindOf(finding.problem).id;
    entry["pointer"] = finding.pointer;
    entry["message"] = finding.message;
    object["findings"].append(entry);
  }
  return object;
}
