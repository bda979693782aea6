#include "tunnelctl/status_gathering.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <functional>
#include <memory>
#include <set>
#include <utility>

#include "core/single_instance.h"
#include "effects/effects.h"
#include "ipsec/configuration_store.h"
#include "monitors/name_resolution.h"
#include "openvpn/configuration.h"
#include "openvpn/option_text.h"
#include "support/cancellation.h"
#include "support/native_thread.h"
#include "support/system.h"
#include "support/text.h"
#include "tunnelctl/complaint.h"
#include "tunnelctl/documents.h"
#include "tunnelctl/folder.h"

namespace {

constexpr const char* kRunFolder = "/var/run";
constexpr const char* kDeviceCounters = "/proc/net/dev";

/// Performs a call that may block for long. False when the time has passed; the call is then left to itself, so it must
/// own all that it touches. It must not throw.
bool endsWithin(std::chrono::milliseconds time, std::function<void()> call) {
  const auto cancellation = std::make_shared<ZEL::Cancellation>();
  const auto watch = [cancellation, time] {
    cancellation->sleep(time);
    cancellation->cancel();
  };
  if (!ZEL::spawnThread(ZEL::kThreadStackBytes, watch, nullptr)) return false;
  const bool ended = cancellation->runAside(ZEL::kParserStackBytes, std::move(call));
  cancellation->cancel();
  return ended;
}

struct Fetched {
  Configuration configuration{};
  std::string complaint{};
};

void fetch(Fetched& fetched) {
  try {
    fetched.configuration = readConfiguration(fetchDocuments());
  } catch (const Complaint& complaint) {
    fetched.complaint = complaint.what();
  }
}

void askApi(std::chrono::milliseconds patience, Facts& facts) {
  const auto fetched = std::make_shared<Fetched>();
  if (!endsWithin(patience, [fetched] { fetch(*fetched); })) {
    facts.apiComplaint = "the configuration API does not answer in time";
    return;
  }
  facts.configuration = std::move(fetched->configuration);
  facts.apiComplaint = std::move(fetched->complaint);
}

/// A name that has no address by the end of its time counts as one without.
void lookUpHosts(std::chrono::milliseconds patience, Facts& facts) {
  const std::vector<std::string> hosts = hostsToLookUp(facts);
  const auto found = std::make_shared<std::map<std::string, Resolution>>();
  const bool ended = hosts.empty() || endsWithin(patience, [hosts, found] { *found = resolveHosts(hosts); });
  for (const std::string& host : hosts) facts.addresses[host] = ended ? (*found)[host].address : "";
}

std::optional<std::string> contentsOf(const std::string& path) {
  std::string text;
  if (ZEL::System::readFile(path, text) != 0) return std::nullopt;
  return text;
}

/// Asks `ip` in JSON, and where it knows none in plain text. Returns its exit status, or kNoAnswer.
template <class Item>
int askIp(std::chrono::milliseconds patience, const std::string& options, const std::string& question,
          bool (*parseJson)(const std::string&, std::vector<Item>&), std::vector<Item> (*parse)(const std::string&),
          std::vector<Item>& items) {
  std::string output;
  int status = effects().askWithin(patience, "ip " + options + " " + question + " 2>/dev/null", output);
  if (status == kNoAnswer || (status == 0 && parseJson(output, items))) return status;
  status = effects().askWithin(patience, "ip " + question + " 2>/dev/null", output);
  if (status == 0) items = parse(output);
  return status;
}

void askKernel(std::chrono::milliseconds patience, Facts& facts) {
  facts.devicesStatus = askIp(patience, "-j -s -d", "addr", parseDevicesJson, parseDevices, facts.devices);
  facts.routesStatus = askIp(patience, "-j", "route show table all", parseRoutesJson, parseRoutes, facts.routes);
  const bool hasTraffic = std::any_of(facts.devices.begin(), facts.devices.end(),
                                      [](const Device& device) { return device.traffic.has_value(); });
  if (!hasTraffic) addTraffic(facts.devices, contentsOf(kDeviceCounters).value_or(""));
}

void askIpsec(std::chrono::milliseconds patience, Facts& facts) {
  std::string output;
  facts.ipsecStatus = effects().askWithin(patience, "ipsec statusall 2>/dev/null", output);
  facts.isIpsecRunning = parseIpsecStatus(output, facts.ipsec);
  facts.connections = parseIpsecConf(contentsOf(ipsecConfPath()).value_or(""));
}

void readMarks(Facts& facts) {
  struct stat ignored {};
  facts.marks.hasSemaphore = stat((kSemaphores + instanceName).c_str(), &ignored) == 0;
  facts.marks.pidFile = contentsOf(pidFilePath);
}

std::optional<TimedText> timedTextOf(const std::string& path) {
  struct stat file {};
  std::optional<std::string> text = contentsOf(path);
  if (!text || stat(path.c_str(), &file) != 0) return std::nullopt;
  return TimedText{std::move(*text), file.st_mtime};
}

OpenvpnFiles openvpnFilesOf(const std::string& name) {
  const OvpnConf paths = composeOvpnFile(name, "", "").conf;
  OpenvpnFiles files;
  files.name = name;
  if (const std::optional<std::string> text = contentsOf(paths.confFile)) {
    files.hasConfiguration = true;
    getConfigOption(*text, "dev", files.device);
    getConfigOption(*text, "remote", files.remote);
    files.remote = files.remote.substr(0, files.remote.find(' '));
    files.pingAddress = composeOvpnFile(name, *text, "").conf.pingAddress;
  }
  files.status = timedTextOf(paths.statusFile);
  files.isStatusForbidden = !files.status && access(paths.statusFile.c_str(), R_OK) != 0 && errno == EACCES;
  files.connect = timedTextOf(paths.connectFile);
  return files;
}

/// Adds the tunnel whose configuration this is, if it is one.
void addTunnelOf(const std::string& path, std::set<std::string>& names) {
  constexpr std::string_view beginning = "/var/run/openvpn_";
  constexpr std::string_view end = ".conf";
  if (path.size() < beginning.size() + end.size() || !ZEL::Text::beginsWith(path, beginning)) return;
  const std::size_t size = path.size() - beginning.size() - end.size();
  if (path.compare(beginning.size() + size, end.size(), end) == 0) names.insert(path.substr(beginning.size(), size));
}

std::set<std::string> openvpnTunnels(const Facts& facts) {
  std::set<std::string> names;
  for (const std::string& name : namesIn(kRunFolder)) addTunnelOf(ZEL::Text::joined({kRunFolder, "/", name}), names);
  for (const Process& process : facts.processes) {
    if (process.arguments.size() > 2) addTunnelOf(process.arguments[2], names);
  }
  for (const TunnelRecord& record : facts.configuration.openvpn) names.insert(record.name);
  return names;
}

}  // namespace

Facts gatherFacts(std::chrono::milliseconds patience) {
  Facts facts;
  facts.isRoot = geteuid() == 0;
  askApi(patience, facts);
  askKernel(patience, facts);
  askIpsec(patience, facts);
  lookUpHosts(patience, facts);
  readMarks(facts);
  facts.processes = readProcesses();
  for (const std::string& name : openvpnTunnels(facts)) facts.openvpn.push_back(openvpnFilesOf(name));
  facts.now = time(nullptr);
  return facts;
}
