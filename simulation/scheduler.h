// Which thread goes on, and when.
//
// All threads of all simulated processes are fibers of one real thread. One runs; it goes on until it comes to a place
// where the seed has another one go on, or until it waits. Time passes only when all of them wait: the next that is due
// happens at once.
#pragma once

#include <signal.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "simulation/clock.h"
#include "simulation/fiber.h"
#include "simulation/random.h"

namespace simulation {

class Process;

struct Thread {
  enum class State { kReady, kWaiting, kEnded };

  unsigned long number = 0;
  Process* process = nullptr;  ///< null for those of the simulator itself
  std::string name{};
  std::function<void()> body{};
  std::unique_ptr<Fiber> fiber{};
  State state = State::kReady;
  const void* awaited = nullptr;
  Time deadline = kForever;
  const char* reason = "";     ///< what it waits for, in a word
  unsigned long waitsFor = 0;  ///< the number of the thread that holds the lock, or is to end
  bool woken = false;
  bool signalled = false;  ///< it is to look at its signals
  bool detached = false;
  sigset_t mask{};
  int handlers = 0;  ///< signal handlers that it is in
  int outside = 1;   ///< above 0: the simulator's own code runs, not the program's
};

/// Thrown on the thread that made the scheduler when somebody has given up.
struct GivenUp {};

class Scheduler {
 public:
  explicit Scheduler(std::uint64_t seed);
  ~Scheduler();
  Scheduler(const Scheduler&) = delete;
  Scheduler& operator=(const Scheduler&) = delete;

  Thread& spawn(Process* process, std::string name, std::size_t stackBytes, std::function<void()> body);
  Thread& current() { return *current_; }
  Time now() const { return now_; }
  Random& random() { return random_; }

  /// A place where another thread may go on.
  void point() {
    ++points_;
    if (++pointsSinceTime_ > kMostPointsAtOnce) onEndless();
    if (ready_ > 1) maybeSwitch();
  }

  enum class End { kWoken, kTime, kSignal };
  /// Has the current thread wait until somebody wakes those who wait for `awaited`, or the deadline, or a signal.
  End wait(const void* awaited, Time deadline, const char* reason);
  void wakeAll(const void* awaited);
  /// Has a thread that waits look at its signals.
  void interrupt(Thread& thread);

  /// Forgets the threads of a process that has ended. The current one, if it is one of these, must leave next.
  void drop(const Process& process);
  /// Ends the current thread.
  [[noreturn]] void leave();
  /// Goes back to the thread that made this scheduler, and never comes back from there.
  [[noreturn]] void giveUp();
  bool hasGivenUp() const { return hasGivenUp_; }

  std::vector<Thread*> threadsOf(const Process& process) const;
  Thread* find(unsigned long number) const;
  std::uint64_t points() const { return points_; }
  std::uint64_t switches() const { return switches_; }

  /// What is called when nobody can go on any more, and when somebody goes on and on without any time passing. Neither
  /// returns.
  std::function<void()> onDeadlock;
  std::function<void()> onEndless;
  /// What is called before another process's thread goes on.
  std::function<void(Process&)> onProcess;

 private:
  static constexpr std::uint64_t kMostPointsAtOnce = 1000000;

  static void live();
  void maybeSwitch();
  Thread* choose();
  void switchTo(Thread& thread, bool last = false);
  void setReady(Thread& thread);
  void removeEnded();

  std::vector<std::unique_ptr<Thread>> threads_;
  std::vector<std::unique_ptr<Thread>> ended_;
  Thread* host_ = nullptr;
  Thread* current_ = nullptr;
  std::size_t ready_ = 1;
  Time now_ = 0;
  Random random_;
  unsigned int switchPercent_;
  unsigned long lastNumber_ = 0;
  std::uint64_t points_ = 0;
  std::uint64_t switches_ = 0;
  std::uint64_t pointsSinceTime_ = 0;
  bool hasGivenUp_ = false;
};

/// The one of the history that goes on; null outside of histories.
extern Scheduler* scheduler;

}  // namespace simulation
