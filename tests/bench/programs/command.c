/* Stands in for every program of the router while a run is timed: it ends at once, so that what is timed is the one
 * who runs it. As `ip tunnel` it prints the tunnels that the kernel is to have; as `openvpn` it stays until SIGTERM
 * where that is asked for. Each call makes the file of calls a byte longer, but those as openvpn, of which nobody knows
 * how far they come before the run that started them has ended, and as ping, which is of no run. To be linked
 * statically: the less a command costs, the more the costs of its caller stand out. */
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

static const char kListing[] = "/run/bench/ip-tunnel";
static const char kCalls[] = "/run/bench/calls";
static const char kOpenvpnStays[] = "/run/bench/openvpn-stays";

static int countCall(void) {
  const int calls = open(kCalls, O_WRONLY | O_APPEND | O_CREAT, 0644);
  return calls >= 0 && write(calls, ".", 1) == 1;
}

static int printListing(void) {
  const int listing = open(kListing, O_RDONLY);
  char text[65536];
  ssize_t size = -1;
  while ((size = read(listing, text, sizeof text)) > 0) {
    if (write(STDOUT_FILENO, text, (size_t)size) != size) return 0;
  }
  return size == 0;
}

int main(int argc, char** argv) {
  const char* const slash = strrchr(argv[0], '/');
  const char* const name = slash ? slash + 1 : argv[0];
  if (strcmp(name, "openvpn") == 0) return access(kOpenvpnStays, F_OK) == 0 && pause();
  if (strcmp(name, "ping") == 0) return 0;
  if (!countCall()) return 1;
  const int isListing = strcmp(name, "ip") == 0 && argc == 2 && strcmp(argv[1], "tunnel") == 0;
  return isListing && !printListing();
}
