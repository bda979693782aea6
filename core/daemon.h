// The process as a daemon.
#pragma once

#include <memory>

#include "monitors/wan_monitor.h"

/// The WAN monitor: made at start-up, started and stopped by the daemon. Main thread only.
extern std::unique_ptr<WanMonitor> wanMonitor;

/// Leaves the terminal: the calling process ends with status 0, its child returns from here in a session of its own,
/// with a PID file and with handlers for SIGHUP (refresh) and SIGTERM (end). Ends the process with status 1 when that
/// is impossible. Call it before any thread is started.
void becomeDaemon();

/// Performs a first run, starts the monitors, and obeys refresh requests until SIGTERM. Tunnels are left as they are.
void runDaemon();
