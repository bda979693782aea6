// Threads, mutexes and condition variables in place of those of the C library, under the names that --wrap gives
// (ld(1)).

#include "simulation/threads.h"

#include <pthread.h>
#include <sys/prctl.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstring>
#include <exception>
#include <mutex>
#include <string>

#include "simulation/process.h"
#include "simulation/rules.h"
#include "simulation/text.h"
#include "simulation/world.h"

namespace simulation {
namespace {

constexpr unsigned int kSpuriousPercent = 2;

/// The number of the thread that holds it, in the mutex itself; 0 when it is free, as in one that nobody has used.
int& ownerOf(pthread_mutex_t* mutex) {
  return *reinterpret_cast<int*>(mutex);
}

void refuseInHandler(const char* what) {
  if (scheduler->current().handlers > 0) violate(std::string("a signal handler ") + what);
}

/// Whoever waits for one that waits for itself waits for ever.
void refuseCircle(const Thread& self) {
  std::string path = self.name;
  for (unsigned long next = self.waitsFor; next != 0;) {
    const Thread* const thread = scheduler->find(next);
    if (thread == nullptr) violate("deadlock: " + path + " waits for a thread that is gone");
    path += " waits for " + thread->name;
    if (thread == &self) violate("deadlock: " + path);
    if (thread->state != Thread::State::kWaiting) return;
    next = thread->waitsFor;
  }
}

void waitForThread(unsigned long other, const void* awaited, const char* reason) {
  Thread& self = scheduler->current();
  self.waitsFor = other;
  refuseCircle(self);
  if (scheduler->wait(awaited, kForever, reason) == Scheduler::End::kSignal) {
    self.waitsFor = 0;
    takeSignals();
  }
  self.waitsFor = 0;
}

void take(pthread_mutex_t* mutex) {
  Thread& self = scheduler->current();
  const int number = static_cast<int>(self.number);
  if (ownerOf(mutex) == number) violate("deadlock: " + self.name + " takes a lock that it holds");
  while (ownerOf(mutex) != 0) {
    if (self.process->child != 0) violate("a child waits for a lock that a thread holds which it does not have");
    waitForThread(static_cast<unsigned long>(ownerOf(mutex)), mutex, "lock");
  }
  ownerOf(mutex) = number;
}

void release(pthread_mutex_t* mutex) {
  const Thread& self = scheduler->current();
  if (ownerOf(mutex) != static_cast<int>(self.number)) violate(self.name + " releases a lock that it does not hold");
  ownerOf(mutex) = 0;
  scheduler->wakeAll(mutex);
}

void waitForCondition(const void* condition, pthread_mutex_t* mutex, Time deadline) {
  refuseInHandler("waits for a condition");
  release(mutex);
  const bool spurious = world->chance.chance(kSpuriousPercent);
  if (scheduler->wait(condition, spurious ? timeNow() : deadline, "condition") == Scheduler::End::kSignal)
    takeSignals();
  take(mutex);
}

void runThread(const std::function<void()>& body) {
  try {
    const Inside inside;
    body();
  } catch (const std::exception& exception) {
    violate(std::string("an exception leaves a thread: ") + exception.what());
  }
}

}  // namespace

}  // namespace simulation

using namespace simulation;

