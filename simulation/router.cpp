#include "simulation/router.h"

#include <signal.h>

#include <algorithm>

#include "simulation/process.h"
#include "simulation/rules.h"
#include "simulation/text.h"

namespace simulation {
namespace {

constexpr int kFailedStatus = 255;

/// An act begins: it is told, looked at, and a place where others may go on.
class Acting {
 public:
  explicit Acting(const char* verb, const char* subject = "") {
    const std::string what = std::string(verb) + subject;
    place();
    ruleAct(*currentProcess(), what);
    say(what);
  }
  ~Acting() { place(); }
  Acting(const Acting&) = delete;
  Acting& operator=(const Acting&) = delete;

 private:
  Outside outside_;
};

FileOutcome put(const std::string& path, const std::string& before, const std::string& text) {
  const Faults& faults = world->faults;
  if (faults.has(FaultKind::kDiskReadOnly) || faults.has(FaultKind::kNoDescriptor)) {
    say("cannot");
    return FileOutcome::kNotOpened;
  }
  File& file = world->files[path];
  const bool isFull = faults.has(FaultKind::kDiskFull) && !text.empty();
  file.text = before + (isFull ? text.substr(0, world->chance.below(text.size())) : text);
  if (isFull) say("writes a part");
  return isFull ? FileOutcome::kShort : FileOutcome::kWritten;
}

void callForkHandlers(Process& process, void (*ForkHandlers::*which)()) {
  const Inside inside;
  for (const ForkHandlers& handlers : process.forkHandlers) (handlers.*which)();
}

/// The child has a copy of everything and one thread; here it lives on its parent's, in no time.
void live(Process& process, pid_t child, const std::function<void()>& life) {
  process.child = child;
  callForkHandlers(process, &ForkHandlers::child);
  {
    const Inside inside;
    life();
  }
  callForkHandlers(process, &ForkHandlers::prepare);  // for its parent, whose handlers come next
  Child& self = world->children[child];
  if (self.arguments.empty()) {
    say("ends with status " + std::to_string(kFailedStatus));
    self.dies = timeNow();
  }
  process.child = 0;
}

}  // namespace

Router& router() {
  static Router router;
  return router;
}

void tellToEnd(Child& child) {
  child.told = std::min(child.told, timeNow());
  if (world->faults.has(FaultKind::kChildDeaf)) return;
  child.dies = std::min(child.dies, timeNow() + world->chance.between(1, 300) * kMillisecond);
}

int Router::run(const std::string& command) {
  const Acting acting("runs ", command.c_str());
  if (world->faults.has(FaultKind::kNoFork)) return -1;
  const int status = performCommand(command);
  if (status != 0) say("status " + std::to_string(status >> 8) + " of " + command);
  return status;
}

int Router::ask(const std::string& command, std::string& output) {
  const Acting acting("asks ", command.c_str());
  if (command == "ip tunnel") ruleRunBegins(*currentProcess());
  output.clear();
  const Faults& faults = world->faults;
  if (faults.has(FaultKind::kNoFork) || faults.has(FaultKind::kNoDescriptor)) return -1;
  const int status = performCommand(command);
  if (status == 0) {
    const Inside inside;  // the text is the program's
    output = tunnelListing();
  }
  return status >> 8;
}

/// The daemon does not ask in this way.
int Router::askWithin(std::chrono::milliseconds, const std::string& command, std::string& output) {
  return ask(command, output);
}

FileOutcome Router::writeFile(const std::string& path, const std::string& text) {
  const Acting acting("writes ", path.c_str());
  const FileOutcome outcome = put(path, "", text);
  if (outcome == FileOutcome::kWritten) ruleFileWritten(*currentProcess(), path);
  return outcome;
}

FileOutcome Router::appendFile(const std::string& path, const std::string& text) {
  const Acting acting("appends to ", path.c_str());
  const auto file = world->files.find(path);
  return put(path, file == world->files.end() ? "" : std::string(file->second.text), text);
}

void Router::setMode(const std::string& path, mode_t mode) {
  const Acting acting("sets the mode of ", path.c_str());
  const auto file = world->files.find(path);
  if (file != world->files.end()) file->second.mode = mode;
}

void Router::removeFile(const char* path) {
  const Acting acting("removes ", path);
  if (!world->faults.has(FaultKind::kDiskReadOnly)) world->files.erase(path);
}

sem_t* Router::createSemaphore(const char* name) {
  static sem_t semaphore{};
  const Acting acting("makes semaphore ", name);
  if (world->faults.has(FaultKind::kNoSemaphores)) return SEM_FAILED;
  const bool made = world->semaphores.insert(name).second;
  currentProcess()->isInstance = made;
  return made ? &semaphore : SEM_FAILED;
}

void Router::closeSemaphore(sem_t*) {
  const Acting acting("closes the semaphore");
}

void Router::removeSemaphore(const char* name) {
  const Acting acting("removes semaphore ", name);
  if (world->faults.has(FaultKind::kNoSemaphores)) return;
  world->semaphores.erase(name);
  ruleWayCleared(*currentProcess());
}

pid_t Router::startChild(const std::function<void()>& life) {
  const Acting acting("forks");
  if (world->faults.has(FaultKind::kNoFork)) {
    say("cannot");
    return -1;
  }
  Process& process = *currentProcess();
  callForkHandlers(process, &ForkHandlers::prepare);
  const pid_t child = ++world->lastPid;
  world->children[child] = Child{process.pid};
  live(process, child, life);
  callForkHandlers(process, &ForkHandlers::parent);
  return child;
}

bool Router::followParentIntoDeath() {
  const Acting acting("follows its parent into death");
  world->children[currentProcess()->child].followsParent = true;
  return true;
}

bool Router::becomeProgram(const char* const* arguments) {
  const Acting acting("becomes openvpn with ", arguments[2]);
  if (world->faults.has(FaultKind::kExecFails)) return false;
  Child& child = world->children[currentProcess()->child];
  for (; *arguments != nullptr; ++arguments) child.arguments.emplace_back(*arguments);
  child.configuration = world->files[child.arguments[2]].text;
  if (world->faults.has(FaultKind::kChildShort)) child.dies = timeNow() + world->chance.between(1, 2000) * kMillisecond;
  return true;
}

bool Router::signalProcess(pid_t process, int signal) {
  const Acting acting(signal == SIGTERM ? "sends SIGTERM" : "sends SIGHUP");
  const auto child = world->children.find(process);
  if (child == world->children.end()) return sendSignal(process, signal);
  if (signal == SIGTERM) tellToEnd(child->second);
  return true;
}

ChildState Router::lookAtChild(pid_t number) {
  const Outside outside;
  place();
  const auto child = world->children.find(number);
  if (child == world->children.end() || child->second.parent != currentProcess()->pid) return ChildState::kGone;
  if (child->second.dies > timeNow()) return ChildState::kRunning;
  if (world->chance.chance(2)) return ChildState::kInterrupted;
  say("reaps " + std::to_string(number));
  ruleChildReaped(child->second);
  world->children.erase(child);
  return ChildState::kGone;
}

void Router::pause(std::chrono::milliseconds time) {
  const Outside outside;
  place();
  ruleAct(*currentProcess(), "pauses");
  spend(time.count() * kMillisecond, "pause");
  place();
}

std::chrono::steady_clock::time_point Router::now() {
  return std::chrono::steady_clock::time_point(std::chrono::nanoseconds(timeNow()));
}

/// What goes on is the child, with another number; whoever started the parent goes on, too.
bool Router::detach() {
  const Acting acting("goes into the background");
  if (world->faults.has(FaultKind::kNoFork)) return false;
  Process& process = *currentProcess();
  if (scheduler->threadsOf(process).size() > 1) violate("the process forks away from its own threads");
  callForkHandlers(process, &ForkHandlers::prepare);
  process.status = 0;
  process.detached = true;
  process.pid = ++world->lastPid;
  ruleDaemonBegins(process);
  callForkHandlers(process, &ForkHandlers::child);
  return true;
}

}  // namespace simulation
