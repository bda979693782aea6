// What is wrong with the router, for a time.
#pragma once

#include <string>
#include <vector>

#include "simulation/clock.h"

namespace simulation {

enum class FaultKind {
  kApiSlow,       ///< amount: milliseconds for each answer
  kApiSilent,     ///< takes connections and says nothing
  kApiGone,       ///< takes no connections
  kApiHalf,       ///< closes in the middle of an answer
  kApiError,      ///< answers with an error code
  kApiGarbage,    ///< answers with no JSON
  kApiWrongType,  ///< answers with a document of another shape; target: the end of its URL
  kNamesSlow,     ///< amount: milliseconds for each answer
  kNamesFail,     ///< amount: which of the resolver's errors
  kCommandFails,  ///< target: the program
  kCommandSlow,   ///< target: the program; amount: milliseconds
  kChildDeaf,     ///< children do not obey SIGTERM
  kChildShort,    ///< children that start end at once
  kExecFails,     ///< no openvpn to be had
  kDiskFull,
  kDiskReadOnly,
  kNoFork,
  kNoThread,
  kNoDescriptor,
  kNoMemory,      ///< amount: how many of ten thousand allocations of the main thread fail
  kNoSemaphores,  ///< neither made nor removed
  kLogAway,
  kLogDeaf,  ///< takes no more lines
  kLogSlow,  ///< amount: milliseconds until there is room for a line
  kNumber
};

struct Fault {
  FaultKind kind;
  Time until;
  std::string target{};
  long amount = 0;
};

class Faults {
 public:
  void add(Fault fault);
  void heal() { faults_.clear(); }

  /// The one of that kind that is there now, or null. The target that is asked for ends with the fault's, if it has
  /// one.
  const Fault* find(FaultKind kind, const std::string& target = "") const;
  bool has(FaultKind kind, const std::string& target = "") const { return find(kind, target) != nullptr; }
  bool empty() const { return faults_.empty(); }

 private:
  std::vector<Fault> faults_;
};

}  // namespace simulation
