#include "tunnelctl/status_facts.h"

#include <algorithm>

#include "openvpn/configuration.h"

namespace {

/// Where `--config` and the file stand among the arguments of a child is the daemon's own choice
/// (openvpn/supervision.h).
bool runs(const Process& process, const std::string& file) {
  return process.arguments.size() > 2 && process.arguments[1] == "--config" && process.arguments[2] == file;
}

bool isName(const std::string& host) {
  return !host.empty() && !parseAddress(host);
}

bool lacksPeer(const TunnelRecord& record, const Facts& facts) {
  return std::any_of(facts.connections.begin(), facts.connections.end(), [&record](const WrittenConnection& written) {
    return written.right.empty() && tunnelOf(written) == record.name;
  });
}

}  // namespace

bool isConfigurationKnown(const Facts& facts) {
  return facts.apiComplaint.empty();
}

bool areDevicesKnown(const Facts& facts) {
  return facts.devicesStatus == 0;
}

bool areRoutesKnown(const Facts& facts) {
  return facts.routesStatus == 0;
}

const Process* openvpnOf(const std::string& name, const Facts& facts) {
  const std::string file = composeOvpnFile(name, "", "").conf.confFile;
  const auto found = std::find_if(facts.processes.begin(), facts.processes.end(),
                                  [&file](const Process& process) { return runs(process, file); });
  return found == facts.processes.end() ? nullptr : &*found;
}

const Device* deviceOf(const std::string& name, const Facts& facts) {
  const std::vector<Device>& devices = facts.devices;
  const auto found =
      std::find_if(devices.begin(), devices.end(), [&name](const Device& device) { return device.name == name; });
  return found == devices.end() ? nullptr : &*found;
}

std::vector<std::string> hostsToLookUp(const Facts& facts) {
  std::vector<std::string> hosts;
  if (facts.configuration.wan.empty()) return hosts;
  for (const TunnelRecord& record : facts.configuration.gre) {
    const bool isMissing = areDevicesKnown(facts) && deviceOf(record.name, facts) == nullptr;
    if (record.isEnabled && isName(record.host) && isMissing) hosts.push_back(record.host);
  }
  for (const TunnelRecord& record : facts.configuration.ipsec) {
    if (record.isEnabled && isName(record.host) && lacksPeer(record, facts)) hosts.push_back(record.host);
  }
  return hosts;
}
