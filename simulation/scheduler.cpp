#include "simulation/scheduler.h"

#include <algorithm>
#include <array>
#include <utility>

namespace simulation {
namespace {

constexpr std::array<unsigned int, 4> kSwitchPercents{5, 25, 50, 90};

}  // namespace

Scheduler* scheduler = nullptr;

Scheduler::Scheduler(std::uint64_t seed)
    : random_(seed), switchPercent_(kSwitchPercents[random_.below(kSwitchPercents.size())]) {
  auto host = std::make_unique<Thread>();
  host->name = "world";
  host->fiber = std::make_unique<Fiber>();
  host_ = current_ = host.get();
  threads_.push_back(std::move(host));
  scheduler = this;
}

Scheduler::~Scheduler() {
  scheduler = nullptr;
}

Thread& Scheduler::spawn(Process* process, std::string name, std::size_t stackBytes, std::function<void()> body) {
  auto thread = std::make_unique<Thread>();
  thread->number = ++lastNumber_;
  thread->process = process;
  thread->name = std::move(name);
  thread->body = std::move(body);
  thread->mask = current_->mask;
  thread->fiber = std::make_unique<Fiber>(stackBytes, &Scheduler::live);
  threads_.push_back(std::move(thread));
  ++ready_;
  return *threads_.back();
}

void Scheduler::live() {
  Thread& self = scheduler->current();
  scheduler->removeEnded();
  self.body();
  scheduler->leave();
}

void Scheduler::maybeSwitch() {
  if (!random_.chance(switchPercent_)) return;
  Thread* const next = choose();
  if (next != current_) switchTo(*next);
}

/// One of those that can go on; waits for one, as it were, when there is none.
Thread* Scheduler::choose() {
  while (ready_ == 0) {
    Time next = kForever;
    for (const auto& thread : threads_) {
      if (thread->state == Thread::State::kWaiting) next = std::min(next, thread->deadline);
    }
    if (next == kForever) onDeadlock();  // does not come back
    now_ = std::max(now_, next);
    pointsSinceTime_ = 0;
    for (const auto& thread : threads_) {
      if (thread->state == Thread::State::kWaiting && thread->deadline <= now_) setReady(*thread);
    }
  }
  std::size_t index = ready_ == 1 ? 0 : random_.below(ready_);
  for (const auto& thread : threads_) {
    if (thread->state == Thread::State::kReady && index-- == 0) return thread.get();
  }
  return host_;  // not reached: ready_ counts them
}

void Scheduler::setReady(Thread& thread) {
  thread.state = Thread::State::kReady;
  ++ready_;
}

Scheduler::End Scheduler::wait(const void* awaited, Time deadline, const char* reason) {
  ++points_;
  Thread& self = *current_;
  self.awaited = awaited;
  self.deadline = deadline;
  self.reason = reason;
  self.woken = self.signalled = false;
  self.state = Thread::State::kWaiting;
  --ready_;
  Thread* const next = choose();
  if (next != &self) switchTo(*next);
  self.awaited = nullptr;
  self.deadline = kForever;
  if (self.signalled) return End::kSignal;
  return self.woken ? End::kWoken : End::kTime;
}

void Scheduler::wakeAll(const void* awaited) {
  for (const auto& thread : threads_) {
    if (thread->state != Thread::State::kWaiting || thread->awaited != awaited) continue;
    thread->woken = true;
    setReady(*thread);
  }
}

void Scheduler::interrupt(Thread& thread) {
  if (thread.state != Thread::State::kWaiting) return;
  thread.signalled = true;
  setReady(thread);
}

void Scheduler::switchTo(Thread& thread, bool last) {
  ++switches_;
  Thread& before = *current_;
  current_ = &thread;
  if (thread.process != nullptr) onProcess(*thread.process);
  Fiber::switchTo(*before.fiber, *thread.fiber, last);
  removeEnded();
  if (hasGivenUp_) throw GivenUp();  // only its maker is gone back to then
}

/// A stack can be given back only by somebody who stands on another.
void Scheduler::removeEnded() {
  ended_.clear();
}

void Scheduler::drop(const Process& process) {
  for (std::size_t i = threads_.size(); i-- > 0;) {
    Thread& thread = *threads_[i];
    if (thread.process != &process) continue;
    if (thread.state == Thread::State::kReady) --ready_;
    thread.state = Thread::State::kEnded;
    ended_.push_back(std::move(threads_[i]));
    threads_.erase(threads_.begin() + static_cast<std::ptrdiff_t>(i));
  }
}

void Scheduler::leave() {
  Thread& self = *current_;
  if (self.state != Thread::State::kEnded) {  // or it was dropped
    --ready_;
    self.state = Thread::State::kEnded;
    const auto place = std::find_if(threads_.begin(), threads_.end(),
                                    [&self](const std::unique_ptr<Thread>& thread) { return thread.get() == &self; });
    ended_.push_back(std::move(*place));
    threads_.erase(place);
    wakeAll(&self);
  }
  switchTo(*choose(), true);
  __builtin_unreachable();
}

void Scheduler::giveUp() {
  hasGivenUp_ = true;
  if (current_ == host_) throw GivenUp();
  switchTo(*host_, true);
  __builtin_unreachable();
}

std::vector<Thread*> Scheduler::threadsOf(const Process& process) const {
  std::vector<Thread*> found;
  for (const auto& thread : threads_) {
    if (thread->process == &process) found.push_back(thread.get());
  }
  return found;
}

Thread* Scheduler::find(unsigned long number) const {
  for (const auto& thread : threads_) {
    if (thread->number == number) return thread.get();
  }
  return nullptr;
}

}  // namespace simulation
