/* Preloaded into the program under test: all clocks go SANDBOX_HURRY times as fast for it, and its own waits are as
 * much shorter. What it runs, asks and is told keeps the real time, and so does its patience with the system log (a
 * wait for room, POLLOUT). The wall clock is off by the seconds that the link /run/clock-step names; a link is read
 * without a descriptor. While there is a file /run/sandbox/no-process or no-thread, the kernel has none of these for
 * it: no limit would bind root.
 *
 * All times are nanoseconds. Until the constructor has run the clocks are the real ones. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <poll.h>
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

enum { kClocks = 16 };
static const long long kSecond = 1000000000;

static long long factor = 1;
static long long begin[kClocks]; /* of each clock, when the program was started */

static long long nanoseconds(struct timespec time) {
  return time.tv_sec * kSecond + time.tv_nsec;
}

static struct timespec timespecOf(long long time) {
  return (struct timespec){.tv_sec = time / kSecond, .tv_nsec = time % kSecond};
}

static long long realTime(clockid_t clock) {
  struct timespec now = {0};
  syscall(SYS_clock_gettime, clock, &now);
  return nanoseconds(now);
}

__attribute__((constructor)) static void hurry(void) {
  unsetenv("LD_PRELOAD"); /* what the program runs does not hurry */
  for (clockid_t clock = 0; clock < kClocks; ++clock) begin[clock] = realTime(clock);
  const char* const text = getenv("SANDBOX_HURRY");
  if (text != NULL) factor = atoll(text);
}

static int runsFaster(clockid_t clock) {
  return clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE || clock == CLOCK_MONOTONIC ||
         clock == CLOCK_MONOTONIC_COARSE || clock == CLOCK_BOOTTIME;
}

static long long step(void) {
  char text[32] = "";
  return readlink("/run/clock-step", text, sizeof text - 1) > 0 ? atoll(text) * kSecond : 0;
}

int clock_gettime(clockid_t clock, struct timespec* now) {
  const int result = (int)syscall(SYS_clock_gettime, clock, now);
  if (result != 0 || !runsFaster(clock)) return result;
  const long long time = begin[clock] + (nanoseconds(*now) - begin[clock]) * factor;
  *now = timespecOf(time + (clock == CLOCK_REALTIME ? step() : 0));
  return 0;
}

time_t time(time_t* result) {
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  if (result != NULL) *result = now.tv_sec;
  return now.tv_sec;
}

int gettimeofday(struct timeval* restrict result, void* restrict zone) {
  (void)zone;
  struct timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  *result = (struct timeval){now.tv_sec, now.tv_nsec / 1000};
  return 0;
}

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                           const struct timespec* deadline) {
  int (*const real)(pthread_cond_t*, pthread_mutex_t*, clockid_t, const struct timespec*) =
      dlsym(RTLD_NEXT, "pthread_cond_clockwait");
  const struct timespec realDeadline = timespecOf(begin[clock] + (nanoseconds(*deadline) - begin[clock]) / factor);
  return real(condition, mutex, clock, &realDeadline);
}

int poll(struct pollfd* entries, nfds_t count, int milliseconds) {
  int (*const real)(struct pollfd*, nfds_t, int) = dlsym(RTLD_NEXT, "poll");
  const int isForRoom = count == 1 && entries[0].events == POLLOUT;
  if (milliseconds <= 0 || isForRoom) return real(entries, count, milliseconds);
  return real(entries, count, (int)((milliseconds + factor - 1) / factor));
}

int clock_nanosleep(clockid_t clock, int flags, const struct timespec* time, struct timespec* left) {
  const struct timespec shorter = timespecOf(nanoseconds(*time) / factor);
  return -(int)syscall(SYS_clock_nanosleep, clock, flags, &shorter, left);
}

static int isRefused(const char* fault) {
  const int savedErrno = errno;
  if (access(fault, F_OK) == 0) {
    errno = EAGAIN;
    return 1;
  }
  errno = savedErrno;
  return 0;
}

static int noProcess(void) {
  return isRefused("/run/sandbox/no-process");
}

pid_t fork(void) {
  pid_t (*const real)(void) = dlsym(RTLD_NEXT, "fork");
  return noProcess() ? -1 : real();
}

FILE* popen(const char* command, const char* mode) {
  FILE* (*const real)(const char*, const char*) = dlsym(RTLD_NEXT, "popen");
  return noProcess() ? NULL : real(command, mode);
}

int system(const char* command) {
  enum { kNoShell = 127 << 8 }; /* as system(3) has it */
  int (*const real)(const char*) = dlsym(RTLD_NEXT, "system");
  return noProcess() ? kNoShell : real(command);
}

int pthread_create(pthread_t* restrict thread, const pthread_attr_t* restrict attributes, void* (*body)(void*),
                   void* restrict argument) {
  int (*const real)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*) = dlsym(RTLD_NEXT, "pthread_create");
  return isRefused("/run/sandbox/no-thread") ? EAGAIN : real(thread, attributes, body, argument);
}

/* Whether it may read the object that it looks at GCC's sanitizer asks the kernel through a pipe, and takes an object
 * that it cannot ask about for a broken one. So where there are not two descriptors left it does not look. */
void __ubsan_handle_dynamic_type_cache_miss_abort(void* data, uintptr_t pointer, uintptr_t hash) {
  void (*const real)(void*, uintptr_t, uintptr_t) = dlsym(RTLD_NEXT, "__ubsan_handle_dynamic_type_cache_miss_abort");
  const int savedErrno = errno;
  int ends[2];
  const int canAsk = pipe(ends) == 0;
  if (canAsk) {
    close(ends[0]);
    close(ends[1]);
  }
  errno = savedErrno;
  if (canAsk) real(data, pointer, hash);
}
