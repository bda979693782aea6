#include "ipsec/service.h"

#include <chrono>

#include "effects/effects.h"
#include "ipsec/certificate_authentication.h"
#include "ipsec/configuration_store.h"
#include "ipsec/pre_shared_key_authentication.h"
#include "support/log_tag.h"
#include "support/logger.h"
#include "support/system.h"

namespace {

constexpr mode_t kReadableByAll = 0644;

/// What the service is given to come up.
constexpr std::chrono::seconds kStartTime{1};

/// A way in which the ends of a tunnel know each other, and what the log calls it.
struct Authentication {
  bool (*configure)(const Json::Value& tunnel, const std::string& localAddress);
  const char* nameOnSuccess;
  const char* nameOnFailure;
};

constexpr Authentication kCertificate{configureRsaTunnel, "RSASIG", "RSA"};
constexpr Authentication kPreSharedKey{configurePskTunnel, "PSK", "PSK"};

const Authentication& authenticationOf(const Json::Value& tunnel) {
  return tunnel["authMethod"] == "rsasig" ? kCertificate : kPreSharedKey;
}

/// True when the tunnel was written completely.
bool configureTunnel(const Json::Value& tunnel, const std::string& localAddress) {
  const Authentication& authentication = authenticationOf(tunnel);
  const bool configured = authentication.configure(tunnel, localAddress);
  if (configured) {
    ZEL_LOG(DEBUG, "[%s] IPSEC %s tunnel [%s] configured successfully.", kLogTag, authentication.nameOnSuccess,
            tunnel["name"].asCString());
  } else {
    ZEL_LOG(ERROR, "[%s] Failed to configure IPSEC %s tunnel [%s].", kLogTag, authentication.nameOnFailure,
            tunnel["name"].asCString());
  }
  return configured;
}

}  // namespace

int stopIpsec() {
  ZEL_LOG(DEBUG, "[%s] Stopping IPsec", kLogTag);
  return ZEL::System::run("ipsec stop 2>&1");
}

void startIpsec(const std::string& currentWanAddress, const Json::Value& ipsecTunnels) {
  if (!resetIpsecConfiguration()) {
    ZEL_LOG(ERROR, "[%s] Failed to reset ipsec tunnels configuration to default", kLogTag);
    return;
  }
  if (!configureIpsecTunnels(ipsecTunnels, currentWanAddress)) {
    ZEL_LOG(DEBUG, "[%s] There are no ipsec tunnels to start.", kLogTag);
    return;
  }
  ZEL_LOG(DEBUG, "[%s] Starting IPsec", kLogTag);
  ZEL::System::run("ipsec restart");
  effects().pause(kStartTime);
}

bool configureIpsecTunnels(const Json::Value& ipsecTunnels, const std::string& currentWanAddress) {
  ZEL_LOG(DEBUG, "Creating IPsec Configuration Files");
  bool configured = false;
  for (Json::ArrayIndex i = 0; i < ipsecTunnels.size(); ++i) {
    const Json::Value& tunnel = ipsecTunnels[i];
    if (tunnel["enabled"].asBool() && configureTunnel(tunnel, currentWanAddress)) configured = true;
  }
  if (configured) {
    effects().setMode(ipsecConfPath(), kReadableByAll);
    effects().setMode(ipsecSecretsPath(), kReadableByAll);
  }
  return configured;
}
