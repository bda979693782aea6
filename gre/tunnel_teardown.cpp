#include "gre/tunnel_teardown.h"

#include "api/log_tag.h"
#include "gre/command.h"
#include "support/logger.h"

bool destroyTunnel(const std::string& name) {
  ZEL_LOG(INFO, "[%s] DESTROYING TUNNEL: %s", kLogTag, name.c_str());
  runCommand("ip link set " + name + " down");
  runCommand("ip tunnel del " + name);
  return true;
}
