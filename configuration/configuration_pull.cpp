#include "configuration/configuration_pull.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "api/query.h"
#include "configuration/local_networks.h"
#include "monitors/fqdn_monitor.h"
#include "monitors/name_resolution.h"
#include "monitors/refresh_request.h"
#include "support/log_tag.h"
#include "support/logger.h"
#include "support/text.h"

const std::string configUrl = API_HOST "/api?fields=greTunnels,ipsecTunnels,ni";

namespace {

using Resolutions = std::map<std::string, Resolution>;

constexpr std::uint32_t kMillisecondsPerMinute = 60000;

/// What differs between the records of the two kinds of tunnels.
struct TunnelKind {
  const char* label;
  const char* hostKey;
};

constexpr TunnelKind kGre{"GRE", "remoteIp"};
constexpr TunnelKind kIpsec{"ipsec", "remoteWanIp"};

/// Appends the host of every record that has one. What cannot be read is passed over here and met again, in its turn,
/// when the record is normalised.
void collectHosts(const Json::Value& tunnels, const TunnelKind& kind, std::vector<std::string>& hosts) {
  for (const Json::Value& tunnel : tunnels) {
    if (!tunnel.isObject() && !tunnel.isNull()) continue;
    const Json::Value& host = tunnel[kind.hostKey];
    if (host.isConvertibleTo(Json::stringValue)) hosts.push_back(host.asString());
  }
}

void appendMonitor(const std::string& name, const std::string& host, const std::string& address, unsigned int period) {
  v_apFqdnMonitor.push_back(std::make_unique<FqdnMonitor>(refreshLock, refreshCondition,
                                                          ZEL::AutoPtr<ZEL::Lock>(new ZEL::Lock), host, address, name,
                                                          period * kMillisecondsPerMinute));
}

void normalise(Json::Value& tunnel, const TunnelKind& kind, const Resolutions& resolutions) {
  const std::string name = ZEL::Text::replace(tunnel["name"].asString(), " ", "_");
  tunnel["name"] = name;
  const std::string host = tunnel[kind.hostKey].asString();
  const Resolution& resolution = resolutions.at(host);
  logResolutionFailure(host, resolution);
  if (tunnel["enabled"].asBool()) {
    const unsigned int period = checkPeriodMinutes(tunnel["checkPeriod"]);
    ZEL_LOG(INFO, "[%s] %s tunnel [%s][%s] period %i", kLogTag, kind.label, host.c_str(), resolution.address.c_str(),
            static_cast<int>(period));
    appendMonitor(name, host, resolution.address, period);
  } else {
    ZEL_LOG(INFO, "[%s] %s tunnel [%s] disabled", kLogTag, kind.label, name.c_str());
  }
  tunnel[kind.hostKey] = resolution.address;
}

}  // namespace

unsigned int checkPeriodMinutes(const Json::Value& checkPeriod) {
  const auto period = static_cast<std::uint16_t>(checkPeriod.asUInt());
  return period == 0 ? 1 : period;
}

bool pullConfigurations(Json::Value& greTunnels, Json::Value& ipsecTunnels) {
  ZEL_LOG(INFO, "Pulling Current Configurations");
  Json::Value result;
  if (!queryApi(configUrl, result)) return false;
  greTunnels.swap(result["greTunnels"]);
  ipsecTunnels.swap(result["ipsecTunnels"]);

  std::vector<std::string> hosts;
  collectHosts(greTunnels, kGre, hosts);
  collectHosts(ipsecTunnels, kIpsec, hosts);
  const Resolutions resolutions = resolveHosts(hosts);

  for (Json::ArrayIndex i = 0; i < greTunnels.size(); ++i) normalise(greTunnels[i], kGre, resolutions);
  const Json::Value networks = localNetworks(result["ni"]["nis"]);
  for (Json::ArrayIndex i = 0; i < ipsecTunnels.size(); ++i) {
    normalise(ipsecTunnels[i], kIpsec, resolutions);
    ipsecTunnels[i]["localIpWithCidr"] = networks;
  }
  return true;
}
