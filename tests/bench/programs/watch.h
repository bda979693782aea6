/* How the benchmark programs look at a process that is being timed. They all do it in the same way and as often: a
 * processor that is woken all the time wakes faster than one that sleeps, and what is timed shares the machine's. */
#include <sys/types.h>
#include <time.h>

/* The time of a clock; ends this process with 1 where the clock has none. */
long long nanoseconds(clockid_t clock);

/* How many threads the process has, a tenth of a millisecond from now at most; -1 when it is gone. A process that has
 * ended and that nobody has waited for has one. */
int lookAtThreads(pid_t process);
