#include "effects/standard_streams.h"

#include <fcntl.h>
#include <unistd.h>

void openStandardStreams() {
  for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
    if (fcntl(stream, F_GETFD) >= 0) continue;
    [[maybe_unused]] const int lowest = open("/dev/null", O_RDWR);  // of the numbers that are free: the stream's
  }
}
