// The process as a daemon.
#pragma once

#include <ctime>
#include <memory>

#include "monitors/wan_monitor.h"

/// The WAN monitor: made at start-up, started and stopped by the daemon. Main thread only.
extern std::unique_ptr<WanMonitor> wanMonitor;

/// The wall clock's time of the loop's current pass, and of the last supervision pass; 0 before the first. Main thread
/// only.
extern time_t now;
extern time_t lastOvpnCheck;

/// The signal handlers: SIGHUP requests a refresh, SIGTERM has the loop end; other numbers are ignored.
/// Async-signal-safe as far as `cleanUp` is.
void onSighup(int sig);
void onSigterm(int sig);

/// Leaves the terminal: the calling process ends with status 0, its child returns from here in a session of its own,
/// with a PID file and with handlers for SIGHUP (refresh) and SIGTERM (end). Ends the process with status 1 when that
/// is impossible. Call it before any thread is started.
void becomeDaemon();

/// Performs a first run, starts the monitors, and obeys refresh requests until SIGTERM. Tunnels are left as they are.
void runDaemon();
