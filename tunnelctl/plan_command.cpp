#include "tunnelctl/plan_command.h"

#include "tunnelctl/check.h"
#include "tunnelctl/complaint.h"
#include "tunnelctl/documents.h"
#include "tunnelctl/json_output.h"
#include "tunnelctl/openvpn_children.h"
#include "tunnelctl/options.h"
#include "tunnelctl/plan.h"
#include "tunnelctl/plan_report.h"

namespace {

constexpr std::initializer_list<OptionKind> kOptions{
    {"from", true}, {"offline", false}, {"json", false}, {"show-secrets", false}, {"printlvl", true}};

constexpr int kHighestPrintLevel = 100;

PlanSources sourcesOf(const Options& options) {
  PlanSources sources;
  if (const auto file = options.value("from")) sources.documents = readDocuments(*file);
  sources.offline = options.has("offline");
  if (const pid_t daemon = processOfPidFile(); daemon > 0) sources.children = openvpnChildrenOf(daemon);
  return sources;
}

/// The members at which such a run ends, in the documents' order, as the check of the same documents finds them.
/// \throws Complaint when the API does not serve them: then that is why the run ends.
std::vector<std::string> culpritsOf(const std::optional<Json::Value>& documents) {
  std::vector<std::string> culprits;
  for (const Finding& finding : findingsOf(documents ? *documents : fetchDocuments(), {})) {
    if (finding.problem == Problem::kEndsRun) culprits.push_back(finding.pointer + ": " + finding.message);
  }
  return culprits;
}

}  // namespace

int performPlan(const std::vector<std::string>& words) {
  const Options options(words, kOptions, 0);
  ReportOptions report;
  report.printLevel = options.number("printlvl", 0, kHighestPrintLevel).value_or(report.printLevel);
  report.showSecrets = options.has("show-secrets");
  const PlanSources sources = sourcesOf(options);
  Plan plan = planRun(sources);
  std::string unserved;
  try {
    if (plan.outcome != Plan::Outcome::kDone) plan.culprits = culpritsOf(sources.documents);
  } catch (const Complaint& complaint) {
    unserved = complaint.what();
  }
  if (options.has("json")) {
    printJson("plan", jsonOf(plan, report));
  } else {
    printPlan(plan, report);
  }
  if (!unserved.empty()) throw Complaint(unserved);
  return plan.outcome == Plan::Outcome::kDone ? 0 : 1;
}
