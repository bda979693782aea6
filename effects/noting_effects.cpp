#include "effects/noting_effects.h"

#include <signal.h>

#include <tuple>
#include <utility>

namespace {

auto membersOf(const Act& act) {
  return std::tie(act.kind, act.subject, act.text, act.arguments, act.number, act.signal, act.actor);
}

}  // namespace

bool operator==(const Act& a, const Act& b) {
  return membersOf(a) == membersOf(b);
}

std::string NotingEffects::asTaken(const std::string& text) {
  return text.substr(0, text.find('\0'));
}

void NotingEffects::note(Act act) {
  act.actor = actor_;
  acts.push_back(std::move(act));
}

int NotingEffects::run(const std::string& command) {
  note({Act::Kind::kRun, asTaken(command)});
  return 0;
}

int NotingEffects::ask(const std::string& command, std::string& output) {
  note({Act::Kind::kAsk, asTaken(command)});
  const auto answer = answers.find(command);
  output = answer == answers.end() ? "" : answer->second.output;
  return answer == answers.end() ? 0 : answer->second.status;
}

int NotingEffects::askWithin(std::chrono::milliseconds, const std::string& command, std::string& output) {
  return ask(command, output);
}

FileOutcome NotingEffects::writeFile(const std::string& path, const std::string& text) {
  note({Act::Kind::kWrite, asTaken(path), text});
  files[asTaken(path)] = text;
  return FileOutcome::kWritten;
}

FileOutcome NotingEffects::appendFile(const std::string& path, const std::string& text) {
  note({Act::Kind::kAppend, asTaken(path), text});
  files[asTaken(path)] += text;
  return FileOutcome::kWritten;
}

void NotingEffects::setMode(const std::string& path, mode_t mode) {
  note({Act::Kind::kSetMode, asTaken(path), "", {}, static_cast<int>(mode)});
  modes[asTaken(path)] = mode;
}

void NotingEffects::removeFile(const char* path) {
  note({Act::Kind::kRemove, path});
  files.erase(path);
}

sem_t* NotingEffects::createSemaphore(const char* name) {
  note({Act::Kind::kMakeSemaphore, name});
  return semaphores.insert(name).second ? &semaphore_ : SEM_FAILED;
}

void NotingEffects::closeSemaphore(sem_t*) {}

void NotingEffects::removeSemaphore(const char* name) {
  note({Act::Kind::kDropSemaphore, name});
  semaphores.erase(name);
}

pid_t NotingEffects::startChild(const std::function<void()>& life) {
  const pid_t child = ++lastChild_;
  note({Act::Kind::kStart, "", "", {}, child});
  const pid_t before = std::exchange(actor_, child);
  [&life]() noexcept { life(); }();
  actor_ = before;
  return child;
}

bool NotingEffects::followParentIntoDeath() {
  note({Act::Kind::kFollowParent});
  return true;
}

bool NotingEffects::becomeProgram(const char* const* arguments) {
  Act act{Act::Kind::kBecome, arguments[0]};
  for (; *arguments != nullptr; ++arguments) act.arguments.emplace_back(*arguments);
  note(std::move(act));
  children.insert(actor_);
  return true;
}

bool NotingEffects::signalProcess(pid_t process, int signal) {
  note({Act::Kind::kSignal, "", "", {}, process, signal});
  if (signal == SIGTERM) children.erase(process);
  return true;
}

ChildState NotingEffects::lookAtChild(pid_t child) {
  return children.count(child) > 0 ? ChildState::kRunning : ChildState::kGone;
}

void NotingEffects::pause(std::chrono::milliseconds time) {
  note({Act::Kind::kPause, "", "", {}, static_cast<int>(time.count())});
  now_ += time;
}

std::chrono::steady_clock::time_point NotingEffects::now() {
  return now_;
}

bool NotingEffects::detach() {
  note({Act::Kind::kDetach});
  return true;
}

std::vector<std::string> NotingEffects::subjects(Act::Kind kind) const {
  std::vector<std::string> subjects;
  for (const Act& act : acts) {
    if (act.kind == kind) subjects.push_back(act.subject);
  }
  return subjects;
}
