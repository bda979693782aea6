#include "tunnelctl/openvpn_children.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "core/single_instance.h"
#include "support/system.h"
#include "support/text.h"

namespace {

std::string contentsOf(const std::string& path) {
  std::string contents;
  ZEL::System::readFile(path, contents);
  return contents;
}

/// The second number behind the name, which stands in parentheses and may hold anything.
pid_t parentOf(const std::string& stat) {
  const std::size_t end = stat.rfind(')');
  if (end == std::string::npos || stat.size() < end + 4) return 0;
  return static_cast<pid_t>(strtol(stat.c_str() + end + 4, nullptr, 10));
}

/// The file of an openvpn that has these arguments, each ended by a null byte, or "".
std::string configurationOf(const std::string& arguments) {
  const std::vector<std::string> words = ZEL::Text::split(arguments, std::string(1, '\0'), 0);
  const bool isOpenvpn = words.size() > 3 && words[0] == "openvpn" && words[1] == "--config" && words[3] == "--status";
  return isOpenvpn ? words[2] : "";
}

}  // namespace

std::vector<std::pair<pid_t, std::string>> openvpnChildrenOf(pid_t parent) {
  std::vector<std::pair<pid_t, std::string>> children;
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator("/proc", ignored)) {
    int pid = 0;
    if (!ZEL::Text::parse(pid, entry.path().filename()) || parentOf(contentsOf(entry.path() / "stat")) != parent)
      continue;
    const std::string file = configurationOf(contentsOf(entry.path() / "cmdline"));
    if (!file.empty()) children.emplace_back(pid, file);
  }
  std::sort(children.begin(), children.end());
  return children;
}

pid_t processOfPidFile() {
  int pid = 0;
  return ZEL::Text::parse(pid, ZEL::Text::trim(contentsOf(pidFilePath))) && pid > 0 ? pid : 0;
}
