#include "openvpn/connectivity_check.h"

#include "api/log_tag.h"
#include "openvpn/supervision.h"
#include "support/logger.h"
#include "support/system.h"
#include "support/text.h"
#include "support/whole_file.h"

namespace {

constexpr int kPingCount = 3;

}  // namespace

void OvpnTnl::ping() {
  if (pingAddress.empty()) return;
  ZEL_LOG(ERROR, "[%s][OVPN] ping %s", kLogTag, pingAddress.c_str());
  const bool reached = ZEL::System::run(pingCommand(pingAddress)) == 0;
  ZEL::writeWholeFile(connectFile, reached ? "connected" : "");  // a file that cannot be written is nobody's loss here
}

void checkOvpnTunnels() {
  for (OvpnTnl& tunnel : supervisedTunnels) {
    if (!tunnel.isRunning()) {
      tunnel.restart();
    } else if (tunnel.pingCheck) {
      tunnel.ping();
    }
  }
}

std::string pingCommand(const std::string& address) {
  return "ping -c " + ZEL::Text::format(kPingCount) + " " + address;
}
