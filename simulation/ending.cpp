#include "simulation/ending.h"

#include <signal.h>

#include <algorithm>
#include <set>

#include "simulation/init.h"
#include "simulation/process.h"
#include "simulation/rules.h"
#include "simulation/snapshot.h"
#include "simulation/text.h"
#include "simulation/world.h"

namespace simulation {
namespace {

/// What is under way when the faults are healed has been given its time before.
constexpr Time kLongestRest = 15 * kMinute;
constexpr Time kLookAgain = 50 * kMillisecond;
/// The WAN monitor looks every 30 seconds.
constexpr Time kMonitorsHaveLooked = 31 * kSecond;
/// A request that meets silence fails after 60 seconds, and the WAN monitor has made its last of these by then.
constexpr Time kCallsHaveEnded = 62 * kSecond;
constexpr int kMostStarts = 4;

void require(bool holds, const std::string& otherwise) {
  if (!holds) violate("in the end " + otherwise);
}

template <class Condition>
bool comesTrue(Time patience, const Condition& condition) {
  for (const Time end = timeNow() + patience; !condition(); sleepUntil(timeNow() + kLookAgain)) {
    if (timeNow() >= end) return false;
  }
  return true;
}

bool hasRest(const Process& daemon) {
  return daemon.watch.idle && daemon.watch.requestOpen == kForever && daemon.pending == 0;
}

std::vector<Process*> living() {
  std::vector<Process*> found;
  for (const auto& process : world->processes) {
    if (!process->ended) found.push_back(process.get());
  }
  return found;
}

/// Two daemons, where that is explained, need not rest at the same time: their passes may take turns for ever.
void settle() {
  std::set<const Process*> rested;
  const bool settled = comesTrue(kLongestRest, [&rested] {
    const std::vector<Process*> processes = living();
    return std::all_of(processes.begin(), processes.end(), [&rested](const Process* one) {
      if (one->detached && hasRest(*one)) rested.insert(one);
      if (one->watch.inRun || one->watch.requestOpen != kForever) rested.erase(one);
      return rested.count(one) > 0;
    });
  });
  require(settled, "the daemon does not come to rest");
}

bool isReachable(const Process& daemon) {
  const auto file = world->files.find("/var/run/tunnel_mngr.pid");
  return world->semaphores.count("TUNNEL_MANAGER") > 0 && file != world->files.end() &&
         file->second.text == std::to_string(daemon.pid) + "\n";
}

void endAll() {
  for (Process* const process : living()) {
    if (process->detached) {
      sendSignal(process->pid, SIGTERM);
    } else {
      killProcess(*process);
    }
  }
  require(comesTrue(kLongestRest, [] { return living().empty(); }), "a process outlives SIGTERM");
}

/// Whoever starts the program tries again until it is there: what a process that was killed has left is in the way
/// once.
Process& started(int printLevel) {
  for (int left = kMostStarts; left > 0; --left) {
    Process& process = startDaemon(printLevel);
    require(comesTrue(kLongestRest, [&process] { return process.status.has_value(); }), "a start does not end");
    if (process.detached) return process;
  }
  violate("in the end the daemon cannot be started");
}

/// Exactly one, that an invocation reaches: where the faults have left another state, somebody stops what there is and
/// starts it once.
Process& theOneDaemon(int printLevel) {
  settle();
  const std::vector<Process*> processes = living();
  if (processes.size() == 1 && isReachable(*processes.front())) return *processes.front();
  require(processes.size() < 2 || world->wayCleared, "there are " + std::to_string(processes.size()) + " daemons");
  endAll();
  world->wayCleared = false;
  Process& daemon = started(printLevel);
  settle();
  return daemon;
}

void refresh(const Process& daemon, int printLevel) {
  const std::uint64_t before = daemon.watch.runs;
  const Time begin = timeNow();
  if (world->chance.chance(50)) {
    Process& invocation = startProgram({"tunnel_mngr", "-p", std::to_string(printLevel)});
    require(comesTrue(kMinute, [&invocation] { return invocation.ended; }), "an invocation does not end");
    require(invocation.status == 0, "an invocation does not reach the daemon");
  } else {
    sendSignal(daemon.pid, SIGHUP);
  }
  settle();
  require(daemon.watch.runs > before, "a refresh makes no run");
  sleepUntil(timeNow() + kMonitorsHaveLooked);
  settle();
  require(world->lastErrorAt < begin, "there is an ERROR: " + world->lastError);
}

std::size_t threadsNamed(const Process& daemon, const std::string& beginning) {
  const std::vector<Thread*> threads = scheduler->threadsOf(daemon);
  return static_cast<std::size_t>(std::count_if(
      threads.begin(), threads.end(), [&beginning](const Thread* one) { return startsWith(one->name, beginning); }));
}

/// Whatever happened to the runs, the threads that would bring about the next one are there.
void requireMonitors(const Process& daemon) {
  require(threadsNamed(daemon, "WAN_MONITOR") == 1 || !daemon.watch.hasWanMonitor, "the WAN monitor is gone");
  require(threadsNamed(daemon, "FQDN_MONITOR") >= daemon.watch.nameMonitors, "a name monitor is gone");
}

/// By itself, however looks and runs met the faults: the look under way may still have failed, the next one sees it.
void requireWan(const Process& daemon) {
  const auto isCurrent = [&daemon] {
    return daemon.watch.wanOfTunnels.value_or(world->configuration.wan) == world->configuration.wan;
  };
  require(!daemon.watch.hasWanMonitor || comesTrue(2 * kMonitorsHaveLooked, isCurrent),
          "what the last run has built is not built on the current WAN");
  settle();
}

void requireThreads(const Process& daemon) {
  require(comesTrue(kMinute, [&daemon] { return threadsNamed(daemon, "call") == 0; }),
          "a call of a monitor does not end");
  require(daemon.watch.hasWanMonitor || daemon.watch.threadRefused, "there is no WAN monitor");
  const std::size_t expected = 1 + (daemon.watch.hasWanMonitor ? 1 : 0) + world->configuration.watched();
  const std::size_t number = scheduler->threadsOf(daemon).size();
  require(number == expected, "there are " + std::to_string(number) + " threads, not " + std::to_string(expected));
}

void requireNothingLeft(const Process& daemon) {
  requireThreads(daemon);
  require(daemon.openDescriptors() == daemon.watch.descriptorsAtRest,
          "there are " + std::to_string(daemon.openDescriptors()) + " descriptors, not " +
              std::to_string(daemon.watch.descriptorsAtRest));
  for (const auto& [pid, child] : world->children)
    require(child.parent != daemon.pid || child.dies > timeNow(), "child " + std::to_string(pid) + " is not reaped");
}

void requireOrderlyEnd(const Process& daemon) {
  const pid_t pid = daemon.pid;
  sendSignal(pid, SIGTERM);
  require(comesTrue(kMinute, [&daemon] { return daemon.ended; }), "SIGTERM does not end the daemon");
  require(daemon.endStatus == 0, "the daemon ends with status " + std::to_string(daemon.endStatus));
  require(world->semaphores.empty(), "the semaphore is still there");
  require(world->files.count("/var/run/tunnel_mngr.pid") == 0, "the PID file is still there");
}

/// What a run makes of a fresh router with the same configuration.
Snapshot ofFreshRouter(const Plan& plan, const World& before) {
  World fresh(plan.seed, false);
  fresh.configuration = before.configuration;
  World* const kept = world;
  world = &fresh;
  try {
    Process& daemon = started(plan.printLevel);
    settle();
    Snapshot snapshot = snapshotOf(daemon);
    killProcess(daemon);
    world = kept;
    return snapshot;
  } catch (const GivenUp&) {
    kept->violation = "on a fresh router: " + fresh.violation;
    world = kept;
    throw;
  }
}

}  // namespace

void bringToItsEnd(const Plan& plan) {
  say("everything is healed");
  world->faults.heal();
  world->logSlowUntil = std::min(world->logSlowUntil, timeNow());
  world->ambushes.clear();
  if (world->configuration.wan.empty()) world->configuration.wan = "198.51.100.1";
  sleepUntil(timeNow() + kCallsHaveEnded);
  const Process& daemon = theOneDaemon(plan.printLevel);
  requireChildren(daemon);
  requireMonitors(daemon);
  requireWan(daemon);
  refresh(daemon, plan.printLevel);
  requireNothingLeft(daemon);
  const Snapshot now = snapshotOf(daemon);
  requireOrderlyEnd(daemon);
  const std::string difference = differenceBetween(now, ofFreshRouter(plan, *world));
  require(difference.empty(), "the router is not what a run on a fresh one would have made: " + difference);
}

}  // namespace simulation
