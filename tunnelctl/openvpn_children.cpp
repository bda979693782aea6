#include "tunnelctl/openvpn_children.h"

#include "core/single_instance.h"
#include "support/system.h"
#include "support/text.h"
#include "tunnelctl/processes.h"

namespace {

/// The file of an openvpn that was started as this program does, or "".
std::string configurationOf(const std::vector<std::string>& words) {
  const bool isOpenvpn = words.size() > 3 && words[0] == "openvpn" && words[1] == "--config" && words[3] == "--status";
  return isOpenvpn ? words[2] : "";
}

}  // namespace

std::vector<std::pair<pid_t, std::string>> openvpnChildrenOf(pid_t parent) {
  std::vector<std::pair<pid_t, std::string>> children;
  for (const Process& process : readProcesses()) {
    const std::string file = process.parent == parent ? configurationOf(process.arguments) : "";
    if (!file.empty()) children.emplace_back(process.pid, file);
  }
  return children;
}

pid_t processOfPidFile() {
  int pid = 0;
  std::string contents;
  ZEL::System::readFile(pidFilePath, contents);
  return ZEL::Text::parse(pid, ZEL::Text::trim(contents)) && pid > 0 ? pid : 0;
}
