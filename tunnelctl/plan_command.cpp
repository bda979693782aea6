#include "tunnelctl/plan_command.h"

#include "tunnelctl/complaint.h"
#include "tunnelctl/documents.h"
#include "tunnelctl/json_output.h"
#include "tunnelctl/openvpn_children.h"
#include "tunnelctl/options.h"
#include "tunnelctl/plan.h"
#include "tunnelctl/plan_report.h"

namespace {

const std::vector<OptionKind> kOptions{
    {"from", true}, {"offline", false}, {"json", false}, {"show-secrets", false}, {"printlvl", true}};

constexpr int kHighestPrintLevel = 100;

PlanSources sourcesOf(const Options& options) {
  PlanSources sources;
  if (const auto file = options.value("from")) sources.documents = readDocuments(*file);
  sources.offline = options.has("offline");
  if (const pid_t daemon = processOfPidFile(); daemon > 0) sources.children = openvpnChildrenOf(daemon);
  return sources;
}

}  // namespace

int performPlan(const std::vector<std::string>& words) {
  const Options options(words, kOptions, 0);
  ReportOptions report;
  report.printLevel = options.number("printlvl", 0, kHighestPrintLevel).value_or(report.printLevel);
  report.showSecrets = options.has("show-secrets");
  const Plan plan = planRun(sourcesOf(options));
  if (options.has("json")) {
    printJson("plan", jsonOf(plan, report));
  } else {
    printPlan(plan, report);
  }
  return plan.outcome == Plan::Outcome::kDone ? 0 : 1;
}
