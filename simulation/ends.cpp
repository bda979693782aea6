// Clocks, signals' handlers, the process's number and its end in place of the C library's, under the names that --wrap
// gives (ld(1)).

#include <getopt.h>
#include <malloc.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <utility>

#include "simulation/process.h"
#include "simulation/rules.h"
#include "simulation/threads.h"
#include "simulation/world.h"

namespace simulation {
namespace {

/// The wall clock's time when a history begins: the first second of 2026.
constexpr time_t kWallClockBegin = 1767225600;

}  // namespace

Time timeOf(const timespec& moment) {
  return moment.tv_sec * kSecond + moment.tv_nsec;
}

}  // namespace simulation

using namespace simulation;

extern "C" {

/// std::chrono::steady_clock::now(), whose result is handed over as the number that it consists of.
std::int64_t __real__ZNSt6chrono3_V212steady_clock3nowEv();
std::int64_t __wrap__ZNSt6chrono3_V212steady_clock3nowEv() {
  return isInside() ? timeNow() : __real__ZNSt6chrono3_V212steady_clock3nowEv();
}

time_t __real_time(time_t*);
time_t __wrap_time(time_t* place) {
  if (!isInside()) return __real_time(place);
  return kWallClockBegin + (timeNow() + world->clockStep) / kSecond;
}

sighandler_t __real_signal(int, sighandler_t);
sighandler_t __wrap_signal(int signal, sighandler_t handler) {
  if (!isInside()) return __real_signal(signal, handler);
  const Outside outside;
  sighandler_t& place = currentProcess()->handlers[static_cast<std::size_t>(signal)];
  const sighandler_t before = place;
  place = handler;
  simulation::place();
  return before;
}

pid_t __real_getpid();
pid_t __wrap_getpid() {
  if (!isInside()) return __real_getpid();
  const Process& process = *currentProcess();
  return process.child != 0 ? process.child : process.pid;
}

int __real___cxa_atexit(void (*)(void*), void*, void*);
int __wrap___cxa_atexit(void (*function)(void*), void* argument, void* library) {
  if (!isInside()) return __real___cxa_atexit(function, argument, library);
  const Outside outside;
  currentProcess()->atExit.push_back({function, argument});
  return 0;
}

/// How far the arguments have been read is kept by the C library, once for all processes.
int __real_getopt_long(int, char* const*, const char*, const option*, int*);
int __wrap_getopt_long(int number, char* const* arguments, const char* letters, const option* options, int* index) {
  if (isInside() && !std::exchange(currentProcess()->readsOptions, true)) optind = 0;
  return __real_getopt_long(number, arguments, letters, options, index);
}

/// What was registered last comes first, while the other threads go on.
[[noreturn]] void __real_exit(int);
[[noreturn]] void __wrap_exit(int status) {
  if (!isInside()) __real_exit(status);
  Process& process = *currentProcess();
  ruleGlobalsGo(process);
  while (!process.atExit.empty()) {
    AtExit last{};
    {
      const Outside outside;
      last = process.atExit.back();
      process.atExit.pop_back();
      place();
    }
    last.function(last.argument);
  }
  const Outside outside;
  endCurrentProcess(status);
}

[[noreturn]] void __real__exit(int);
[[noreturn]] void __wrap__exit(int status) {
  if (!isInside()) __real__exit(status);
  const Outside outside;
  endCurrentProcess(status);
}

/// How much memory the simulator has is nothing that a history is about.
int __real_malloc_trim(size_t);
int __wrap_malloc_trim(size_t pad) {
  return isInside() ? 0 : __real_malloc_trim(pad);
}

}  // extern "C"
