// The thin functions of the program that act on the system, replaced by ones that note what would have been done. Each
// source file that is replaced here is replaced as a whole, since the linker takes its object only when a symbol of it
// is missing.

#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <utility>

#include "support/logger.h"
#include "support/native_thread.h"
#include "support/system.h"
#include "support/whole_file.h"
#include "tests/fuzz/harness/require.h"
#include "tests/fuzz/harness/router.h"

namespace {

/// The process id of the first child.
constexpr int kFirstChild = 1000;

__attribute__((format(printf, 2, 0))) void note(int level, char const* format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  const int size = vsnprintf(nullptr, 0, format, again);
  va_end(again);
  std::string text(static_cast<std::size_t>(size) + 1, '\0');
  vsnprintf(text.data(), text.size(), format, arguments);
  text.pop_back();  // the terminator
  router.deeds.log.push_back({level, std::move(text)});
}

}  // namespace

namespace ZEL {

// ---- support/system.cpp ----

int System::run(std::string const& command) {
  router.deeds.commands.push_back(command);
  return 0;
}

int System::cmd(std::string const& command, std::string& output) {
  require(command == "ip tunnel", "one command's output is asked for");
  output = router.listing;
  return router.listingStatus;
}

int System::readFile(std::string const&, std::string&) {
  return ENOENT;
}

// ---- support/whole_file.cpp ----

FileOutcome writeWholeFile(const std::string& path, const std::string& text) {
  if (!router.canOpen(path)) return FileOutcome::kNotOpened;
  router.deeds.files[path] = router.fullDisk ? "" : text;
  return router.fullDisk && !text.empty() ? FileOutcome::kShort : FileOutcome::kWritten;
}

// ---- support/logger.cpp: every level is printed, so that all arguments are built ----

void Logger::setPrintLevel(int, bool) {}
bool Logger::setup(PrintMode const&, std::string const&, int const&, int const&) {
  return true;
}
void Logger::setup(PrintMode const&) {}
bool Logger::isPrintable(int) {
  return true;
}

void Logger::printfGeneric(int level, char const*, char const* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  note(level, format, arguments);
  va_end(arguments);
}

void Logger::printfWarning(char const* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  note(PrintLevel::WARNING_LEVEL, format, arguments);
  va_end(arguments);
}

// ---- support/native_thread.cpp: the system has no thread to give, so everything happens on the fuzzer's own ----

BlockedSignals::BlockedSignals() : before_() {
  sigemptyset(&before_);
}
BlockedSignals::~BlockedSignals() = default;

bool spawnThread(std::size_t, std::function<void()>, pthread_t*) {
  return false;
}

}  // namespace ZEL

// ---- libc, under the names that --wrap gives (ld(1)) ----

extern "C" {

unsigned int __real_sleep(unsigned int seconds);

int __wrap_chmod(const char* path, mode_t mode) {
  router.deeds.modes[path] = mode;
  return 0;
}

/// The fuzzer's own thread that watches the memory sleeps for real, and is no part of what an input runs.
__attribute__((no_sanitize("coverage"))) unsigned int __wrap_sleep(unsigned int seconds) {
  if (gettid() != getpid()) return __real_sleep(seconds);
  ++router.deeds.pauses;
  return 0;
}

/// Always the parent, so the child's part is not run.
pid_t __wrap_fork() {
  return kFirstChild + router.deeds.children++;
}

int __wrap_kill(pid_t, int) {
  return 0;
}

/// A child that was told to end has ended.
pid_t __wrap_waitpid(pid_t child, int*, int) {
  return child;
}

}  // extern "C"
