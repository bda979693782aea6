// What must always hold. The rest of the simulator tells here what happens; what breaks a rule ends the history.
#pragma once

#include <cstdint>
#include <string>

#include "simulation/process.h"

namespace simulation {

struct Child;

void ruleSignalSent(Process& process, int signal);
void ruleHandlerBegins(Process& process, int signal);
/// A monitor requests a run; the SIGHUP handler's request was one already when the signal was sent.
void ruleRequest(Process& process);
/// A thread found the refresh lock taken, or another.
void ruleLockRefused(Process& process);
/// The main thread begins to wait in its loop, and has waited for all of its time.
void ruleIdleBegins(Process& process);
void ruleIdleEnds(Process& process, Time since, bool timedOut);
void ruleAct(Process& process, const std::string& what);
/// The configuration API, for what lies at the URL.
void ruleAsks(Process& process, const std::string& url);
void ruleRunBegins(Process& process);
/// The main thread is refused memory.
void ruleMemoryRefused(Process& process);
void ruleDaemonBegins(Process& process);
void ruleWayCleared(Process& process);
void ruleChildReaped(const Child& child);
/// Its parent has ended, however that came.
void ruleOrphaned(const Child& child);
void ruleFileWritten(Process& process, const std::string& path);
/// The functions that were registered for the end begin to run.
void ruleGlobalsGo(const Process& process);
/// For the end: every tunnel that the last run has started is there, without another run.
void requireChildren(const Process& daemon);
void ruleEnds(Process& process, int status);

/// A run or a monitor asks the name server while the scope lasts.
class LookUp {
 public:
  LookUp(Process& process, std::string host);

  /// "" where there is none.
  void finds(const std::string& address) const;

 private:
  Process& process_;
  std::string host_;
  std::uint64_t monitorsEnded_;
  bool isRuns_;
};

/// The current thread waits for the end of another while the scope lasts.
class Joining {
 public:
  Joining(Process& process, const Thread* thread);
  ~Joining();
  Joining(const Joining&) = delete;
  Joining& operator=(const Joining&) = delete;

 private:
  Process& process_;
  Time since_;
  std::string name_;
};

}  // namespace simulation
