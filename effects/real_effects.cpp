#include "effects/real_effects.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "effects/blocked_signals.h"
#include "effects/question.h"
#include "effects/read_stream.h"

namespace {

/// The status of a child that did not become a program: the -1 of the call that failed, as a parent sees it.
constexpr int kFailedStatus = 255;

constexpr mode_t kReadableByAll = 0644;
constexpr mode_t kOwnerOnly = 0600;

mode_t currentUmask() {
  const mode_t mask = umask(0);
  umask(mask);
  return mask;
}

/// What programs are not to give anybody: whatever this process was not to give when it was started, and the right to
/// write what root's programs obey. Read before entry, since the daemon's own umask becomes 0.
const mode_t kProgramUmask = currentUmask() | S_IWGRP | S_IWOTH;

/// Has what is forked meanwhile start with the programs' umask. Nobody else of this process creates a file then: the
/// other threads create none at all.
class ProgramUmask {
 public:
  ProgramUmask() : before_(umask(kProgramUmask)) {}
  ~ProgramUmask() { umask(before_); }
  ProgramUmask(const ProgramUmask&) = delete;
  ProgramUmask& operator=(const ProgramUmask&) = delete;

 private:
  mode_t before_;
};

// A stream would take any text into its buffer and fail later; write(2) itself says how much found room.
FileOutcome putText(const std::string& path, const std::string& text, int flags) {
  const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | flags, kReadableByAll);
  if (descriptor < 0) return FileOutcome::kNotOpened;
  const ssize_t size = write(descriptor, text.data(), text.size());
  close(descriptor);
  return size == static_cast<ssize_t>(text.size()) ? FileOutcome::kWritten : FileOutcome::kShort;
}

/// Gives every signal that has a handler its default action, which an exec would do anyway (execve(2)).
void dropSignalHandlers() {
  for (int number = 1; number < NSIG; ++number) {
    struct sigaction action {};
    if (sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) signal(number, SIG_DFL);
  }
}

/// fork(2) for a child in which no handler of this process ever runs. A SIGTERM that came before the exec would
/// otherwise be spent on the daemon's handler, which in the child removes the daemon's PID file and forgets the signal.
/// Both processes go on with the mask that the caller had.
pid_t forkWithoutHandlers() {
  const BlockedSignals untilDropped;
  const pid_t child = fork();
  if (child == 0) dropSignalHandlers();
  return child;
}

/// An exception must not leave a child's life: it would go on as a second manager.
[[noreturn]] void liveAndEnd(const std::function<void()>& life) noexcept {
  umask(kProgramUmask);
  life();
  _exit(kFailedStatus);
}

}  // namespace

int RealEffects::run(const std::string& command) {
  const ProgramUmask mask;
  return system(command.c_str());
}

int RealEffects::ask(const std::string& command, std::string& output) {
  const ProgramUmask mask;
  output.clear();
  FILE* const stream = popen(command.c_str(), "re");
  if (stream == nullptr) return -1;
  const bool complete = readStream(stream, output);
  const int status = pclose(stream);
  if (!complete || status < 0) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int RealEffects::askWithin(std::chrono::milliseconds limit, const std::string& command, std::string& output) {
  Question question;
  if (!question.isOpen()) return -1;
  const pid_t child = startChild([&] {
    if (followParentIntoDeath()) question.become(command);
  });
  return child < 0 ? -1 : question.answer(child, limit, output);
}

FileOutcome RealEffects::writeFile(const std::string& path, const std::string& text) {
  return putText(path, text, O_TRUNC);
}

FileOutcome RealEffects::appendFile(const std::string& path, const std::string& text) {
  return putText(path, text, O_APPEND);
}

void RealEffects::setMode(const std::string& path, mode_t mode) {
  chmod(path.c_str(), mode);
}

void RealEffects::removeFile(const char* path) {
  unlink(path);
}

sem_t* RealEffects::createSemaphore(const char* name) {
  return sem_open(name, O_CREAT | O_EXCL, kOwnerOnly, 0);
}

void RealEffects::closeSemaphore(sem_t* semaphore) {
  sem_close(semaphore);
}

void RealEffects::removeSemaphore(const char* name) {
  sem_unlink(name);
}

pid_t RealEffects::startChild(const std::function<void()>& life) {
  parent_ = getpid();
  const pid_t child = forkWithoutHandlers();
  if (child == 0) liveAndEnd(life);
  return child;
}

// A parent that died before the request is noticed by the child itself, since it has another parent by now; nobody is
// left who would look at its status.
bool RealEffects::followParentIntoDeath() {
  if (prctl(PR_SET_PDEATHSIG, SIGTERM) < 0) return false;
  if (getppid() != parent_) _exit(kFailedStatus);
  return true;
}

bool RealEffects::becomeProgram(const char* const* arguments) {
  execvp(arguments[0], const_cast<char* const*>(arguments));
  return false;
}

bool RealEffects::signalProcess(pid_t process, int signal) {
  return kill(process, signal) == 0;
}

ChildState RealEffects::lookAtChild(pid_t child) {
  const pid_t result = waitpid(child, nullptr, WNOHANG);
  return childState(result, errno);
}

void RealEffects::pause(std::chrono::milliseconds time) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
  timespec left{};
  left.tv_sec = static_cast<time_t>(seconds.count());
  left.tv_nsec = static_cast<long>(std::chrono::nanoseconds(time - seconds).count());
  while (clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR) {
  }
}

std::chrono::steady_clock::time_point RealEffects::now() {
  return std::chrono::steady_clock::now();
}

bool RealEffects::detach() {
  const pid_t child = fork();
  if (child < 0) return false;
  if (child > 0) exit(0);
  umask(0);
  return setsid() >= 0;
}

ChildState childState(pid_t result, int error) {
  if (result > 0) return ChildState::kGone;
  if (result == 0) return ChildState::kRunning;
  if (error == EINTR) return ChildState::kInterrupted;
  return error == ECHILD ? ChildState::kGone : ChildState::kRunning;
}
