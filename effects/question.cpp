#include "effects/question.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "effects/effects.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// A process in the middle of a system call that the kernel does not end, as behind a driver that hangs, survives
/// SIGKILL until then. It is left to itself after this time.
constexpr milliseconds kTimeToDie{1000};

constexpr int kLookAgainMilliseconds = 5;

int timeLeft(Clock::time_point end) {
  return static_cast<int>(std::max<milliseconds::rep>(0, std::chrono::ceil<milliseconds>(end - Clock::now()).count()));
}

/// Reads to the end of the pipe; false when that does not come in time.
bool readUntil(Clock::time_point end, int pipe, std::string& text) {
  std::array<char, 4096> buffer{};
  for (;;) {
    pollfd readable{pipe, POLLIN, 0};
    const int ready = poll(&readable, 1, timeLeft(end));
    if (ready == 0) return false;
    const ssize_t size = ready < 0 ? -1 : read(pipe, buffer.data(), buffer.size());
    if (size == 0) return true;
    if (size > 0) text.append(buffer.data(), static_cast<std::size_t>(size));
    if (size < 0 && errno != EINTR) return false;
  }
}

/// The result of waitpid(2): 0 when the child has not ended in time.
pid_t reapUntil(Clock::time_point end, pid_t child, int& status) {
  for (;;) {
    const pid_t reaped = waitpid(child, &status, WNOHANG);
    if (reaped != 0 || Clock::now() >= end) return reaped;
    poll(nullptr, 0, kLookAgainMilliseconds);
  }
}

}  // namespace

Question::Question() {
  std::array<int, 2> ends{-1, -1};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) return;
  readEnd_ = ends[0];
  writeEnd_ = ends[1];
}

Question::~Question() {
  closeEnd(readEnd_);
  closeEnd(writeEnd_);
}

void Question::closeEnd(int& end) {
  if (end >= 0) close(end);
  end = -1;
}

void Question::become(const std::string& command) const {
  setpgid(0, 0);
  if (dup2(writeEnd_, STDOUT_FILENO) < 0) return;
  execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
}

int Question::answer(pid_t child, milliseconds limit, std::string& output) {
  const Clock::time_point end = Clock::now() + limit;
  setpgid(child, child);  // the child does the same; whoever comes first, the group is there from here on
  closeEnd(writeEnd_);
  int status = 0;
  output.clear();
  const pid_t reaped = readUntil(end, readEnd_, output) ? reapUntil(end, child, status) : 0;
  if (reaped == 0) {
    kill(-child, SIGKILL);
    reapUntil(Clock::now() + kTimeToDie, child, status);
    output.clear();
    return kNoAnswer;
  }
  if (reaped < 0) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
