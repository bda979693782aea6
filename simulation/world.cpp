#include "simulation/world.h"

#include <algorithm>
#include <utility>

#include "simulation/scheduler.h"
#include "simulation/text.h"

namespace simulation {

World* world = nullptr;

/// Those that are over go, or a year's history would have a year's faults to look through.
void Faults::add(Fault fault) {
  faults_.erase(std::remove_if(faults_.begin(), faults_.end(), [](const Fault& one) { return one.until <= timeNow(); }),
                faults_.end());
  faults_.push_back(std::move(fault));
}

const Fault* Faults::find(FaultKind kind, const std::string& target) const {
  if (faults_.empty()) return nullptr;
  const auto found = std::find_if(faults_.begin(), faults_.end(), [&](const Fault& fault) {
    return fault.kind == kind && fault.until > timeNow() && endsWith(target, fault.target);
  });
  return found == faults_.end() ? nullptr : &*found;
}

void say(const std::string& what) {
  const Thread& self = scheduler->current();
  std::string who = self.name;
  if (self.process != nullptr) {
    who = self.process->label() + " " + self.name;
    if (self.process->child != 0) who += " child " + std::to_string(self.process->child);
  }
  world->timeline.note(timeNow(), who, what);
}

/// Some lines of the level ERROR tell of nothing wrong: every one that concerns OpenVPN has that level.
void sayLine(const std::string& line) {
  say("log " + line);
  const bool tells = line.compare(0, 6, "ERROR ") == 0 && line.find("][OVPN] ping ") == std::string::npos &&
                     line.find("it has been created") == std::string::npos;
  if (!tells) return;
  world->lastError = line;
  world->lastErrorAt = timeNow();
}

void violate(const std::string& what) {
  say("VIOLATION: " + what);
  world->violation = what;
  scheduler->giveUp();
}

Process* currentProcess() {
  return scheduler->current().process;
}

Time timeNow() {
  return scheduler->now();
}

void spend(Time time, const char* reason) {
  Thread& self = scheduler->current();
  if (self.process != nullptr && self.process->child != 0) return;  // the child's time is not its parent's
  const bool explains = self.process != nullptr && self.process->main == &self && self.process->watch.waitsSince < 0;
  if (explains) self.process->watch.waitsSince = timeNow();
  const Time end = timeNow() + time;
  do {
    const Scheduler::End why = scheduler->wait(nullptr, end, reason);
    if (why == Scheduler::End::kSignal && self.process != nullptr) takeSignals();
  } while (timeNow() < end);
  if (!explains) return;
  self.process->watch.explained += timeNow() - self.process->watch.waitsSince;
  self.process->watch.waitsSince = -1;
}

}  // namespace simulation
