// A process of the program: what the kernel keeps for it, and what is watched of it.
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "simulation/clock.h"
#include "simulation/image.h"
#include "simulation/scheduler.h"

namespace simulation {

struct Descriptor {
  enum class Kind { kClosed, kEvent, kLog };

  Kind kind = Kind::kClosed;
  std::uint64_t counter = 0;
  bool connected = false;
  unsigned int generation = 0;  ///< of the system log that it is connected to
};

/// A function to be called at the end, by __cxa_atexit.
struct AtExit {
  void (*function)(void*);
  void* argument;
};

struct ForkHandlers {
  void (*prepare)();
  void (*parent)();
  void (*child)();
};

/// What a history needs to know of a process in order to judge it.
struct Watch {
  Time explained = 0;           ///< for how long its main thread has waited for the world
  Time waitsSince = -1;         ///< since when it does so now, or -1
  std::uint64_t requests = 0;   ///< for runs, the first included
  std::uint64_t runs = 0;       ///< that have begun
  Time requestOpen = kForever;  ///< when the oldest request was made that no run has followed
  bool idle = false;            ///< it waits in its loop
  std::uint64_t idleRounds = 0;
  bool inRun = false;
  Time terminated = kForever;  ///< when it was told to end, by SIGTERM with its handler there
  Time explainedThen = 0;
  unsigned int pingsSinceWanted = 0;
  bool wanted = false;
  bool hasWanMonitor = false;
  bool threadRefused = false;
  bool memoryRefused = false;        ///< to its main thread
  unsigned int insideLibraries = 0;  ///< how many threads are, whose globals a return from main would destroy
  std::size_t descriptorsAtRest = 0;
  bool soughtWan = false;                     ///< in this run
  bool ranFirewall = false;                   ///< in this run, so that it has come to its end
  std::optional<std::string> wanOfTunnels{};  ///< what the last run has found, "" for none, if it has come to its end
  std::uint64_t monitorsEnded = 0;            ///< how often the name monitors, if there were any, have been
  std::size_t nameMonitors = 0;               ///< that have begun since then
  std::map<std::string, std::set<std::string>> addresses{};  ///< of hosts, "" for none, as the last run has found them
  std::string movedHost{};                                   ///< that a monitor has found elsewhere
  Time movedAt = kForever;                                   ///< when, if nothing has been requested since
  std::set<std::string> writtenFiles{};                      ///< of OpenVPN tunnels, by this run
  std::set<std::string> supervisedFiles{};                   ///< by the last run that came so far
  bool beginsPass = false;                                   ///< the next ping is the first since the loop has waited
  Time passBegan = -1;                                       ///< when the last such ping was
};

class Process {
 public:
  Process(unsigned long number, pid_t pid, std::vector<std::string> arguments);

  const unsigned long number;
  pid_t pid;
  std::vector<std::string> arguments;
  Thread* main = nullptr;
  Image image{};

  std::array<sighandler_t, NSIG> handlers{};
  std::uint64_t pending = 0;             ///< signals, a bit for each
  std::deque<Descriptor> descriptors{};  ///< of which whoever waits keeps a reference
  std::vector<AtExit> atExit{};
  std::vector<ForkHandlers> forkHandlers{};
  pid_t child = 0;  ///< in whose life this is, between its start and its program

  std::optional<int> status{};  ///< what whoever started it has been told; 128 and more for a signal
  int endStatus = -1;           ///< what it has ended with
  bool readsOptions = false;    ///< it has begun to
  bool detached = false;
  bool isInstance = false;  ///< it has made the semaphore
  bool ended = false;
  Watch watch{};

  std::string label() const;
  bool isDaemon() const { return detached && !ended; }
  std::size_t openDescriptors() const;
  Time explainedUntilNow() const;
};

/// Starts the program, as a shell does. It has begun when this returns, and done nothing yet.
Process& startProgram(std::vector<std::string> arguments);

/// For the beginning of another history: no process's globals are there.
void unloadProcess();

/// Ends the current process at once: no destructors, no handlers.
[[noreturn]] void endCurrentProcess(int status);

/// Ends a process from outside, as SIGKILL does. Does not return when it is the current one.
void killProcess(Process& process);

/// Has a process be sent a signal. False when there is none with that number.
bool sendSignal(pid_t pid, int signal);
/// Has the current thread take the signals that wait for it.
void takeSignals();

Process* findProcess(pid_t pid);

/// The program's code runs while the scope lasts, or the simulator's own.
class Inside {
 public:
  Inside() : thread_(scheduler->current()), before_(thread_.outside) { thread_.outside = 0; }
  ~Inside() { thread_.outside = before_; }
  Inside(const Inside&) = delete;
  Inside& operator=(const Inside&) = delete;

 private:
  Thread& thread_;
  int before_;
};

class Outside {
 public:
  Outside() : thread_(scheduler->current()) { ++thread_.outside; }
  ~Outside() { --thread_.outside; }
  Outside(const Outside&) = delete;
  Outside& operator=(const Outside&) = delete;

 private:
  Thread& thread_;
};

/// Whether the program's code runs.
inline bool isInside() {
  return scheduler != nullptr && scheduler->current().outside == 0;
}

/// A place in the program where another thread may go on, where signals arrive, and where ambushes lie.
void place();

}  // namespace simulation