extern "C" {

int __real_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
int __real_pthread_join(pthread_t, void**);
int __real_pthread_mutex_lock(pthread_mutex_t*);
int __real_pthread_mutex_trylock(pthread_mutex_t*);
int __real_pthread_mutex_unlock(pthread_mutex_t*);
int __real_pthread_cond_clockwait(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*);
int __real_pthread_sigmask(int, const sigset_t*, sigset_t*);
int __real_pthread_getattr_np(pthread_t, pthread_attr_t*);

int __wrap_pthread_create(pthread_t* handle, const pthread_attr_t* attributes, void* (*function)(void*),
                          void* argument) {
  if (!isInside()) return __real_pthread_create(handle, attributes, function, argument);
  const Outside outside;
  refuseInHandler("makes a thread");
  Process& process = *currentProcess();
  if (world->faults.has(FaultKind::kNoThread)) {
    process.watch.threadRefused = true;
    return EAGAIN;
  }
  std::size_t stackBytes = 0;
  int detached = 0;
  pthread_attr_getstacksize(attributes, &stackBytes);
  pthread_attr_getdetachstate(attributes, &detached);
  Thread& thread = scheduler->spawn(&process, "call", stackBytes, [function, argument] {
    runThread([=] { function(argument); });
    place();
  });
  thread.detached = detached == PTHREAD_CREATE_DETACHED;
  *handle = thread.number;
  place();
  return 0;
}

int __wrap_pthread_join(pthread_t handle, void** result) {
  if (!isInside()) return __real_pthread_join(handle, result);
  const Outside outside;
  place();
  Process& process = *currentProcess();
  const Thread* const first = scheduler->find(handle);
  const Joining joining(process, first);
  for (const Thread* thread = first; thread != nullptr; thread = scheduler->find(handle))
    waitForThread(handle, thread, "end of a thread");
  return 0;
}

int __wrap_pthread_mutex_lock(pthread_mutex_t* mutex) {
  if (!isInside()) return __real_pthread_mutex_lock(mutex);
  const Outside outside;
  refuseInHandler("takes a lock");
  place();
  take(mutex);
  return 0;
}

int __wrap_pthread_mutex_trylock(pthread_mutex_t* mutex) {
  if (!isInside()) return __real_pthread_mutex_trylock(mutex);
  const Outside outside;
  refuseInHandler("takes a lock");
  place();
  if (ownerOf(mutex) != 0) {
    ruleLockRefused(*currentProcess());
    return EBUSY;
  }
  take(mutex);
  return 0;
}

int __wrap_pthread_mutex_unlock(pthread_mutex_t* mutex) {
  if (!isInside()) return __real_pthread_mutex_unlock(mutex);
  const Outside outside;
  release(mutex);
  place();
  return 0;
}

/// std::condition_variable::wait(std::unique_lock<std::mutex>&)
void __real__ZNSt18condition_variable4waitERSt11unique_lockISt5mutexE(std::condition_variable*,
                                                                      std::unique_lock<std::mutex>*);
void __wrap__ZNSt18condition_variable4waitERSt11unique_lockISt5mutexE(std::condition_variable* condition,
                                                                      std::unique_lock<std::mutex>* held) {
  if (!isInside()) return __real__ZNSt18condition_variable4waitERSt11unique_lockISt5mutexE(condition, held);
  const Outside outside;
  waitForCondition(condition, held->mutex()->native_handle(), kForever);
}

/// std::condition_variable::notify_all()
void __real__ZNSt18condition_variable10notify_allEv(std::condition_variable*);
void __wrap__ZNSt18condition_variable10notify_allEv(std::condition_variable* condition) {
  if (!isInside()) return __real__ZNSt18condition_variable10notify_allEv(condition);
  const Outside outside;
  refuseInHandler("wakes those who wait for a condition");
  scheduler->wakeAll(condition);
  place();
}

int __wrap_pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                                  const timespec* until) {
  if (!isInside()) return __real_pthread_cond_clockwait(condition, mutex, clock, until);
  const Outside outside;
  const Time deadline = timeOf(*until);
  waitForCondition(condition, mutex, deadline);
  return timeNow() < deadline ? 0 : ETIMEDOUT;
}

int __wrap_pthread_sigmask(int how, const sigset_t* set, sigset_t* before) {
  if (!isInside()) return __real_pthread_sigmask(how, set, before);
  const Outside outside;
  Thread& self = scheduler->current();
  if (before != nullptr) *before = self.mask;
  if (set != nullptr) {
    if (how != SIG_SETMASK) violate("pthread_sigmask is used in a way that is not simulated");
    self.mask = *set;
  }
  place();
  return 0;
}

int __wrap_pthread_getattr_np(pthread_t thread, pthread_attr_t* attributes) {
  if (!isInside()) return __real_pthread_getattr_np(thread, attributes);
  const Fiber& fiber = *scheduler->current().fiber;
  pthread_attr_init(attributes);
  return pthread_attr_setstack(attributes, fiber.stackLowest(), fiber.stackSize());
}

int __real_pthread_atfork(void (*)(), void (*)(), void (*)());
int __wrap_pthread_atfork(void (*prepare)(), void (*parent)(), void (*child)()) {
  if (!isInside()) return __real_pthread_atfork(prepare, parent, child);
  const Outside outside;
  currentProcess()->forkHandlers.push_back({prepare, parent, child});
  return 0;
}

int __wrap_prctl(int option, ...) {
  va_list arguments;
  va_start(arguments, option);
  const unsigned long argument = va_arg(arguments, unsigned long);
  va_end(arguments);
  if (!isInside() || option != PR_SET_NAME) return -1;
  const Outside outside;
  // NOLINTNEXTLINE(performance-no-int-to-ptr): prctl(2) takes a name as a number.
  scheduler->current().name = reinterpret_cast<const char*>(argument);
  const std::string& name = scheduler->current().name;
  Watch& watch = currentProcess()->watch;
  if (name == "WAN_MONITOR") watch.hasWanMonitor = true;
  if (startsWith(name, "FQDN_MONITOR")) ++watch.nameMonitors;
  place();
  return 0;
}

}  // extern "C"
