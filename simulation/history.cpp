#include "simulation/history.h"

#include <signal.h>

#include <algorithm>
#include <iterator>

#include "simulation/ending.h"
#include "simulation/init.h"
#include "simulation/process.h"
#include "simulation/router.h"
#include "simulation/world.h"

namespace simulation {
namespace {

/// Has a process, if there is one, meet something so many places later.
void ambush(const Event& event, Ambush::Whose whose, const std::function<void(Process&)>& act) {
  for (const auto& process : world->processes) {
    if (process->ended || (whose != Ambush::Whose::kAll && !process->detached)) continue;
    Process* const met = process.get();
    world->ambushes.push_back({met->number, whose, event.places, [act, met] { act(*met); }});
    return;
  }
}

void sendLater(const Event& event, int signal) {
  const Ambush::Whose whose = event.amount == 0 ? Ambush::Whose::kMain : Ambush::Whose::kOthers;
  ambush(event, whose, [signal](Process& process) {
    world->timeline.note(timeNow(), "world", "sends " + process.label() + " signal " + std::to_string(signal));
    sendSignal(process.pid, signal);
  });
}

/// At once, or in the middle of whatever is started next.
void invoke(const Event& event, int printLevel) {
  const auto start = [printLevel] { startProgram({"tunnel_mngr", "-p", std::to_string(printLevel)}); };
  if (event.amount == 0) return start();
  world->ambushes.push_back({world->processes.size() + 1, Ambush::Whose::kAll, event.places, start});
}

void endChild(long index) {
  std::vector<Child*> living;
  for (auto& [pid, child] : world->children) {
    if (child.dies > timeNow()) living.push_back(&child);
  }
  if (!living.empty()) living[static_cast<std::size_t>(index) % living.size()]->dies = timeNow();
}

std::string addressText(const char* network, long number) {
  return number == 0 ? "" : network + std::to_string(number);
}

/// A host, or all of them, to other addresses.
void move(const Event& event) {
  for (auto& [host, address] : world->configuration.addresses) {
    if (event.target.empty() || event.target == host) address = addressText("192.0.2.", event.amount);
  }
}

void beginFault(const Event& event) {
  if (event.fault == FaultKind::kLogAway) ++world->logGeneration;
  if (event.fault == FaultKind::kLogSlow || event.fault == FaultKind::kLogDeaf)
    world->logSlowUntil = std::max(world->logSlowUntil, timeNow() + event.duration);
  world->faults.add({event.fault, timeNow() + event.duration, event.target, event.amount});
}

void perform(const Event& event, const Plan& plan) {
  say(told(event));
  switch (event.kind) {
    case Event::Kind::kHangUp:
      return sendLater(event, SIGHUP);
    case Event::Kind::kTerminate:
      return sendLater(event, SIGTERM);
    case Event::Kind::kKill:
      return ambush(event, Ambush::Whose::kAll, killProcess);
    case Event::Kind::kInvoke:
      return invoke(event, plan.printLevel);
    case Event::Kind::kInvokeDaemon:
      return static_cast<void>(startDaemon(plan.printLevel));
    case Event::Kind::kWan:
      return static_cast<void>(world->configuration.wan = addressText("198.51.100.", event.amount));
    case Event::Kind::kAddress:
      return move(event);
    case Event::Kind::kConfiguration: {
      Random random(plan.seed + static_cast<std::uint64_t>(event.amount));
      return world->configuration.redraw(random, plan.tunnels);
    }
    case Event::Kind::kChildEnds:
      return endChild(event.amount);
    case Event::Kind::kClockStep:
      world->clockSteppedAt = timeNow();
      world->clockSteppedBack = world->clockSteppedBack || event.amount < 0;
      return static_cast<void>(world->clockStep += event.amount * kSecond);
    case Event::Kind::kStrayTunnel:
      return static_cast<void>(world->tunnels.emplace("stray", KernelTunnel{"192.0.2.99", "198.51.100.99", "7"}));
    case Event::Kind::kFault:
      return beginFault(event);
    case Event::Kind::kNumber:
      return;
  }
}

void carryOut(const Plan& plan) {
  Random random(plan.seed);
  world->configuration = Configuration::drawn(random, plan.tunnels);
  Init init(plan.printLevel);
  for (const Event& event : plan.events) {
    sleepUntil(event.at);
    perform(event, plan);
  }
  sleepUntil(plan.horizon);
  init.stop();
  bringToItsEnd(plan);
}

std::string waitingThreads() {
  std::string text;
  for (const auto& process : world->processes) {
    for (const Thread* const thread : scheduler->threadsOf(*process))
      text += (text.empty() ? "" : ", ") + thread->name + " for " + thread->reason;
  }
  return text;
}

Outcome outcomeOf(const World& ended, const Scheduler& its) {
  Outcome outcome;
  outcome.violation = ended.violation;
  outcome.digest = ended.timeline.digest() ^ (its.points() * 0x9e3779b97f4a7c15U);
  outcome.time = its.now();
  outcome.places = its.points();
  outcome.switches = its.switches();
  outcome.runs = ended.runs;
  outcome.requests = ended.requests;
  outcome.overlaps = ended.overlaps;
  outcome.processes = ended.processes.size();
  return outcome;
}

}  // namespace

Outcome performHistory(const Plan& plan, Telling telling) {
  World its(plan.seed ^ plan.schedule, telling == Telling::kAtOnce);
  Scheduler scheduling(plan.schedule);
  world = &its;
  unloadProcess();
  scheduling.onDeadlock = [] { violate("deadlock: nobody can go on; waiting: " + waitingThreads()); };
  scheduling.onEndless = [] { violate("a circle in which no time passes"); };
  try {
    carryOut(plan);
  } catch (const GivenUp&) {
  }
  Outcome outcome = outcomeOf(its, scheduling);
  world = nullptr;
  return outcome;
}

}  // namespace simulation
