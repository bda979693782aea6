/* Runs a command and tells what it cost: stopwatch COMMAND [ARGUMENT...].
 *
 * Prints "STATUS WALL OWN CHILDREN" on one line: the exit status (negative for a signal), and three times in
 * nanoseconds. WALL lasts from just before the fork to the moment when the end is known, which is at most one look,
 * about a tenth of a millisecond, after it. OWN is the processor time of the command's process with all its threads;
 * CHILDREN is that of the processes it waited for, and of theirs. What the command prints is thrown away. */
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "watch.h"

enum { kCannotRun = 127 };

static long long nanosecondsOf(struct timeval time) {
  return time.tv_sec * 1000000000LL + time.tv_usec * 1000LL;
}

static void become(char** command) {
  const int nowhere = open("/dev/null", O_RDWR);
  dup2(nowhere, STDIN_FILENO);
  dup2(nowhere, STDOUT_FILENO);
  close(nowhere);
  execvp(command[0], command);
  perror(command[0]);
  _exit(kCannotRun);
}

int main(int argc, char** argv) {
  if (argc < 2) return EXIT_FAILURE;
  const long long begin = nanoseconds(CLOCK_MONOTONIC);
  const pid_t child = fork();
  if (child < 0) return EXIT_FAILURE;
  if (child == 0) become(argv + 1);

  /* A process that has ended still has its clock, until somebody asks for its status. */
  siginfo_t end = {0};
  clockid_t clock;
  while (end.si_pid != child) {
    lookAtThreads(child);
    if (waitid(P_PID, (id_t)child, &end, WEXITED | WNOWAIT | WNOHANG) != 0) return EXIT_FAILURE;
  }
  const long long wall = nanoseconds(CLOCK_MONOTONIC) - begin;
  if (clock_getcpuclockid(child, &clock) != 0) return EXIT_FAILURE;
  const long long own = nanoseconds(clock);

  int status = 0;
  struct rusage usage;
  if (wait4(child, &status, 0, &usage) != child) return EXIT_FAILURE;
  const long long all = nanosecondsOf(usage.ru_utime) + nanosecondsOf(usage.ru_stime);
  printf("%d %lld %lld %lld\n", WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), wall, own,
         all > own ? all - own : 0);
  return EXIT_SUCCESS;
}
