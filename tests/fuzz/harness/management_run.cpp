#include "tests/fuzz/harness/management_run.h"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "api/wan_list.h"
#include "core/tunnel_management_run.h"
#include "ipsec/configuration_store.h"
#include "monitors/fqdn_monitor.h"
#include "openvpn/configuration.h"
#include "openvpn/supervision.h"
#include "tests/fuzz/harness/documents.h"
#include "tests/fuzz/harness/require.h"
#include "tests/fuzz/harness/router.h"

namespace {

/// The order in which a run does its work.
enum Step { kTeardown, kStopping, kCreation, kReset, kRestart, kFirewall, kUnknown };

struct Beginning {
  const char* text;
  Step step;
};

/// How the commands of a run begin. There are no others.
constexpr std::array<Beginning, 10> kBeginnings{{{"ip link set ", kTeardown},
                                                 {"ip tunnel del ", kTeardown},
                                                 {"ipsec stop 2>&1", kStopping},
                                                 {"ip tunnel add ", kCreation},
                                                 {"ip link set ", kCreation},
                                                 {"ip addr add ", kCreation},
                                                 {"ip route add ", kCreation},
                                                 {"rm -rf /var/run/ipsec/", kReset},
                                                 {"ipsec restart", kRestart},
                                                 {"firewall --init", kFirewall}}};

bool beginsWith(const std::string& text, const std::string& beginning) {
  return text.rfind(beginning, 0) == 0;
}

bool endsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

/// The first step, from a given one on, that has such a command.
Step stepOf(const std::string& command, Step from) {
  for (const Beginning& row : kBeginnings) {
    if (row.step >= from && beginsWith(command, row.text)) return row.step;
  }
  return kUnknown;
}

std::size_t countCommands(const std::string& command) {
  const std::vector<std::string> commands = router.deeds.commands();
  return static_cast<std::size_t>(std::count(commands.begin(), commands.end(), command));
}

void requireOrder() {
  Step step = kTeardown;
  for (const std::string& command : router.deeds.commands()) {
    step = stepOf(command, step);
    require(step != kUnknown, "every command is one of a run's, in its order");
  }
  for (const char* once : {"ipsec stop 2>&1", "ipsec restart", "firewall --init"})
    require(countCommands(once) <= 1, "a service is stopped and started once");
}

void requireFilesInTheirPlaces() {
  for (const auto& [path, text] : router.deeds.files) {
    const bool isOpenvpns = beginsWith(path, "/var/run/openvpn_") && endsWith(path, ".conf");
    const bool isPem =
        endsWith(path, ".pem") && (beginsWith(path, caCertsDir() + "/") || beginsWith(path, certsDir() + "/") ||
                                   beginsWith(path, privateKeysDir() + "/"));
    require(isOpenvpns || isPem || path == ipsecConfPath() || path == ipsecSecretsPath(),
            "a file is written where files of its kind lie");
  }
}

void requireWan() {
  if (!currentWanIp.empty()) return;
  require(countCommands("ipsec restart") == 0 && countCommands("firewall --init") == 0 &&
              router.deeds.count(Act::Kind::kStart) == 0 && v_apFqdnMonitor.empty(),
          "nothing is started without a WAN");
}

void requireMonitors() {
  for (const auto& monitor : v_apFqdnMonitor) {
    require(monitor->tunnelName().find(' ') == std::string::npos, "a tunnel's name has no blank");
    require(monitor->name() == "FQDN_MONITOR:" + monitor->tunnelName(), "a monitor is named after its tunnel");
    const std::uint32_t minutes = monitor->checkInterval() / 60000;
    require(minutes >= 1 && minutes <= 0xFFFF && minutes * 60000 == monitor->checkInterval(),
            "an interval is a number of minutes that fits 16 bits");
  }
}

void requireIpsecService() {
  const bool started = countCommands("ipsec restart") == 1;
  require(started == (router.deeds.modes.size() == 2), "the files are readable by all when the service is started");
  for (const auto& [path, mode] : router.deeds.modes) require(mode == 0644, "a file's mode is 0644");
  require(router.deeds.count(Act::Kind::kPause) == (started ? 1 : 0),
          "the service is given its second when it is started");
}

std::size_t countText(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t found = text.find(part); found != std::string::npos; found = text.find(part, found + 1)) ++count;
  return count;
}

/// Whether texts that begin with kSecret are keys and nothing else, as far as the bytes of what the router has tell: a
/// letter that is escaped is not recognised.
bool hasSecretsInKeysOnly() {
  std::size_t all = countText(router.listing.output, kSecret);
  std::size_t keys = 0;
  for (const auto& [url, answer] : router.answers) {
    if (countText(answer, "\\u") > 0) return false;
    all += countText(answer, kSecret);
    for (const char* member : {"psk", "localPrivKey", "config"})
      keys += countText(answer, "\"" + std::string(member) + "\":\"" + kSecret);
  }
  return all == keys;
}

/// Keys are never logged, nor passed on in commands, which every user sees. The message that shows a whole value, for
/// want of a number, may show one that has such members.
void requireSecrecy() {
  if (!hasSecretsInKeysOnly()) return;
  for (const Message& message : router.log) {
    require(countText(message.text, kSecret) == 0 || countText(message.text, "Unable to parse number") == 1,
            "a key is not logged");
  }
  for (const std::string& command : router.deeds.subjects(Act::Kind::kRun))
    require(countText(command, kSecret) == 0, "a key stands in no command");
}

bool run() {
  v_apFqdnMonitor.clear();
  router.forget();
  bool result = false;
  const bool ended = endsUnlessOfWrongType([&result] { result = manageTunnels(); });
  if (!router.hasNullBytes()) {
    requireOrder();
    requireFilesInTheirPlaces();
  }
  requireWan();
  requireMonitors();
  requireIpsecService();
  requireSecrecy();
  if (ended) {
    require(countCommands("firewall --init") == (result && !currentWanIp.empty() ? 1 : 0),
            "a run that came to its end has set up the firewall");
  }
  return ended;
}

/// All that a run did, but for ending the children of the one before.
std::vector<Act> actsOfItsOwn() {
  std::vector<Act> acts;
  for (const Act& act : router.deeds.acts) {
    if (act.kind != Act::Kind::kSignal) acts.push_back(act);
  }
  return acts;
}

}  // namespace

void superviseRun() {
  currentWanIp.clear();
  Conf::tunnels().clear();
  supervisedTunnels.clear();
  const bool ended = run();
  const std::vector<Act> acts = actsOfItsOwn();
  const std::vector<Message> log = router.log;
  require(run() == ended && actsOfItsOwn() == acts && router.log == log, "a run depends on nothing of the one before");
}
