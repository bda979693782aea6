// The next management run, performed without doing anything.
#pragma once

#include <json/value.h>

#include <optional>
#include <string>
#include <vector>

#include "tunnelctl/planned_effects.h"

/// A line that the run logs, and how many acts come before it.
struct PlannedLine {
  int level;
  std::string label;
  std::string text;
  std::size_t actsBefore;
};

/// How the GRE tunnels that the run creates stand to those that the kernel has: by name, and by both ends and TTL.
struct TunnelChanges {
  std::size_t fresh = 0;
  std::size_t gone = 0;
  std::size_t other = 0;
  std::size_t same = 0;
};

struct Plan {
  enum class Outcome {
    kDone,    ///< to its end, or to where it ends without a WAN
    kFailed,  ///< a step failed on which the rest depends
    kThrew,   ///< a member of the configuration has a type that cannot be converted
  };

  Outcome outcome = Outcome::kDone;
  PlannedEffects deeds;
  std::vector<PlannedLine> log;       ///< every level
  std::vector<std::string> culprits;  ///< of a run that does not come to its end: what is wrong, and where
  bool hasWan = false;
  TunnelChanges tunnels;
};

/// From where the run takes what it reads.
struct PlanSources {
  std::optional<Json::Value> documents;  ///< in place of the configuration API
  bool offline = false;                  ///< no name is looked up: "head.example" has the address "<head.example>"
  std::vector<std::pair<pid_t, std::string>> children;  ///< the openvpn children that run, with their files
};

/// Performs a run of the program's own code with the way of acting that notes. The kernel's tunnels are really listed.
/// Main thread only, once in a process.
Plan planRun(const PlanSources& sources);
