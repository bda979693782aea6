#include "tunnelctl/plan.h"

#include <json/writer.h>

#include <map>
#include <utility>

#include "api/query.h"
#include "api/wan_list.h"
#include "core/tunnel_management_run.h"
#include "gre/kernel_inventory.h"
#include "gre/tunnel_creation.h"
#include "monitors/name_resolution.h"
#include "openvpn/supervision.h"
#include "support/logger.h"
#include "support/system.h"

namespace {

constexpr const char* kListing = "ip tunnel";

/// What the listing has for a TTL of 0.
constexpr const char* kNoTtl = "inherit";

/// Where the log's lines go while a run is planned.
Plan* planned = nullptr;

void keepLine(int level, char const* label, std::string const& text) {
  planned->log.push_back({level, label, text, planned->deeds.acts.size()});
}

/// Keeps every line of the log in a plan while the scope lasts.
class KeptLog {
 public:
  explicit KeptLog(Plan& plan) {
    planned = &plan;
    ZEL::Logger::setPrintLevel(ZEL::Logger::PrintLevel::TRACE_LEVEL, false);
    ZEL::Logger::handTo(keepLine);
  }
  ~KeptLog() {
    ZEL::Logger::handTo(nullptr);
    ZEL::Logger::setPrintLevel(ZEL::Logger::PrintLevel::ERROR_LEVEL, false);
  }
  KeptLog(const KeptLog&) = delete;
  KeptLog& operator=(const KeptLog&) = delete;
};

/// What the API would answer that serves these documents: every request for fields has the whole object.
std::string answerOf(const Json::Value& documents, const std::string& url) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  const Json::Value& result = url == wanInfoUrl ? documents["wans"] : documents;
  return R"({"code":200,"result":)" + Json::writeString(builder, result) + "}";
}

void performRun(Plan& plan) {
  const ActingAs noting(plan.deeds);
  const KeptLog kept(plan);
  try {
    plan.outcome = manageTunnels() ? Plan::Outcome::kDone : Plan::Outcome::kFailed;
  } catch (const Json::Exception&) {
    plan.outcome = Plan::Outcome::kThrew;
  }
}

/// The commands that would have created the kernel's tunnels, and those that the run has, by the tunnels' names.
using Tunnels = std::map<std::string, std::string>;

Tunnels kernelTunnels(const std::string& listing) {
  Tunnels tunnels;
  for (const Json::Value& tunnel : parseKernelTunnels(listing)) {
    const std::string ttl = tunnel["ttl"].asString();
    const GreTunnel same{tunnel["name"].asString(), tunnel["remoteIp"].asString(), "", "", ttl == kNoTtl ? "0" : ttl};
    tunnels[same.name] = createCommand(same, tunnel["localIp"].asString());
  }
  return tunnels;
}

Tunnels createdTunnels(const Plan& plan) {
  const std::string beginning = "ip tunnel add ";
  Tunnels tunnels;
  for (const std::string& command : plan.deeds.subjects(Act::Kind::kRun)) {
    if (command.compare(0, beginning.size(), beginning) != 0) continue;
    tunnels.emplace(command.substr(beginning.size(), command.find(" mode gre") - beginning.size()), command);
  }
  return tunnels;
}

TunnelChanges compared(const Tunnels& before, const Tunnels& after) {
  TunnelChanges changes;
  for (const auto& [name, command] : after) {
    const auto found = before.find(name);
    ++(found == before.end() ? changes.fresh : found->second == command ? changes.same : changes.other);
  }
  changes.gone = before.size() + changes.fresh - after.size();
  return changes;
}

void superviseAsIs(const std::vector<std::pair<pid_t, std::string>>& children) {
  for (const auto& [pid, file] : children) {
    OvpnConf conf;
    conf.confFile = file;
    supervisedTunnels.emplace_back(conf).pid = pid;
  }
}

}  // namespace

Plan planRun(const PlanSources& sources) {
  std::optional<AnsweringRequests> answers;
  if (sources.documents)
    answers.emplace([&sources](const std::string& url) { return answerOf(*sources.documents, url); });
  std::optional<ResolvingNames> names;
  if (sources.offline) names.emplace([](const std::string& host) { return Resolution{"<" + host + ">", 0}; });

  Plan plan;
  Answer& listing = plan.deeds.answers[kListing];
  listing.status = ZEL::System::cmd(kListing, listing.output);
  superviseAsIs(sources.children);
  performRun(plan);
  plan.hasWan = !currentWanIp.empty();
  plan.tunnels = compared(kernelTunnels(listing.output), createdTunnels(plan));
  return plan;
}
