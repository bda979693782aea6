// What `tunnelctl check` makes of documents, and what a run does.

#include "tunnelctl/check.h"

#include <algorithm>
#include <string>

#include "api/wan_list.h"
#include "core/tunnel_management_run.h"
#include "monitors/fqdn_monitor.h"
#include "openvpn/supervision.h"
#include "tests/fuzz/harness/documents.h"
#include "tests/fuzz/harness/require.h"
#include "tests/fuzz/harness/router.h"
#include "tunnelctl/complaint.h"
#include "tunnelctl/documents.h"

namespace {

/// Cuts the first step off a pointer and returns the member that it names.
std::string takeStep(std::string& pointer) {
  const std::size_t end = std::min(pointer.find('/', 1), pointer.size());
  std::string step = pointer.substr(1, end - 1);
  pointer.erase(0, end);
  for (std::size_t tilde = step.find('~'); tilde != std::string::npos; tilde = step.find('~', tilde + 1))
    step.replace(tilde, 2, step.at(tilde + 1) == '1' ? "/" : "~");
  return step;
}

/// Whether the pointer leads to a value, or to an absent member of an object.
bool resolves(const Json::Value& documents, std::string pointer) {
  const Json::Value* value = &documents;
  while (!pointer.empty()) {
    const std::string step = takeStep(pointer);
    if (value->isArray() && std::stoul(step) < value->size()) {
      value = &(*value)[static_cast<Json::ArrayIndex>(std::stoul(step))];
    } else if (value->isObject() && (value->isMember(step) || pointer.empty())) {
      value = &(*value)[step];
    } else {
      return false;
    }
  }
  return true;
}

void requireFinding(const Json::Value& documents, const Finding& finding) {
  require(resolves(documents, finding.pointer), "a pointer leads to a value, or to an absent member of an object");
  const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' '; };
  require(std::none_of(finding.message.begin(), finding.message.end(), isControl), "a message is a line");
  require(finding.message.back() == '.', "a message is a sentence");
}

/// Whether the program's own run ends early for a value of a wrong type. In the OpenVPN documents that is a failure.
bool endsEarly() {
  router.forget();
  bool isDone = false;
  endsUnlessOfWrongType([&isDone] { isDone = manageTunnels(); });
  v_apFqdnMonitor.clear();
  supervisedTunnels.clear();
  return !isDone;
}

/// Whether a run reads that far: without a WAN it reads the OpenVPN documents only.
bool isReached(const Finding& finding) {
  const std::string& pointer = finding.pointer;
  return !currentWanIp.empty() || pointer.rfind("/ovpnTunnels", 0) == 0 || pointer.rfind("/syslog", 0) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Drawn drawn;
  drawn.wans = drawn.greTunnels = drawn.ipsecTunnels = drawn.interfaces = drawn.ovpnTunnels = true;
  furnishRouter(data, size, drawn);
  Json::Value documents;
  try {
    documents = fetchDocuments();
  } catch (const Complaint&) {
    return 0;
  }
  const std::vector<Finding> findings = findingsOf(documents, nullptr);
  for (const Finding& finding : findings) requireFinding(documents, finding);

  currentWanIp = currentAddress(documents["wans"]);
  const bool isSaid = std::any_of(findings.begin(), findings.end(), [](const Finding& finding) {
    return finding.problem == Problem::kEndsRun && isReached(finding);
  });
  require(endsEarly() == isSaid, "a run ends early where it is said, and else does not");
  return 0;
}
