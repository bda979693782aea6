#include "simulation/plan.h"

#include <algorithm>
#include <array>

#include "simulation/configuration.h"
#include "simulation/random.h"

namespace simulation {
namespace {

using Kind = Event::Kind;

constexpr std::array<const char*, 5> kPrograms{"ip", "ipsec", "ping", "firewall", "rm"};
/// The ends of their URLs; all of them have the first.
constexpr std::array<const char*, 5> kDocuments{"", "wans", "ni", "ovpnTunnels", "syslog"};
/// Of ten thousand: many end a run early, few let it come to its end with a chance of being met there.
constexpr std::array<int, 5> kRefusals{3, 10, 30, 100, 300};
constexpr std::array<int, 4> kPrintLevels{100, 100, 50, 0};

struct Weight {
  Kind kind;
  unsigned int weight;
};

constexpr std::array<Weight, 12> kWeights{{{Kind::kHangUp, 16},
                                           {Kind::kTerminate, 3},
                                           {Kind::kKill, 3},
                                           {Kind::kInvoke, 8},
                                           {Kind::kInvokeDaemon, 2},
                                           {Kind::kWan, 10},
                                           {Kind::kAddress, 12},
                                           {Kind::kConfiguration, 4},
                                           {Kind::kChildEnds, 8},
                                           {Kind::kClockStep, 3},
                                           {Kind::kStrayTunnel, 2},
                                           {Kind::kFault, 40}}};

/// Not every history has every kind: one with little in it shows what many things at once hide.
std::vector<FaultKind> drawnFaultKinds(Random& random) {
  std::vector<FaultKind> kinds;
  const unsigned int percent = random.chance(30) ? 100 : static_cast<unsigned int>(random.between(5, 60));
  for (int kind = 0; kind < static_cast<int>(FaultKind::kNumber); ++kind) {
    if (random.chance(percent)) kinds.push_back(static_cast<FaultKind>(kind));
  }
  return kinds;
}

Kind drawnKind(Random& random, bool withFaults) {
  for (;;) {
    auto rest = static_cast<unsigned int>(random.below(111));
    for (const Weight& row : kWeights) {
      if (rest < row.weight && (row.kind != Kind::kFault || withFaults)) return row.kind;
      rest -= std::min(rest, row.weight);
    }
  }
}

void drawFault(Random& random, const std::vector<FaultKind>& kinds, Event& event) {
  event.fault = kinds[random.below(kinds.size())];
  event.duration = random.between(500, random.chance(20) ? 90000 : 15000) * kMillisecond;
  switch (event.fault) {
    case FaultKind::kCommandFails:
    case FaultKind::kCommandSlow:
      event.target = kPrograms[random.below(kPrograms.size())];
      event.amount = random.between(100, 12000);
      break;
    case FaultKind::kApiWrongType:
      event.target = kDocuments[random.below(kDocuments.size())];
      break;
    case FaultKind::kApiSlow:
      event.amount = random.between(50, 8000);
      break;
    case FaultKind::kNamesSlow:
      event.amount = random.between(50, 40000);
      break;
    case FaultKind::kNamesFail:
      event.amount = random.between(0, 4);
      break;
    case FaultKind::kLogSlow:
      event.amount = random.between(1, 900);
      break;
    case FaultKind::kNoMemory:
      event.amount = kRefusals[random.below(kRefusals.size())];
      break;
    default:
      break;
  }
}

Event drawnEvent(Random& random, Time at, const std::vector<FaultKind>& faults) {
  Event event{at, drawnKind(random, !faults.empty())};
  event.places = random.chance(20) ? random.between(0, 600) : random.between(0, 60);
  switch (event.kind) {
    case Kind::kInvoke:
    case Kind::kHangUp:
    case Kind::kTerminate:
      event.amount = random.chance(35) ? 1 : 0;
      break;
    case Kind::kWan:
      event.amount = random.between(0, 3);
      break;
    case Kind::kAddress:
      if (random.chance(75)) event.target = hostNames()[random.below(hostNames().size())];
      event.amount = random.between(0, 9);
      break;
    case Kind::kConfiguration:
    case Kind::kChildEnds:
      event.amount = random.between(0, 1000);
      break;
    case Kind::kClockStep:
      event.amount = random.between(-60, 7200);
      break;
    case Kind::kFault:
      drawFault(random, faults, event);
      break;
    default:
      break;
  }
  return event;
}

/// Two things wrong at once, for long.
void addCompanion(Random& random, const std::vector<FaultKind>& kinds, Plan& plan) {
  Event other = plan.events.back();
  other.target.clear();
  drawFault(random, kinds, other);
  other.duration = plan.events.back().duration = random.between(15, 90) * kSecond;
  plan.events.push_back(other);
}

Plan emptyPlan(std::uint64_t seed, Random& random) {
  Plan plan;
  plan.seed = seed;
  plan.schedule = random.next();
  plan.tunnels = static_cast<unsigned int>(random.between(0, 3));
  plan.printLevel = kPrintLevels[random.below(kPrintLevels.size())];
  return plan;
}

std::string secondsText(Time time) {
  return std::to_string(time / kSecond) + "." + std::to_string(time / (100 * kMillisecond) % 10) + " s";
}

constexpr std::array<const char*, static_cast<std::size_t>(Kind::kNumber)> kNames{"SIGHUP",
                                                                                  "SIGTERM",
                                                                                  "SIGKILL",
                                                                                  "an invocation",
                                                                                  "an invocation with --daemonize",
                                                                                  "the WAN becomes",
                                                                                  "the address becomes, of",
                                                                                  "other tunnels are configured",
                                                                                  "a child ends",
                                                                                  "the clock is stepped",
                                                                                  "somebody makes a tunnel",
                                                                                  "fault"};

constexpr std::array<const char*, static_cast<std::size_t>(FaultKind::kNumber)> kFaultNames{{"API slow",
                                                                                             "API silent",
                                                                                             "API gone",
                                                                                             "API answers by halves",
                                                                                             "API errors",
                                                                                             "API garbage",
                                                                                             "API wrong type",
                                                                                             "names slow",
                                                                                             "names fail",
                                                                                             "command fails",
                                                                                             "command slow",
                                                                                             "children deaf",
                                                                                             "children end at once",
                                                                                             "openvpn missing",
                                                                                             "disk full",
                                                                                             "disk read-only",
                                                                                             "no fork",
                                                                                             "no thread",
                                                                                             "no descriptor",
                                                                                             "no memory",
                                                                                             "no semaphores",
                                                                                             "log away",
                                                                                             "log deaf",
                                                                                             "log slow"}};

}  // namespace

Plan drawnPlan(std::uint64_t seed) {
  Random random(seed);
  Plan plan = emptyPlan(seed, random);
  plan.horizon = random.between(20, 200) * kSecond;
  const std::vector<FaultKind> faults = drawnFaultKinds(random);
  Time last = 0;
  for (std::int64_t number = random.between(1, 24); number > 0; --number) {
    const bool follows = random.chance(40);
    const Time at = follows ? std::min(last + random.between(0, 1500) * kMillisecond, plan.horizon)
                            : random.between(0, plan.horizon / kMillisecond) * kMillisecond;
    last = at;
    plan.events.push_back(drawnEvent(random, at, faults));
    if (plan.events.back().kind == Kind::kFault && random.chance(30)) addCompanion(random, faults, plan);
  }
  std::stable_sort(plan.events.begin(), plan.events.end(), [](const Event& a, const Event& b) { return a.at < b.at; });
  return plan;
}

Plan longPlan(std::uint64_t seed, unsigned int days) {
  constexpr Time kPace = 10 * kMinute;
  Random random(seed);
  Plan plan = emptyPlan(seed, random);
  plan.tunnels = 3;
  plan.printLevel = 0;
  plan.horizon = Time{days} * 24 * 60 * kMinute;
  std::vector<FaultKind> faults(static_cast<std::size_t>(FaultKind::kNumber));
  for (std::size_t kind = 0; kind < faults.size(); ++kind) faults[kind] = static_cast<FaultKind>(kind);
  for (Time at = kPace; at <= plan.horizon; at += kPace) plan.events.push_back(drawnEvent(random, at, faults));
  return plan;
}

std::string told(const Event& event) {
  std::string text = kNames[static_cast<std::size_t>(event.kind)];
  if (event.kind == Kind::kFault)
    text +=
        " (" + std::string(kFaultNames[static_cast<std::size_t>(event.fault)]) + ") for " + secondsText(event.duration);
  if (!event.target.empty()) text += " " + event.target;
  if (event.kind <= Kind::kKill)
    return text + " " + std::to_string(event.places) + (event.amount == 0 ? "" : " of the other threads'") +
           " places later";
  if (event.kind == Kind::kInvoke && event.amount != 0)
    return text + " " + std::to_string(event.places) + " places after the next start";
  return event.amount == 0 ? text : text + " " + std::to_string(event.amount);
}

}  // namespace simulation
