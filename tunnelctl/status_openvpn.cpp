#include <algorithm>
#include <set>

#include "support/text.h"
#include "tunnelctl/openvpn_status.h"
#include "tunnelctl/status_rows.h"

namespace {

using ZEL::Text;

constexpr const char* kKind = "openvpn";

/// A living openvpn writes its status every second, but not while it waits between two attempts to connect.
constexpr std::int64_t kOldStatusSeconds = 15;

const OpenvpnFiles& filesOf(const std::string& name, const Facts& facts) {
  static const OpenvpnFiles none;
  const auto found = std::find_if(facts.openvpn.begin(), facts.openvpn.end(),
                                  [&name](const OpenvpnFiles& files) { return files.name == name; });
  return found == facts.openvpn.end() ? none : *found;
}

std::string ago(std::int64_t time, const Facts& facts) {
  return ageText(facts.now - time) + " ago";
}

/// Why nothing runs that is to run.
Verdict childless(const OpenvpnFiles& files, const Facts& facts) {
  if (!files.hasConfiguration) return down("its configuration has not been written: it is newer than the last run");
  if (!daemonStatus(facts).isRunning) return down("no child: the daemon does not run, and its children end with it");
  const std::string since = files.status ? " for " + ageText(facts.now - files.status->writtenAt) : "";
  return down(Text::joined(
      {"no child", since, ": openvpn cannot start, or leaves at once, and its lines in the system log say why"}));
}

/// What the daemon's last ping of the far end says. A file that is older than the child tells of another one.
Verdict pinged(const OpenvpnFiles& files, const Process& child, const Facts& facts) {
  if (!files.connect || files.connect->writtenAt < child.startedAt)
    return unknown(files.pingAddress + " has not been pinged yet");
  if (files.connect->text == "connected") return {};
  return down(Text::joined({"the last ping of ", files.pingAddress, " failed ", ago(files.connect->writtenAt, facts)}));
}

/// What openvpn's own counters say of who is at the other end.
Verdict heard(const OpenvpnStatus& status) {
  if (status.isServer || status.authenticated > 0) return {};
  if (status.arrived == 0) return down("nothing has come from the other end");
  return unknown("the other end answers, but nothing has come through the tunnel yet");
}

/// What stops every packet; "" when nothing does.
std::string obstacle(const OpenvpnFiles& files, const Facts& facts) {
  if (!areDevicesKnown(facts) || files.device.empty()) return "";
  const Device* const device = deviceOf(files.device, facts);
  if (device == nullptr)
    return Text::joined({"its device ", files.device, " is not there: openvpn has not connected yet"});
  return device->isUp ? "" : Text::joined({"the link of its device ", files.device, " is down"});
}

/// Whether the status is the child's own.
bool hasStatus(const OpenvpnFiles& files, const Process& child) {
  return files.status && files.status->writtenAt >= child.startedAt && !files.status->text.empty();
}

Verdict judgeChild(const OpenvpnFiles& files, const Process& child, const Facts& facts) {
  if (files.isStatusForbidden) return unknown("only root may read the status of openvpn");
  if (!hasStatus(files, child))
    return down(Text::joined(
        {"openvpn has run for ", ageText(facts.now - child.startedAt), " and has not written its status yet"}));
  if (const std::int64_t age = facts.now - files.status->writtenAt; age > kOldStatusSeconds)
    return down(Text::joined(
        {"openvpn has not written its status for ", ageText(age), ": it waits to connect again, or hangs"}));
  const std::optional<OpenvpnStatus> status = parseOpenvpnStatus(files.status->text);
  if (!status) return unknown("the status of openvpn cannot be read");
  if (const std::string reason = obstacle(files, facts); !reason.empty()) return down(reason);
  return files.pingAddress.empty() ? heard(*status) : pinged(files, child, facts);
}

Verdict judgeTunnel(const std::string& name, const Facts& facts) {
  const OpenvpnFiles& files = filesOf(name, facts);
  const Process* const child = openvpnOf(name, facts);
  if (isConfigurationKnown(facts) && facts.configuration.wan.empty())
    return down("no WAN is current, so nothing is started");
  return child == nullptr ? childless(files, facts) : judgeChild(files, *child, facts);
}

Verdict judgeFound(const std::string& name, const Facts& facts) {
  const bool runs = openvpnOf(name, facts) != nullptr;
  const bool isKnown = isConfigurationKnown(facts);
  if (isKnown && runs) return {TunnelState::kStale, "it runs, but is no longer configured; a run is due"};
  if (isKnown) return {TunnelState::kStale, "nothing runs; the file of an earlier configuration is left"};
  if (!runs) return unknown("no child: only the API could tell whether there should be one");
  return judgeTunnel(name, facts);
}

std::string clientsText(unsigned int clients) {
  return std::to_string(clients) + (clients == 1 ? " client" : " clients");
}

/// When a ping was answered last.
std::optional<std::int64_t> lastPing(const OpenvpnFiles& files) {
  if (files.pingAddress.empty() || !files.connect || files.connect->text != "connected") return std::nullopt;
  return files.connect->writtenAt;
}

TunnelRow rowOf(const std::string& name, const Verdict& verdict, const Facts& facts) {
  TunnelRow row{kKind, name, verdict};
  const OpenvpnFiles& files = filesOf(name, facts);
  const Process* const child = openvpnOf(name, facts);
  row.remote = files.remote;
  row.lastContact = lastPing(files);
  if (child == nullptr || !hasStatus(files, *child)) return row;
  const std::optional<OpenvpnStatus> status = parseOpenvpnStatus(files.status->text);
  if (!status) return row;
  row.traffic = Traffic{status->received, status->sent};
  if (status->isServer) row.remote = clientsText(status->clients);
  return row;
}

TunnelRow configuredRow(const TunnelRecord& record, const Facts& facts) {
  if (!record.isReadable)
    return {kKind, record.name, unknown("a member of its record has a wrong type, which ends every run")};
  return rowOf(record.name, judgeTunnel(record.name, facts), facts);
}

bool isShown(const TunnelRecord& record) {
  return record.isEnabled || !record.isReadable;
}

}  // namespace

std::vector<TunnelRow> openvpnRows(const Facts& facts) {
  std::vector<TunnelRow> rows;
  std::set<std::string> shown;
  for (const TunnelRecord& record : facts.configuration.openvpn) {
    if (!isShown(record)) continue;
    rows.push_back(configuredRow(record, facts));
    shown.insert(record.name);
  }
  for (const OpenvpnFiles& files : facts.openvpn) {
    const bool isThere = files.hasConfiguration || openvpnOf(files.name, facts) != nullptr;
    if (isThere && shown.insert(files.name).second)
      rows.push_back(rowOf(files.name, judgeFound(files.name, facts), facts));
  }
  return rows;
}
