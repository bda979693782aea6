// The tunnel manager: brings a router's tunnels into line with its configuration, once or as a daemon.

#include <signal.h>
#include <unistd.h>

#include <cstdio>

#include "api/wan_list.h"
#include "core/command_line.h"
#include "core/daemon.h"
#include "core/single_instance.h"
#include "core/tunnel_management_run.h"
#include "effects/standard_streams.h"
#include "monitors/refresh_request.h"
#include "support/cancellation.h"
#include "support/footprint.h"
#include "support/log_tag.h"
#include "support/logger.h"

namespace {

void setUpLog() {
  ZEL::Logger::setPrintLevel(ZEL::Logger::PrintLevel::ERROR_LEVEL, true);
  if (ZEL::Logger::setup(3, kLogTag, 0, 0)) return;
  ZEL::Logger::setup(1);
  ZEL::Logger::printfWarning("[%s] Unable to log to Syslog", kLogTag);
}

void manageTunnelsOnce() {
  manageTunnels();
  if (!stopped) cleanUp();
  closeInstanceSemaphore();
}

}  // namespace

int main(int argc, char** argv) {
  signal(SIGCHLD, SIG_DFL);  // or no status could be had of anything, where whoever starts this one ignores it
  openStandardStreams();
  ZEL::keepFootprintSmall();
  setUpLog();
  parseOptions(argc, argv);
  signalRunningInstance();
  wanMonitor = std::make_unique<WanMonitor>(refreshLock, refreshCondition, queryCurrentWanAddress());
  if (daemonize) {
    becomeDaemon();
    runDaemon();
  } else {
    manageTunnelsOnce();
  }
  if (ZEL::Cancellation::callsUnderWay() == 0) return 0;
  // A call that a monitor abandoned may still be inside a library whose globals a return from here would destroy.
  fflush(stdout);
  _exit(0);
}
