#include "tunnelctl/check_findings.h"

#include <cstdint>
#include <map>
#include <utility>

#include "support/text.h"
#include "tunnelctl/console.h"

namespace {

constexpr std::size_t kMostShown = 120;

/// As the documents come in docs/configuration.md; what is none of them comes last.
constexpr std::array<const char*, 6> kDocuments{"wans", "greTunnels", "ni", "ipsecTunnels", "ovpnTunnels", "syslog"};

/// The document of a pointer and, in the lower half, the number of its element.
std::uint64_t sortKey(const std::string& pointer) {
  const std::vector<std::string> steps = ZEL::Text::split(pointer, "/", 0);
  std::size_t document = 0;
  while (document < kDocuments.size() && (steps.size() < 2 || steps[1] != kDocuments[document])) ++document;
  int element = -1;  // behind all elements
  for (std::size_t i = 2; i < steps.size() && !ZEL::Text::parse(element, steps[i]); ++i) continue;
  return std::uint64_t{document} << 32U | static_cast<std::uint32_t>(element);
}

}  // namespace

const char* nameOf(Severity severity) {
  return severity == Severity::kError ? "error" : "warning";
}

void Findings::add(const Place& place, Problem problem, std::initializer_list<std::string_view> texts) {
  const ProblemKind& kind = kindOf(problem);
  std::string message = kind.sentence;
  std::size_t begin = 0;
  for (const std::string_view text : texts) {
    begin = message.find("{}", begin);
    const std::string given = fitted(text, kMostShown);
    message.replace(begin, 2, given);
    begin += given.size();
  }
  const Severity severity = place.isInForce() ? kind.severity : Severity::kWarning;
  list_.push_back({problem, severity, place.pointer(), std::move(message)});
}

std::vector<Finding> Findings::sorted() const {
  std::multimap<std::uint64_t, std::size_t> places;  // equal keys keep their order
  for (std::size_t i = 0; i < list_.size(); ++i) places.emplace(sortKey(list_[i].pointer), i);
  std::vector<Finding> sorted;
  for (const auto& [key, place] : places) sorted.push_back(list_[place]);
  return sorted;
}

std::string shownValue(const Json::Value& value) {
  if (value.isString()) return "\"" + value.asString() + "\"";
  if (value.isNull()) return "null";
  if (value.isArray()) return "an array";
  return value.isObject() ? "an object" : value.asString();
}
