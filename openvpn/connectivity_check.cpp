#include "openvpn/connectivity_check.h"

#include "effects/effects.h"
#include "openvpn/supervision.h"
#include "support/log_tag.h"
#include "support/logger.h"
#include "support/system.h"
#include "support/text.h"

namespace {

constexpr int kPingCount = 3;

void lookAfter(OvpnTnl& tunnel) {
  if (!tunnel.isRunning()) {
    tunnel.restart();
  } else if (tunnel.pingCheck) {
    tunnel.ping();
  }
}

}  // namespace

void OvpnTnl::ping() {
  if (pingAddress.empty()) return;
  ZEL_LOG(ERROR, "[%s][OVPN] ping %s", kLogTag, pingAddress.c_str());
  const bool reached = ZEL::System::run(pingCommand(pingAddress)) == 0;
  effects().writeFile(connectFile, reached ? "connected" : "");  // a file that cannot be written is nobody's loss here
}

void checkOvpnTunnels() {
  checkOvpnTunnels([] { return false; });
}

void checkOvpnTunnels(bool (*givesWay)()) {
  for (OvpnTnl& tunnel : supervisedTunnels) {
    if (givesWay()) return;
    lookAfter(tunnel);
  }
}

std::string pingCommand(const std::string& address) {
  return "ping -c " + ZEL::Text::format(kPingCount) + " " + address;
}
