#include "simulation/process.h"

#include <json/value.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <utility>

#include "effects/effects.h"
#include "simulation/router.h"
#include "simulation/rules.h"
#include "simulation/world.h"

/// The program's main, under the name that its translation unit is compiled with here.
int tunnelManagerMain(int argc, char** argv);

namespace simulation {
namespace {

constexpr std::size_t kMainStackBytes = 1024 * std::size_t{1024};

/// Process::pending has no more.
constexpr int kSignalBits = 64;

Process* loaded = nullptr;

void load(Process& process) {
  if (loaded == &process) return;
  if (loaded != nullptr) loaded->image.keep();
  process.image.load();
  loaded = &process;
}

/// What runs before main, main, and the end.
void liveAsProgram(Process& process) {
  std::vector<char*> words;
  for (std::string& argument : process.arguments) words.push_back(argument.data());
  words.push_back(nullptr);
  Effects& acts = router();
  const Inside inside;
  Image::initialise();
  static_cast<void>(new ActingAs(acts));  // until its end
  exit(tunnelManagerMain(static_cast<int>(words.size()) - 1, words.data()));
}

bool isAboutTypes(const std::exception& exception) {
  return dynamic_cast<const Json::Exception*>(&exception) != nullptr;
}

void runMain(Process& process) {
  try {
    liveAsProgram(process);
  } catch (const std::exception& exception) {
    // The loop of a daemon is what catches exceptions.
    const Faults& faults = world->faults;
    const bool isOfMemory = process.watch.memoryRefused && dynamic_cast<const std::bad_alloc*>(&exception) != nullptr;
    const bool isExplained =
        isOfMemory || (!process.detached && (faults.has(FaultKind::kNoDescriptor) || isAboutTypes(exception)));
    if (!isExplained) violate(std::string("an exception leaves main: ") + exception.what());
    say(std::string("an exception leaves main: ") + exception.what());
    endCurrentProcess(128 + SIGABRT);
  }
}

/// The kernel tells the children, and nobody is left who would ask for them.
void orphanChildren(const Process& process) {
  for (auto child = world->children.begin(); child != world->children.end();) {
    if (child->second.parent != process.pid) {
      ++child;
      continue;
    }
    ruleOrphaned(child->second);
    if (child->second.followsParent) tellToEnd(child->second);
    child->second.parent = 1;
    child = child->second.dies <= timeNow() ? world->children.erase(child) : std::next(child);
  }
}

void bury(Process& process, int status) {
  process.ended = true;
  --world->living;
  auto& ambushes = world->ambushes;
  ambushes.erase(std::remove_if(ambushes.begin(), ambushes.end(),
                                [&process](const Ambush& one) { return one.process == process.number; }),
                 ambushes.end());
  process.endStatus = status;
  if (!process.status) process.status = status;
  ruleEnds(process, status);
  orphanChildren(process);
  if (loaded == &process) loaded = nullptr;
  scheduler->drop(process);
}

bool takes(const Thread& thread, int signal) {
  return sigismember(&thread.mask, signal) == 0;
}

void runHandler(Process& process, Thread& self, int signal) {
  const sighandler_t handler = process.handlers[static_cast<std::size_t>(signal)];
  if (handler == SIG_IGN) return;
  if (handler == SIG_DFL) {
    if (signal == SIGHUP) violate("SIGHUP ends the process that it was to ask for a run");
    say("ends by signal " + std::to_string(signal));
    endCurrentProcess(128 + signal);
  }
  if (&self != process.main) violate("signal " + std::to_string(signal) + " reaches a thread that is not the main one");
  say("handler of signal " + std::to_string(signal) + (process.watch.idle ? "" : ", in the middle of things"));
  const sigset_t before = self.mask;
  sigaddset(&self.mask, signal);
  ++self.handlers;
  ruleHandlerBegins(process, signal);
  {
    const Inside inside;
    handler(signal);
  }
  --self.handlers;
  self.mask = before;
}

bool counts(const Ambush& ambush, const Thread& self) {
  const bool isMain = &self == self.process->main;
  return ambush.process == self.process->number &&
         (ambush.whose == Ambush::Whose::kAll || isMain == (ambush.whose == Ambush::Whose::kMain));
}

/// An ambush that ends the process of this thread does not come back.
void spring(const Thread& self) {
  for (std::size_t i = 0; i < world->ambushes.size(); ++i) {
    Ambush& ambush = world->ambushes[i];
    if (!counts(ambush, self)) continue;
    if (ambush.places-- > 0) continue;
    const auto act = std::move(ambush.act);
    world->ambushes.erase(world->ambushes.begin() + static_cast<std::ptrdiff_t>(i));
    const Outside outside;
    act();
    return;
  }
}

}  // namespace

Process::Process(unsigned long theNumber, pid_t thePid, std::vector<std::string> theArguments)
    : number(theNumber), pid(thePid), arguments(std::move(theArguments)) {}

std::string Process::label() const {
  return (detached ? "daemon " : "start ") + std::to_string(pid);
}

std::size_t Process::openDescriptors() const {
  return static_cast<std::size_t>(std::count_if(descriptors.begin(), descriptors.end(), [](const Descriptor& one) {
    return one.kind != Descriptor::Kind::kClosed;
  }));
}

Time Process::explainedUntilNow() const {
  return watch.explained + (watch.waitsSince < 0 ? 0 : timeNow() - watch.waitsSince);
}

Process& startProgram(std::vector<std::string> arguments) {
  scheduler->onProcess = load;
  const pid_t pid = ++world->lastPid;
  world->processes.push_back(std::make_unique<Process>(world->processes.size() + 1, pid, std::move(arguments)));
  ++world->living;
  Process& process = *world->processes.back();
  process.main = &scheduler->spawn(&process, "main", kMainStackBytes, [&process] { runMain(process); });
  sigemptyset(&process.main->mask);
  return process;
}

void unloadProcess() {
  loaded = nullptr;
}

void endCurrentProcess(int status) {
  Process& process = *currentProcess();
  say("ends with status " + std::to_string(status));
  bury(process, status);
  scheduler->leave();
}

void killProcess(Process& process) {
  if (process.ended) return;
  const bool own = currentProcess() == &process;
  world->timeline.note(timeNow(), process.label(), "KILLED");
  bury(process, 128 + SIGKILL);
  if (own) scheduler->leave();
}

bool sendSignal(pid_t pid, int signal) {
  Process* const process = findProcess(pid);
  if (process == nullptr) return false;
  process->pending |= std::uint64_t{1} << static_cast<unsigned int>(signal);
  ruleSignalSent(*process, signal);
  for (Thread* const thread : scheduler->threadsOf(*process)) {
    if (takes(*thread, signal)) scheduler->interrupt(*thread);
  }
  return true;
}

void takeSignals() {
  Thread& self = scheduler->current();
  Process& process = *self.process;
  for (int signal = 1; process.pending != 0 && signal < kSignalBits; ++signal) {
    const std::uint64_t bit = std::uint64_t{1} << static_cast<unsigned int>(signal);
    if ((process.pending & bit) == 0 || !takes(self, signal)) continue;
    process.pending &= ~bit;
    runHandler(process, self, signal);
  }
}

Process* findProcess(pid_t pid) {
  for (const auto& process : world->processes) {
    if (process->pid == pid && !process->ended) return process.get();
  }
  return nullptr;
}

void place() {
  const Thread& self = scheduler->current();
  if (self.process == nullptr || self.process->child != 0) return;
  if (!world->ambushes.empty()) spring(self);
  scheduler->point();
  if (self.process->pending != 0) {
    const Outside outside;
    takeSignals();
  }
}

}  // namespace simulation
