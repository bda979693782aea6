/* Has the daemon refresh and tells how long that took: refresh PID LOW HIGH.
 *
 * Sends SIGHUP and watches the number of the daemon's threads, which falls to LOW as it stops its monitors and comes
 * to HIGH as it starts the new ones. Prints "STOP RUN START OWN", in nanoseconds: from the signal until no monitor was
 * left, from then until the first new ones, from then until the last, and the processor time of all the daemon's
 * threads. Each time is at most one look, about a tenth of a millisecond, too long. A single thread more than LOW is no
 * monitor yet where there are several: the WAN monitor makes one for each of its requests. Leaves with 1 when the
 * number of threads does not come to HIGH, LOW and HIGH again within kDeadline. */
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>

#include "watch.h"

static const long long kDeadline = 100 * 1000000000LL; /* nanoseconds */

/* Returns when there are at least `least` and at most `most` threads, with the time. */
static long long waitForThreads(pid_t process, int least, int most, long long begin) {
  for (;;) {
    const int count = lookAtThreads(process);
    const long long now = nanoseconds(CLOCK_MONOTONIC);
    if (count >= least && count <= most) return now;
    if (count < 0 || now - begin > kDeadline) {
      fprintf(stderr, "%d threads, not %d to %d\n", count, least, most);
      exit(EXIT_FAILURE);
    }
  }
}

int main(int argc, char** argv) {
  if (argc != 4) return EXIT_FAILURE;
  const pid_t daemon = atoi(argv[1]);
  const int low = atoi(argv[2]);
  const int high = atoi(argv[3]);
  clockid_t clock;
  if (clock_getcpuclockid(daemon, &clock) != 0) return EXIT_FAILURE;

  waitForThreads(daemon, high, high, nanoseconds(CLOCK_MONOTONIC));
  const int several = low + 2 < high ? low + 2 : high;
  const long long ownBefore = nanoseconds(clock);
  const long long begin = nanoseconds(CLOCK_MONOTONIC);
  if (kill(daemon, SIGHUP) != 0) return EXIT_FAILURE;
  const long long stopped = waitForThreads(daemon, 0, low, begin);
  const long long starting = waitForThreads(daemon, several, INT_MAX, begin);
  const long long started = waitForThreads(daemon, high, high, begin);
  printf("%lld %lld %lld %lld\n", stopped - begin, starting - stopped, started - starting,
         nanoseconds(clock) - ownBefore);
  return EXIT_SUCCESS;
}
