#include "gre/tunnel_teardown.h"

#include "gre/command.h"
#include "support/log_tag.h"
#include "support/logger.h"

bool destroyTunnel(const std::string& name) {
  ZEL_LOG(INFO, "[%s] DESTROYING TUNNEL: %s", kLogTag, name.c_str());
  runCommand("ip link set " + name + " down");
  runCommand("ip tunnel del " + name);
  return true;
}
