// Everything that a history knows: the router, what is wrong with it, the processes, and the tale of it all.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "simulation/clock.h"
#include "simulation/configuration.h"
#include "simulation/fault.h"
#include "simulation/process.h"
#include "simulation/random.h"
#include "simulation/timeline.h"

namespace simulation {

struct KernelTunnel {
  std::string remote;
  std::string local;
  std::string ttl;
  bool up = false;
  std::vector<std::string> addresses{};
  std::vector<std::string> routes{};
};

struct File {
  std::string text;
  mode_t mode = 0644;
};

/// A child of one of the processes.
struct Child {
  pid_t parent;
  std::vector<std::string> arguments{};  ///< empty until it has become a program
  std::string configuration{};           ///< what its file held then
  bool followsParent = false;
  Time dies = kForever;  ///< when it ends, or ended
  Time told = kForever;  ///< when it was first sent SIGTERM
};

struct IpsecService {
  bool runs = false;
  std::map<std::string, File> loaded{};  ///< the files as they were at its start
};

/// What a history does at the so-manieth place from now, wherever that is.
struct Ambush {
  enum class Whose { kMain, kOthers, kAll };

  unsigned long process;  ///< its number
  Whose whose;            ///< which threads' places count
  std::int64_t places;
  std::function<void()> act;
};

struct World {
  World(std::uint64_t seed, bool isTold) : chance(seed), timeline(isTold) {}

  Random chance;  ///< of the router; the scheduler has its own
  Timeline timeline;
  std::string violation{};

  // The router.
  std::map<std::string, KernelTunnel> tunnels{};
  std::map<std::string, File> files{};
  std::set<std::string> directories{};
  std::set<std::string> semaphores{};
  std::map<pid_t, Child> children{};
  IpsecService ipsec{};
  Configuration configuration{};
  Time clockStep = 0;  ///< what the wall clock has been stepped by
  Time clockSteppedAt = -kMinute;
  bool clockSteppedBack = false;
  unsigned int logGeneration = 0;
  bool hasRoomInLog = false;  ///< somebody has waited for it
  Time logSlowUntil = 0;      ///< until then a line may keep whoever writes one, and all who wait to
  Faults faults{};

  // The program.
  std::list<std::unique_ptr<Process>> processes{};
  std::size_t living = 0;  ///< how many of them have not ended
  std::vector<Ambush> ambushes{};
  pid_t lastPid = 1000;
  std::string lastError{};  ///< the last line of that level that tells of something wrong
  Time lastErrorAt = -1;
  bool wayCleared = false;  ///< an invocation has taken a running instance for gone, and removed its names

  // What there was of it.
  std::uint64_t runs = 0;
  std::uint64_t requests = 0;
  std::uint64_t overlaps = 0;  ///< explained ones, of runs of two processes
};

/// The one of the history that goes on; null outside of histories.
extern World* world;

/// Keeps a line of the log.
void sayLine(const std::string& line);

/// Tells what the current thread does.
void say(const std::string& what);

/// Ends the history: a property does not hold.
[[noreturn]] void violate(const std::string& what);

/// The current thread's process; null for the simulator's own threads.
Process* currentProcess();

Time timeNow();
/// Has the current thread do something that takes time, whatever signals come.
void spend(Time time, const char* reason);

}  // namespace simulation
