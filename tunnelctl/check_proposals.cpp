#include <algorithm>
#include <array>
#include <string>

#include "ipsec/proposals.h"
#include "tunnelctl/check_ciphers.h"
#include "tunnelctl/check_lines.h"
#include "tunnelctl/check_rules.h"

namespace {

struct Phase {
  const char* member;
  std::string (*build)(const std::string& text);
  bool isIke;
};

constexpr std::array<Phase, 2> kPhases{{{"phase1", buildIkeProposal, true}, {"phase2", buildEspProposal, false}}};
constexpr std::array<std::string_view, 4> kMethods{"3des", "aes128", "aes192", "aes256"};
constexpr std::string_view kSha2 = "sha2";
constexpr std::string_view kCompleteSha2 = "sha2_256";

/// How a description is built: "encryption-hash;group".
struct Form {
  std::size_t hyphens;
  std::size_t semicolons;
  std::string_view hash;  ///< what stands behind the hyphen, up to a semicolon
  bool hasGroup;          ///< something stands behind the semicolon
};

Form formOf(std::string_view text) {
  const auto hyphens = static_cast<std::size_t>(std::count(text.begin(), text.end(), '-'));
  const auto semicolons = static_cast<std::size_t>(std::count(text.begin(), text.end(), ';'));
  std::string_view hash = text.substr(std::min(text.find('-'), text.size() - 1) + 1);
  const std::string_view behind = text.substr(std::min(text.find(';'), text.size() - 1) + 1);
  return {hyphens, semicolons, takePiece(hash, ';'), !behind.empty() && behind[0] != ';'};
}

/// What of a description is not used; null if it all is.
const char* unusedOf(const Form& form, bool isEmpty) {
  if (form.hyphens > 1) return "Only encryption and hash have a hyphen between them, and nothing of this is used";
  if (isEmpty) return "This names no encryption, and nothing of it is used";
  if (form.hyphens == 1 && form.hash.empty()) return "There is no hash behind the hyphen";
  if (form.hyphens == 0 && form.hasGroup) return "A group is used with a hash only, which is missing";
  if (form.semicolons == 0) return nullptr;
  if (!form.hasGroup) return "There is no group behind the semicolon";
  return form.semicolons > 1 ? "What stands behind the second semicolon is not used" : nullptr;
}

void checkSuites(const Place& place, std::string_view suites, bool isIke, Findings& findings) {
  if (!suites.empty() && suites.back() == '!') suites.remove_suffix(1);  // has the service offer nothing of its own
  while (!suites.empty()) {
    const SuiteObjection objection = objectionToSuite(takePiece(suites, ','), isIke);
    if (objection.complaint == nullptr) continue;
    findings.add(place, Problem::kUnknownProposal, {objection.name, objection.complaint});
    return;
  }
}

void checkDescription(const Place& place, std::string text, const Phase& phase, Findings& findings) {
  const Form form = formOf(text);
  if (form.hyphens == 1 && form.hash == kSha2 && text[0] != '-') {
    findings.add(place, Problem::kSha2);
    text.replace(text.find('-') + 1, kSha2.size(), kCompleteSha2);  // as the program does, which would log it
  }
  const std::string suites = phase.build(text);
  if (const char* const unused = unusedOf(formOf(text), suites.empty()); unused != nullptr)
    findings.add(place, Problem::kUnusedProposal, {unused});
  checkSuites(place, suites, phase.isIke, findings);
}

/// Told once for both phases.
void checkMethod(const Place& place, Findings& findings) {
  const auto method = place.text();
  if (!method || std::find(kMethods.begin(), kMethods.end(), *method) != kMethods.end()) return;
  if (!method->empty() || place.isInForce()) findings.add(place, Problem::kNoProposal, {*method});
}

}  // namespace

void checkProposals(const Place& tunnel, Findings& findings) {
  bool isMethodNeeded = false;
  for (const Phase& phase : kPhases) {
    const Place place = tunnel[phase.member];
    const auto text = place.text();
    if (text && !text->empty()) checkDescription(place, std::string(*text), phase, findings);
    isMethodNeeded = isMethodNeeded || text == "";
  }
  checkMethod(tunnel["encryptMethod"].inForceIf(isMethodNeeded), findings);
}
