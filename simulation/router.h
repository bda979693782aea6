// The way of acting on a router that exists in the world only: what the program does there has the consequences that it
// has on a real one.
#pragma once

#include "effects/effects.h"
#include "simulation/world.h"

namespace simulation {

class Router : public Effects {
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
};

/// The one that all processes act through.
Router& router();

/// Sends a child SIGTERM.
void tellToEnd(Child& child);

/// Does what a command line does, and returns the status that system(3) would. Takes the time that the command takes.
int performCommand(const std::string& command);

/// What `ip tunnel` prints.
std::string tunnelListing();

}  // namespace simulation
