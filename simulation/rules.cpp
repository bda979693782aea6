#include "simulation/rules.h"

#include <signal.h>

#include <algorithm>
#include <utility>

#include "api/wan_list.h"
#include "simulation/text.h"
#include "simulation/world.h"

namespace simulation {
namespace {

/// What the program may take of its own accord, beyond what the world keeps it waiting for.
constexpr Time kEndBound = 1500 * kMillisecond;
constexpr Time kStopBound = 1500 * kMillisecond;
/// More than ten seconds of the wall clock, which counts whole ones, lie between two passes.
constexpr Time kPace = 9 * kSecond;
/// A step of that clock is seen by the pass after the one that goes on.
constexpr Time kStepSeen = kMinute;
constexpr Time kReapBound = 100 * kMillisecond;

/// An exit status from here on is that of a process that a signal has ended.
constexpr int kSignalled = 128;

/// How often a pass may begin another ping after something better was wanted: once, if it had looked before.
constexpr unsigned int kPingsThatMayFollow = 1;

std::string seconds(Time time) {
  return std::to_string(static_cast<double>(time) / static_cast<double>(kSecond)) + " s";
}

void want(Process& process) {
  if (process.watch.wanted) return;
  process.watch.wanted = true;
  process.watch.pingsSinceWanted = 0;
}

/// The part of the time since then for which a line of the log may be the reason.
Time slowLogSince(Time since) {
  return std::max<Time>(0, std::min(timeNow(), world->logSlowUntil + 2 * kSecond) - since);
}

void lookAtPing(Watch& watch, const std::string& what) {
  if (watch.wanted && ++watch.pingsSinceWanted > kPingsThatMayFollow)
    violate("a pass goes on though a run or the end is wanted");
  if (!std::exchange(watch.beginsPass, false)) return;
  const bool isSoon = watch.passBegan >= 0 && timeNow() - watch.passBegan < kPace;
  const bool isExplained = timeNow() - world->clockSteppedAt <= kStepSeen || slowLogSince(watch.passBegan) > 0;
  if (isSoon && !isExplained) violate("passes follow each other too fast: " + what);
  watch.passBegan = timeNow();
}

void requireEndInTime(const Process& process) {
  const Watch& watch = process.watch;
  if (watch.terminated == kForever) return;
  const Time took = timeNow() - watch.terminated - (process.explainedUntilNow() - watch.explainedThen) -
                    slowLogSince(watch.terminated);
  if (took > kEndBound)
    violate("SIGTERM, and no end after " + seconds(took) + " for which nothing but the program is the reason");
}

void runEnds(Watch& watch) {
  watch.inRun = false;
  if (watch.soughtWan && (currentWanIp.empty() || watch.ranFirewall)) watch.wanOfTunnels = currentWanIp;
}

/// Those that there may have been: what they ask is nobody's any more.
void endMonitors(Watch& watch) {
  ++watch.monitorsEnded;
  watch.nameMonitors = 0;
  watch.movedAt = kForever;
}

}  // namespace

void ruleSignalSent(Process& process, int signal) {
  if (signal != SIGHUP || process.handlers[SIGHUP] == SIG_IGN) return;
  ++world->requests;
  ++process.watch.requests;
  process.watch.requestOpen = std::min(process.watch.requestOpen, timeNow());
}

void ruleHandlerBegins(Process& process, int signal) {
  want(process);
  if (signal != SIGTERM || process.watch.terminated != kForever) return;
  process.watch.terminated = timeNow();
  process.watch.explainedThen = process.explainedUntilNow();
}

void ruleRequest(Process& process) {
  ++world->requests;
  ++process.watch.requests;
  process.watch.requestOpen = std::min(process.watch.requestOpen, timeNow());
  process.watch.movedAt = kForever;
  say("requests a run");
}

void ruleLockRefused(Process& process) {
  want(process);
}

void ruleIdleBegins(Process& process) {
  requireEndInTime(process);
  process.watch.idle = true;
  process.watch.beginsPass = true;
  if (process.watch.inRun) runEnds(process.watch);
  if (process.watch.descriptorsAtRest == 0) process.watch.descriptorsAtRest = process.openDescriptors();
}

/// Whoever has made a request before the loop began to wait, and is still to be obeyed when all of the waiting is over,
/// has been forgotten.
void ruleIdleEnds(Process& process, Time since, bool timedOut) {
  Watch& watch = process.watch;
  watch.idle = false;
  if (!timedOut) return;
  ++watch.idleRounds;
  if (watch.terminated == kForever && watch.requestOpen <= since && process.pending == 0)
    violate("a request is lost: made at " + seconds(watch.requestOpen) + ", no run has begun since");
  if (watch.terminated == kForever && watch.movedAt + slowLogSince(watch.movedAt) <= since)
    violate("a monitor has found " + watch.movedHost + " elsewhere and requests nothing");
  if (watch.runs > 0) watch.requests = watch.runs - 1;  // what was folded into one run allows no other
  if (watch.runs > 0 && watch.requestOpen != kForever) ++watch.requests;
  watch.wanted = false;
}

void ruleAct(Process& process, const std::string& what) {
  if (process.child == 0 && &scheduler->current() != process.main)
    violate("a thread that is not the main one acts: " + what);
  if (startsWith(what, "runs ipsec stop")) process.watch.supervisedFiles.clear();
  if (what == "runs firewall --init") {
    process.watch.supervisedFiles = process.watch.writtenFiles;
    process.watch.ranFirewall = true;
  }
  if (startsWith(what, "runs ip tunnel add ") && what.find(" local " + currentWanIp + " ") == std::string::npos)
    violate("a tunnel is built on another WAN than " + currentWanIp + ": " + what);
  if (startsWith(what, "runs ping ")) lookAtPing(process.watch, what);
}

void ruleAsks(Process& process, const std::string& url) {
  if (&scheduler->current() == process.main && url == wanInfoUrl) process.watch.soughtWan = true;
}

void ruleFileWritten(Process& process, const std::string& path) {
  if (startsWith(path, "/var/run/openvpn_")) process.watch.writtenFiles.insert(path);
}

void ruleRunBegins(Process& process) {
  Watch& watch = process.watch;
  ++world->runs;
  ++watch.runs;
  watch.inRun = true;
  watch.wanted = false;
  watch.requestOpen = kForever;
  watch.addresses.clear();
  endMonitors(watch);
  watch.writtenFiles.clear();
  watch.soughtWan = watch.ranFirewall = false;
  watch.wanOfTunnels.reset();
  if (watch.runs > watch.requests + 1) violate("a run begins that nobody has requested");
  for (const auto& other : world->processes) {
    if (other.get() == &process || other->ended || !other->watch.inRun) continue;
    ++world->overlaps;
    const bool oneIsToEnd = other->watch.terminated != kForever || watch.terminated != kForever;
    if (!world->wayCleared && !oneIsToEnd)
      violate("the runs of " + process.label() + " and " + other->label() + " overlap");
  }
}

/// A run that cannot even begin, for want of memory, was one: it is not repeated. One that cannot go on ends there.
void ruleMemoryRefused(Process& process) {
  process.watch.memoryRefused = true;
  process.watch.supervisedFiles.clear();
  process.watch.soughtWan = false;
  process.watch.wanOfTunnels.reset();
  process.watch.requestOpen = kForever;
  process.watch.wanted = false;
  endMonitors(process.watch);
}

void ruleDaemonBegins(Process& process) {
  for (const auto& other : world->processes) {
    if (other.get() == &process || !other->isDaemon() || other->watch.terminated != kForever) continue;
    if (!world->wayCleared) violate(process.label() + " becomes a second daemon beside " + other->label());
  }
}

/// An invocation that cannot reach the instance takes it for gone, and removes its names.
void ruleWayCleared(Process& process) {
  if (process.isInstance) return;
  for (const auto& other : world->processes) {
    if (other.get() != &process && !other->ended && other->isInstance) world->wayCleared = true;
  }
}

void ruleChildReaped(const Child& child) {
  if (child.told == kForever || child.dies <= child.told) return;
  const Time took = timeNow() - child.dies;
  if (took > kReapBound) violate("a child that has ended is seen " + seconds(took) + " later");
}

void ruleOrphaned(const Child& child) {
  const bool isProgram = !child.arguments.empty();
  if (isProgram && !child.followsParent) violate("a child outlives its parent, since the kernel does not tell it");
}

/// What a thread may still need must not go; a call that has ended its work needs nothing.
void ruleGlobalsGo(const Process& process) {
  const Outside outside;
  const std::vector<Thread*> threads = scheduler->threadsOf(process);
  const bool hasMonitor = std::any_of(threads.begin(), threads.end(), [&process](const Thread* one) {
    return one != process.main && one->name != "call";
  });
  if (hasMonitor || process.watch.insideLibraries > 0)
    violate("the process's globals go while other threads need them");
}

void requireChildren(const Process& daemon) {
  if (world->clockSteppedBack) return;  // no pass until the clock has caught up
  for (const std::string& file : daemon.watch.supervisedFiles) {
    const bool lives = std::any_of(world->children.begin(), world->children.end(), [&](const auto& entry) {
      const Child& child = entry.second;
      return child.parent == daemon.pid && child.dies > timeNow() && child.arguments.size() > 2 &&
             child.arguments[2] == file;
    });
    if (!lives) violate("in the end nobody has started the tunnel of " + file + " again");
  }
}

/// A daemon ends because it is told to, and in order; not by itself, whatever goes wrong.
void ruleEnds(Process& process, int status) {
  process.watch.inRun = false;
  if (!process.detached || status >= kSignalled) return;
  if (process.watch.terminated == kForever || status != 0)
    violate("the daemon ends by itself, with status " + std::to_string(status));
  requireEndInTime(process);
}

LookUp::LookUp(Process& process, std::string host)
    : process_(process),
      host_(std::move(host)),
      monitorsEnded_(process.watch.monitorsEnded),
      isRuns_(process.watch.inRun) {}

/// Two tunnels of one run may have been told two addresses. Where no monitor has begun since the run, the call is of
/// one from before it, and nobody waits for it.
void LookUp::finds(const std::string& address) const {
  Watch& watch = process_.watch;
  if (watch.monitorsEnded != monitorsEnded_) return;
  std::set<std::string>& known = watch.addresses[host_];
  if (isRuns_) known.insert(address);
  if (known.count(address) > 0 || watch.nameMonitors == 0) return;
  watch.movedHost = host_;
  watch.movedAt = std::min(watch.movedAt, timeNow());
}

Joining::Joining(Process& process, const Thread* thread)
    : process_(process), since_(timeNow()), name_(thread == nullptr ? "" : thread->name) {
  if (scheduler->current().handlers > 0) violate("a signal handler waits for the end of a thread");
  const bool explains = name_ == "call" && process.watch.waitsSince < 0;  // a resolver of a run
  if (explains) process.watch.waitsSince = since_;
}

Joining::~Joining() {
  if (name_ == "call") {
    process_.watch.explained += timeNow() - since_;
    process_.watch.waitsSince = -1;
  } else if (timeNow() - since_ - slowLogSince(since_) > kStopBound) {
    violate("stopping " + name_ + " takes " + seconds(timeNow() - since_));
  }
}

}  // namespace simulation
