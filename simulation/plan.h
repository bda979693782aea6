// What happens to the router and to the program in a history, drawn from a seed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "simulation/clock.h"
#include "simulation/fault.h"

namespace simulation {

struct Event {
  enum class Kind {
    kHangUp,         ///< SIGHUP; amount 1: the places of the other threads count, not those of the main one
    kTerminate,      ///< SIGTERM, the same; init starts the daemon again
    kKill,           ///< SIGKILL; the same
    kInvoke,         ///< the program without --daemonize; amount 1: so many places after the next start
    kInvokeDaemon,   ///< and with it
    kWan,            ///< another address, or none: amount 0
    kAddress,        ///< of the host that is the target, or of all: amount, or none: 0
    kConfiguration,  ///< other tunnels
    kChildEnds,      ///< the amount-th
    kClockStep,      ///< amount: seconds
    kStrayTunnel,    ///< somebody makes a tunnel
    kFault,
    kNumber
  };

  Time at;
  Kind kind;
  std::int64_t places = 0;  ///< for what the program is to meet in the middle of things: how many places later
  std::string target{};
  long amount = 0;
  FaultKind fault = FaultKind::kNumber;
  Time duration = 0;
};

struct Plan {
  std::uint64_t seed = 0;      ///< of the events, the configuration and the router's chance
  std::uint64_t schedule = 0;  ///< of the scheduler
  unsigned int tunnels = 3;    ///< of each kind, at most
  int printLevel = 100;
  Time horizon = 0;  ///< when the faults are healed
  std::vector<Event> events{};
};

Plan drawnPlan(std::uint64_t seed);

/// An event every ten minutes, for so many days.
Plan longPlan(std::uint64_t seed, unsigned int days);

/// An event in words.
std::string told(const Event& event);

}  // namespace simulation
