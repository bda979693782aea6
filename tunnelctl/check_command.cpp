#include "tunnelctl/check_command.h"

#include "tunnelctl/check.h"
#include "tunnelctl/check_devices.h"
#include "tunnelctl/check_report.h"
#include "tunnelctl/documents.h"
#include "tunnelctl/json_output.h"
#include "tunnelctl/options.h"

int performCheck(const std::vector<std::string>& words) {
  const Options options(words, {{"json", false}}, 1);
  const bool isLive = options.operands().empty();
  const Json::Value documents = isLive ? fetchDocuments() : readDocuments(options.operands()[0]);
  const std::vector<Finding> findings = findingsOf(documents, isLive ? isForeignDevice : nullptr);
  if (options.has("json")) {
    printJson("check", jsonOf(findings));
  } else {
    printFindings(documents, findings);
  }
  return findings.empty() ? 0 : 1;
}
