/* Stands in for every program of the router while a run is timed: it ends at once, so that what is timed is the one
 * who runs it. As `ip tunnel`, `ip -j ...` and `ipsec statusall` it prints what the kernel and the service are to have;
 * as `openvpn` it stays where that is asked for. Each call makes the file of calls a byte longer, but those as openvpn,
 * of which nobody knows how far they come before the run that started them has ended, and as ping, which is of no run.
 * To be linked statically: the less a command costs, the more the costs of its caller stand out. */
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

static const char kCalls[] = "/run/bench/calls";
static const char kStays[] = "/run/bench/openvpn-stays"; /* for how many milliseconds after the first SIGTERM */
static const char kReady[] = "/run/bench/openvpn-ready"; /* a byte longer for each that stays */
static const char kAsked[] = "/run/bench/openvpn-asked"; /* a byte longer for each SIGTERM */

static int lengthen(const char* path) {
  const int file = open(path, O_WRONLY | O_APPEND | O_CREAT, 0644);
  return file >= 0 && write(file, ".", 1) == 1;
}

/* What these arguments ask for lies in a file; null for those that ask for nothing. */
static const char* listingOf(const char* name, int argc, char** argv) {
  if (argc < 2) return NULL;
  if (strcmp(name, "ipsec") == 0) return strcmp(argv[1], "statusall") == 0 ? "/run/bench/ipsec-statusall" : NULL;
  if (strcmp(name, "ip") != 0) return NULL;
  if (argc == 2 && strcmp(argv[1], "tunnel") == 0) return "/run/bench/ip-tunnel";
  if (strcmp(argv[1], "-j") != 0) return NULL;
  return strcmp(argv[argc - 1], "addr") == 0 ? "/run/bench/ip-addr" : "/run/bench/ip-route";
}

static int print(const char* path) {
  const int listing = open(path, O_RDONLY);
  char text[65536];
  ssize_t size = -1;
  while ((size = read(listing, text, sizeof text)) > 0) {
    if (write(STDOUT_FILENO, text, (size_t)size) != size) return 0;
  }
  return size == 0;
}

static long long milliseconds(void) {
  struct timespec now = {0};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000LL + now.tv_nsec / 1000000;
}

/* Ends so long after the first SIGTERM, and counts all until then. */
static int stayLonger(long long time) {
  sigset_t asked;
  sigemptyset(&asked);
  sigaddset(&asked, SIGTERM);
  if (sigprocmask(SIG_BLOCK, &asked, NULL) != 0 || !lengthen(kReady)) return 1;
  if (sigwaitinfo(&asked, NULL) != SIGTERM || !lengthen(kAsked)) return 1;
  const long long end = milliseconds() + time;
  for (long long left; (left = end - milliseconds()) > 0;) {
    const struct timespec most = {left / 1000, left % 1000 * 1000000};
    if (sigtimedwait(&asked, NULL, &most) == SIGTERM && !lengthen(kAsked)) return 1;
  }
  return 0;
}

/* With a time of 0, SIGTERM's default action ends it. */
static int stay(void) {
  const int stays = open(kStays, O_RDONLY);
  char text[16] = "";
  if (stays < 0 || read(stays, text, sizeof text - 1) <= 0) return 0;
  const long long time = atoll(text);
  return time > 0 ? stayLonger(time) : lengthen(kReady) && pause();
}

int main(int argc, char** argv) {
  const char* const slash = strrchr(argv[0], '/');
  const char* const name = slash ? slash + 1 : argv[0];
  if (strcmp(name, "openvpn") == 0) return stay();
  if (strcmp(name, "ping") == 0) return 0;
  if (!lengthen(kCalls)) return 1;
  const char* const listing = listingOf(name, argc, argv);
  return listing != NULL && !print(listing);
}
