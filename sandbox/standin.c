/* The recorder and the stand-ins, in one program that starts in a fraction of a millisecond.
 *
 * Run as anything in kStandInFolder it stands in for the router's program of that name: it reports its argument vector
 * to the keeper, waits for the acknowledgement, and does what the keeper's reply says. Run as anything else it is the
 * shell: a "-c TEXT" call of a process that carries the marker in its environment is reported with the exact text, and
 * then the real shell takes over in the same process.
 *
 * A frame from here is a 32-bit length and that many bytes of NUL-terminated texts; each is answered, "start" with a
 * Reply and the rest with kAcknowledged. Nothing is changed in the process before the Reply, so the keeper can read
 * from /proc what the program was given. A start is on record before the Reply; that of a program that is to stay is
 * so before the answer to its "ready", when signals already find their handlers, and from then on the keeper may also
 * send the exit status to leave with. */
#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/auxv.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

static const char kStandInFolder[] = "/run/sandbox/bin/";
static const char kRealShell[] = "/run/sandbox/sh";
static const char kKeeperName[] = "sandbox-keeper"; /* in the abstract name space, which a network namespace bounds */
static const char kMarker[] = "SANDBOX_RECORD";

enum Mode { kFinish = 0, kStay = 1, kRunReal = 2, kBecomeReal = 3 };

struct Reply {
  int32_t mode;
  int32_t status;  /* exit status; a negative one is the signal to die of */
  int32_t delayMs; /* before output and exit */
  int32_t termMs;  /* while staying, from SIGTERM to the exit; negative: SIGTERM is ignored */
  uint32_t outputSize;
  uint32_t errorSize;
  uint32_t pathSize; /* of the real program's path, with its NUL */
};

static const int32_t kAcknowledged = INT32_MAX;
static const int32_t kNothingTold = INT32_MIN;

static int signalPipe[2] = {-1, -1};

static int sendAll(int fd, const void* data, size_t size) {
  const char* next = data;
  while (size > 0) {
    const ssize_t sent = send(fd, next, size, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return -1;
    next += sent;
    size -= (size_t)sent;
  }
  return 0;
}

static int receiveAll(int fd, void* data, size_t size) {
  char* next = data;
  while (size > 0) {
    const ssize_t got = recv(fd, next, size, 0);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return -1;
    next += got;
    size -= (size_t)got;
  }
  return 0;
}

static void writeAll(int fd, const char* text, size_t size) {
  while (size > 0) {
    const ssize_t written = write(fd, text, size);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    text += written;
    size -= (size_t)written;
  }
}

static int connectKeeper(void) {
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  struct sockaddr_un address = {.sun_family = AF_UNIX};
  const size_t nameSize = sizeof kKeeperName - 1;
  memcpy(address.sun_path + 1, kKeeperName, nameSize);
  const socklen_t size = (socklen_t)(offsetof(struct sockaddr_un, sun_path) + 1 + nameSize);
  if (fd >= 0 && connect(fd, (const struct sockaddr*)&address, size) == 0) return fd;
  if (fd >= 0) close(fd);
  return -1;
}

/* Sends the texts as one frame; the list ends with a null pointer, and `more` (may be null) follows it. */
static int sendFrame(int fd, char* const* more, ...) {
  uint32_t size = 0;
  va_list texts;
  va_start(texts, more);
  for (const char* text; (text = va_arg(texts, const char*)) != NULL;) size += (uint32_t)strlen(text) + 1;
  va_end(texts);
  for (char* const* text = more; text && *text; ++text) size += (uint32_t)strlen(*text) + 1;

  char* const frame = malloc(sizeof size + size);
  if (!frame) return -1;
  memcpy(frame, &size, sizeof size);
  char* next = frame + sizeof size;
  va_start(texts, more);
  for (const char* text; (text = va_arg(texts, const char*)) != NULL;) next = stpcpy(next, text) + 1;
  va_end(texts);
  for (char* const* text = more; text && *text; ++text) next = stpcpy(next, *text) + 1;
  const int result = sendAll(fd, frame, sizeof size + size);
  free(frame);
  return result;
}

/* Returns the exit status that the keeper asked for meanwhile, or kNothingTold. */
static int32_t reportAndWait(int keeper, const char* what, const char* value) {
  int32_t told = kNothingTold;
  if (sendFrame(keeper, NULL, what, value, (char*)NULL) != 0) return told;
  for (int32_t answer; receiveAll(keeper, &answer, sizeof answer) == 0 && answer != kAcknowledged;) told = answer;
  return told;
}

static const char* decimal(long value) {
  static char texts[4][24];
  static unsigned next;
  char* const text = texts[next++ % 4];
  snprintf(text, sizeof texts[0], "%ld", value);
  return text;
}

/* ---- the shell ------------------------------------------------------------------------------------------------- */

/* The text of "sh -c TEXT"; system(3) and popen(3) may put "--" in between. Null for any other call. */
static const char* commandText(int argc, char** argv) {
  if (argc < 3 || strcmp(argv[1], "-c") != 0) return NULL;
  return strcmp(argv[2], "--") == 0 ? argv[3] : argv[2];
}

static int actAsShell(int argc, char** argv) {
  const char* const text = commandText(argc, argv);
  const int keeper = text && getenv(kMarker) ? connectKeeper() : -1;
  if (keeper >= 0) {
    int32_t acknowledgement;
    if (sendFrame(keeper, NULL, "shell", decimal(getpid()), decimal(getppid()), text, (char*)NULL) == 0)
      receiveAll(keeper, &acknowledgement, sizeof acknowledgement);
    close(keeper);
  }
  execv(kRealShell, argv);
  return 126;
}

/* ---- the stand-ins --------------------------------------------------------------------------------------------- */

static void onSignal(int number) {
  const int savedErrno = errno;
  const unsigned char byte = (unsigned char)number;
  if (write(signalPipe[1], &byte, 1) < 0) _exit(125);
  errno = savedErrno;
}

static void leave(int keeper, int status) {
  reportAndWait(keeper, "end", decimal(status));
  if (status < 0) {
    signal(-status, SIG_DFL);
    raise(-status);
  }
  _exit(status);
}

static void finish(int keeper, const struct Reply* reply, const char* texts, int status) {
  writeAll(STDOUT_FILENO, texts, reply->outputSize);
  writeAll(STDERR_FILENO, texts + reply->outputSize, reply->errorSize);
  leave(keeper, status);
}

static int64_t nowMs(void) {
  struct timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * INT64_C(1000) + now.tv_nsec / 1000000;
}

static void catchSignals(void) {
  if (pipe(signalPipe) != 0) _exit(125);
  struct sigaction action = {.sa_handler = onSignal};
  sigaction(SIGTERM, &action, NULL);
  sigaction(SIGINT, &action, NULL);
}

/* Stays until SIGTERM or SIGINT, or until the keeper says with which status to leave. The delay before the exit counts
 * from the first signal, so that a manager that repeats it every second does not prolong it. */
static void stay(int keeper, const struct Reply* reply, const char* texts) {
  int64_t deadline = -1;
  for (;;) {
    const int64_t left = deadline < 0 ? -1 : deadline - nowMs();
    if (deadline >= 0 && left <= 0) finish(keeper, reply, texts, reply->status);
    struct pollfd sources[] = {{.fd = keeper, .events = POLLIN}, {.fd = signalPipe[0], .events = POLLIN}};
    if (poll(sources, 2, (int)left) <= 0) continue;
    int32_t told = kNothingTold;
    if (sources[1].revents & POLLIN) {
      unsigned char number;
      if (read(signalPipe[0], &number, 1) != 1) _exit(125);
      told = reportAndWait(keeper, "signal", decimal(number));
      if (deadline < 0 && reply->termMs >= 0) deadline = nowMs() + reply->termMs;
    } else if (receiveAll(keeper, &told, sizeof told) != 0) {
      _exit(125);
    }
    if (told != kNothingTold) finish(keeper, reply, texts, told);
  }
}

static void runReal(int keeper, const char* path, char** argv) {
  int status = 0;
  const pid_t child = fork();
  if (child == 0) {
    execv(path, argv);
    _exit(127);
  }
  if (child < 0) leave(keeper, 125);
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  leave(keeper, WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status));
}

