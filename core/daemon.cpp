#include "core/daemon.h"

#include <signal.h>

#include <cstdlib>
#include <optional>

#include "api/wan_list.h"
#include "core/single_instance.h"
#include "core/tunnel_management_run.h"
#include "effects/blocked_signals.h"
#include "effects/effects.h"
#include "monitors/fqdn_monitor.h"
#include "monitors/refresh_request.h"
#include "openvpn/connectivity_check.h"
#include "support/footprint.h"
#include "support/log_tag.h"
#include "support/logger.h"

std::unique_ptr<WanMonitor> wanMonitor;
time_t now = 0;
time_t lastOvpnCheck = 0;

namespace {

/// How long the loop sleeps when nothing happens. It bounds how late a stop is seen.
constexpr unsigned int kLoopMilliseconds = 200;

/// A supervision pass begins when more than this has passed since the last one began.
constexpr time_t kSupervisionSeconds = 10;

void startFqdnMonitors() {
  ZEL_LOG(INFO, "[%s] v_apFqdnMonitor size %i", kLogTag, static_cast<int>(v_apFqdnMonitor.size()));
  for (const auto& monitor : v_apFqdnMonitor) monitor->start();
}

void stopFqdnMonitors() {
  for (const auto& monitor : v_apFqdnMonitor) monitor->stop();
  v_apFqdnMonitor.clear();
}

/// While a run is under way, nothing is known of what the tunnels are built on, and so after one that has failed.
void performRun() {
  const ZEL::FreeMemoryReturn afterIt;
  wanMonitor->setWanOfTunnels(std::nullopt);
  if (manageTunnels()) wanMonitor->setWanOfTunnels(currentWanIp);
}

void refresh() {
  stopFqdnMonitors();
  performRun();
  startFqdnMonitors();
}

/// A request is consumed before its run begins: one that comes during the run causes another, and a run that throws is
/// not repeated at once.
void obeyRequests() {
  if (refreshPending == 0) refreshCondition->wait(kLoopMilliseconds);
  if (!stopped && refreshPending.exchange(0) != 0) refresh();
}

/// Whether a supervision pass would keep something waiting that matters more.
bool passGivesWay() {
  return stopped || isRefreshWanted();
}

/// The time is the wall clock's: after a step back there is no pass until the clock has caught up. A pass that would
/// give way before its first tunnel is not one, and is still due when the run is over.
void superviseWhenDue() {
  now = time(nullptr);
  if (now == -1) {
    ZEL_LOG(ERROR, "[%s] Time returned error", kLogTag);
  } else if (now - lastOvpnCheck > kSupervisionSeconds && !passGivesWay()) {
    lastOvpnCheck = now;
    checkOvpnTunnels(passGivesWay);
  }
}

void goRound() {
  obeyRequests();
  if (!stopped) superviseWhenDue();
}

/// Does one step of the daemon's work with the refresh lock held. Whatever it throws costs that step only: a
/// configuration of a wrong type must not end a daemon that nobody would start again.
void guarded(void (*step)()) {
  const ZEL::LockGuard guard(*refreshLock);
  try {
    step();
  } catch (...) {
    // The second letter of the word is a Cyrillic capital A: whoever searches logs for this line has it so.
    ZEL_LOG(ERROR, "[%s] Exception caught w\u0410hile waiting on signal", kLogTag);
  }
}

/// After this no thread of ours runs and no handler is called, so the process can be taken down.
void stopEverything() {
  signal(SIGHUP, SIG_IGN);
  signal(SIGTERM, SIG_IGN);
  wanMonitor->stop();
  stopFqdnMonitors();
  closeInstanceSemaphore();
}

}  // namespace

void onSighup(int sig) {
  if (sig != SIGHUP) return;
  refreshPending = 1;
  refreshCondition->signal();
}

void onSigterm(int sig) {
  if (sig == SIGTERM && !stopped) cleanUp();
}

void becomeDaemon() {
  const BlockedSignals untilHandled;  // a signal that comes before its handler is there waits for it
  if (!effects().detach()) exit(1);
  writePidFile();
  signal(SIGHUP, onSighup);
  signal(SIGTERM, onSigterm);
}

void runDaemon() {
  guarded(performRun);
  ZEL_LOG(INFO, "[%s] STARTING WAN AND FQDN MONITORS", kLogTag);
  wanMonitor->start();
  startFqdnMonitors();
  while (!stopped) guarded(goRound);
  stopEverything();
}
