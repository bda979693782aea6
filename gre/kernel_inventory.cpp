#include "gre/kernel_inventory.h"

#include <algorithm>
#include <array>

#include "support/log_tag.h"
#include "support/logger.h"
#include "support/system.h"
#include "support/text.h"

namespace {

/// No line that tells of a tunnel is shorter.
constexpr std::size_t kShortestLine = 10;

bool isKernelsOwn(const std::string& name) {
  return name == "tunl0" || name == "gre0";
}

}  // namespace

Json::Value parseKernelTunnels(const std::string& output) {
  Json::Value tunnels(Json::arrayValue);
  std::string name;
  std::string mode;
  std::string keyword;
  std::string remoteIp;
  std::string localIp;
  std::string ttl;
  const std::array<std::string*, 8> fields{&name, &mode, &keyword, &remoteIp, &keyword, &localIp, &keyword, &ttl};
  for (const std::string& line : ZEL::Text::split(output, "\n", 0)) {
    if (line.size() < kShortestLine) continue;
    ZEL_LOG(TRACE, "[%s] LINE: [%s]", kLogTag, line.c_str());
    const std::vector<std::string> words = ZEL::Text::words(line);
    for (std::size_t i = 0; i < std::min(words.size(), fields.size()); ++i) *fields[i] = words[i];
    name = ZEL::Text::trim(name, ':');
    if (isKernelsOwn(name) || mode != "gre/ip") continue;
    Json::Value tunnel;
    tunnel["name"] = name;
    tunnel["remoteIp"] = remoteIp;
    tunnel["localIp"] = localIp;
    tunnel["ttl"] = ttl;
    tunnels.append(std::move(tunnel));
  }
  return tunnels;
}

bool parseCurrentGreTunnels(Json::Value& tunnels, std::vector<std::string>& names) {
  std::string output;
  const int status = ZEL::System::cmd("ip tunnel", output);
  if (status != 0) {
    ZEL_LOG(ERROR, "[%s] error executing ip tunnel command [%d]", kLogTag, status);
    return false;
  }
  ZEL_LOG(TRACE, "[%s] -- PARSING CURRENT GRE TUNNELS --", kLogTag);
  tunnels = parseKernelTunnels(output);
  for (const Json::Value& tunnel : tunnels) names.push_back(tunnel["name"].asString());
  return true;
}