static int standIn(const char* name, char** argv) {
  const int keeper = connectKeeper();
  int parentDeathSignal = 0;
  prctl(PR_GET_PDEATHSIG, &parentDeathSignal);
  struct Reply reply;
  if (keeper < 0 ||
      sendFrame(keeper, argv, "start", name, decimal(getpid()), decimal(getppid()), decimal(parentDeathSignal),
                decimal(keeper), (char*)NULL) != 0 ||
      receiveAll(keeper, &reply, sizeof reply) != 0)
    return 125;
  const size_t textSize = (size_t)reply.outputSize + reply.errorSize + reply.pathSize;
  char* const texts = malloc(textSize + 1);
  if (!texts || receiveAll(keeper, texts, textSize) != 0) return 125;
  const char* const realPath = texts + reply.outputSize + reply.errorSize;

  if (reply.mode == kStay) {
    catchSignals();
    const int32_t told = reportAndWait(keeper, "ready", name);
    if (told != kNothingTold) finish(keeper, &reply, texts, told);
  }
  if (reply.delayMs > 0) {
    struct timespec pause = {.tv_sec = reply.delayMs / 1000, .tv_nsec = reply.delayMs % 1000 * 1000000L};
    while (nanosleep(&pause, &pause) != 0 && errno == EINTR) {
    }
  }
  switch (reply.mode) {
    case kStay:
      stay(keeper, &reply, texts);
      break;
    case kRunReal:
      runReal(keeper, realPath, argv);
      break;
    case kBecomeReal:
      execv(realPath, argv);
      return 127;
    default:
      finish(keeper, &reply, texts, reply.status);
  }
  return 125;
}

int main(int argc, char** argv) {
  const char* const path = (const char*)getauxval(AT_EXECFN);
  const size_t folderSize = sizeof kStandInFolder - 1;
  if (path && strncmp(path, kStandInFolder, folderSize) == 0) return standIn(path + folderSize, argv);
  return actAsShell(argc, argv);
}
