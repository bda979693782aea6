#include "core/tunnel_management_run.h"

#include <json/value.h>

#include <string>
#include <vector>

#include "api/wan_list.h"
#include "configuration/configuration_pull.h"
#include "gre/kernel_inventory.h"
#include "gre/tunnel_creation.h"
#include "gre/tunnel_teardown.h"
#include "ipsec/service.h"
#include "openvpn/configuration.h"
#include "openvpn/supervision.h"
#include "support/log_tag.h"
#include "support/logger.h"
#include "support/system.h"

namespace {

/// Removes every GRE tunnel of the kernel, configured or not. False when they could not be listed.
bool destroyKernelTunnels() {
  Json::Value currentTunnels(Json::arrayValue);
  std::vector<std::string> currentTunnelNames;
  if (!parseCurrentGreTunnels(currentTunnels, currentTunnelNames)) return false;
  for (const std::string& name : currentTunnelNames) destroyTunnel(name);
  return true;
}

bool readOpenvpnConfiguration() {
  if (Conf::init()) return true;
  ZEL_LOG(ERROR, "[%s] Failed read config", kLogTag);
  return false;
}

bool findWan() {
  currentWanIp = queryCurrentWanAddress();
  if (!currentWanIp.empty()) return true;
  ZEL_LOG(INFO, "[%s] WAN Not Acquired. Tunnels will not be setup until WAN is available.", kLogTag);
  return false;
}

void createGreTunnels(const Json::Value& tunnels) {
  if (tunnels.empty()) ZEL_LOG(TRACE, "[%s] No GRE Tunnels configured", kLogTag);
  for (Json::ArrayIndex i = 0; i < tunnels.size(); ++i) {
    const Json::Value& tunnel = tunnels[i];
    if (tunnel["enabled"].asBool()) {
      createGreTunnel(tunnel);
    } else {
      ZEL_LOG(TRACE, "[%s] Tunnel [%s] is not enabled", kLogTag, tunnel["name"].asString().c_str());
    }
  }
}

}  // namespace

bool manageTunnels() {
  ZEL_LOG(INFO, "[%s] MANAGING TUNNELS", kLogTag);
  if (!destroyKernelTunnels()) return false;
  if (!readOpenvpnConfiguration()) return false;
  stopIpsec();
  stopOvpnTunnels();
  if (!findWan()) return true;
  Json::Value greTunnels(Json::arrayValue);
  Json::Value ipsecTunnels(Json::arrayValue);
  if (!pullConfigurations(greTunnels, ipsecTunnels)) return false;
  createGreTunnels(greTunnels);
  startIpsec(currentWanIp, ipsecTunnels);
  ZEL::System::run("firewall --init");
  startOvpnTunnels();
  return true;
}
