// The way of acting that changes the router.
#pragma once

#include "effects/effects.h"

class RealEffects : public Effects {
 public:
  constexpr RealEffects() = default;

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

 private:
  pid_t parent_ = 0;  ///< of a child, as it was at the fork
};

/// Reads a result of waitpid(2) and, when that is negative, its errno. Pure.
ChildState childState(pid_t result, int error);
