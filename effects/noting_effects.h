// The way of acting that changes nothing: it notes what would have been done and keeps files in memory.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "effects/effects.h"

/// One thing that would have been done. Which members count depends on the kind.
struct Act {
  enum class Kind {
    kRun,            ///< subject: the command
    kAsk,            ///< subject: the command
    kWrite,          ///< subject: the path; text
    kAppend,         ///< subject: the path; text
    kSetMode,        ///< subject: the path; number: the mode
    kRemove,         ///< subject: the path
    kMakeSemaphore,  ///< subject: the name
    kDropSemaphore,  ///< subject: the name
    kStart,          ///< number: the child
    kBecome,         ///< subject: the program; arguments: all of them, the program's name first
    kFollowParent,   ///< by a child
    kSignal,         ///< number: the process; signal
    kPause,          ///< number: milliseconds
    kDetach,
  };

  Kind kind;
  std::string subject{};
  std::string text{};
  std::vector<std::string> arguments{};
  int number = 0;
  int signal = 0;
  pid_t actor = 0;  ///< the child that does it, 0 for the program itself
};

bool operator==(const Act& a, const Act& b);

/// What a command that is asked for its output would have answered.
struct Answer {
  int status = 0;
  std::string output{};
};

/// Every command succeeds, every file can be written, every child that has become a program lives until it is sent
/// SIGTERM. Whoever wants it otherwise derives from this class. A child's life is lived at its start, by the calling
/// thread. Commands, paths and arguments are noted as the system would take them, up to a null byte.
///
/// Nothing here is async-signal-safe.
class NotingEffects : public Effects {
 public:
  int run(const std::string& command) override;
  int ask(const std::string& command, std::string& output) override;
  int askWithin(std::chrono::milliseconds limit, const std::string& command, std::string& output) override;
  FileOutcome writeFile(const std::string& path, const std::string& text) override;
  FileOutcome appendFile(const std::string& path, const std::string& text) override;
  void setMode(const std::string& path, mode_t mode) override;
  void removeFile(const char* path) override;
  sem_t* createSemaphore(const char* name) override;
  void closeSemaphore(sem_t* semaphore) override;
  void removeSemaphore(const char* name) override;
  pid_t startChild(const std::function<void()>& life) override;
  bool followParentIntoDeath() override;
  bool becomeProgram(const char* const* arguments) override;
  bool signalProcess(pid_t process, int signal) override;
  ChildState lookAtChild(pid_t child) override;
  void pause(std::chrono::milliseconds time) override;
  std::chrono::steady_clock::time_point now() override;
  bool detach() override;

  /// The subjects of all acts of a kind, in their order.
  std::vector<std::string> subjects(Act::Kind kind) const;

  std::map<std::string, Answer> answers;  ///< by command; one that is not here answers nothing, with success

  std::vector<Act> acts;                     ///< in their order
  std::map<std::string, std::string> files;  ///< written, with their contents, by path
  std::map<std::string, mode_t> modes;       ///< set, by path
  std::set<std::string> semaphores;
  std::set<pid_t> children;  ///< that live

 protected:
  void note(Act act);

  /// What the system, which knows texts by their end, takes of one.
  static std::string asTaken(const std::string& text);

 private:
  pid_t actor_ = 0;
  pid_t lastChild_ = 5000000;  ///< no process has such a number: Linux has none beyond 2^22 (proc(5), pid_max)
  std::chrono::steady_clock::time_point now_;  ///< only pauses take time
  sem_t semaphore_{};                          ///< what stands for each of them
};
