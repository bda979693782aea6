#include "tests/unit/harness/child_process.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <ostream>
#include <system_error>

#include "tests/unit/harness/memory_file.h"

namespace {

constexpr unsigned int kDeadlineSeconds = 100;
constexpr int kThrew = 2;

/// The assertions that have failed in the test so far; a child starts with its parent's.
int failures() {
  const testing::TestResult& result = *testing::UnitTest::GetInstance()->current_test_info()->result();
  int count = 0;
  for (int i = 0; i < result.total_part_count(); ++i) count += result.GetTestPartResult(i).failed() ? 1 : 0;
  return count;
}

[[noreturn]] void runAndExit(const std::function<void()>& body, const MemoryFile& out, const MemoryFile& err) {
  alarm(kDeadlineSeconds);
  dup2(out.descriptor(), STDOUT_FILENO);
  dup2(err.descriptor(), STDERR_FILENO);
  int code = kThrew;
  const int failuresBefore = failures();
  try {
    body();
    code = failures() > failuresBefore ? 1 : 0;
  } catch (const std::exception& exception) {
    printf("the child threw: %s\n", exception.what());
  }
  fflush(nullptr);
  _exit(code);  // the parent's test program is not this process's to take down
}

}  // namespace

bool ChildEnd::exitedWith(int code) const {
  return WIFEXITED(status) && WEXITSTATUS(status) == code;
}

bool ChildEnd::killedBy(int signal) const {
  return WIFSIGNALED(status) && WTERMSIG(status) == signal;
}

ChildEnd runInChild(const std::function<void()>& body) {
  const MemoryFile out;
  const MemoryFile err;
  fflush(nullptr);
  const pid_t child = fork();
  if (child < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (child == 0) runAndExit(body, out, err);
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "waitpid");
  }
  return {status, out.text(), err.text()};
}

void checkInChild(const std::function<void()>& body) {
  const ChildEnd end = runInChild(body);
  if (!end.exitedWith(0)) ADD_FAILURE() << end;
}

std::ostream& operator<<(std::ostream& stream, const ChildEnd& end) {
  if (WIFEXITED(end.status)) stream << "exited with " << WEXITSTATUS(end.status);
  if (WIFSIGNALED(end.status)) stream << "killed by signal " << WTERMSIG(end.status);
  return stream << "\nstandard output:\n" << end.out << "\nstandard error:\n" << end.err;
}
