#include "support/logger.h"

#include <poll.h>
#include <pthread.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <string_view>

#include "support/lock.h"
#include "support/system_log.h"

namespace ZEL {
namespace {

using Level = Logger::PrintLevel;

constexpr Logger::PrintMode kSystemLog = 3;
constexpr Logger::PrintMode kStandardError = 1;

/// How long a line may wait for room on standard error before it is given up.
constexpr int kPatienceMilliseconds = 1000;

// Threads log until the process is gone, so nothing here has a destructor that does anything.
std::atomic<int> printLevel{Level::ERROR_LEVEL};
std::atomic<Logger::PrintMode> channel{kStandardError};
std::atomic<Logger::Receiver> receiver{nullptr};
Lock writing;  // one writer at a time, and none of another thread in a forked child
SystemLog systemLog GUARDED_BY(writing);
bool hasNoRoom GUARDED_BY(writing) = false;  // standard error, when a line last met it; then none waits

void beforeFork() NO_THREAD_SAFETY_ANALYSIS {
  writing.lock();
}
void afterFork() NO_THREAD_SAFETY_ANALYSIS {
  writing.unlock();
}

[[maybe_unused]] const int forkHandlers = pthread_atfork(beforeFork, afterFork, afterFork);

struct Priority {
  int level;
  int priority;
};

constexpr std::array<Priority, 5> kPriorities{{{Level::ERROR_LEVEL, LOG_ERR},
                                               {Level::WARNING_LEVEL, LOG_WARNING},
                                               {Level::INFO_LEVEL, LOG_INFO},
                                               {Level::DEBUG_LEVEL, LOG_DEBUG},
                                               {Level::TRACE_LEVEL, LOG_DEBUG}}};

/// The system log's priority for a level; one between two levels counts as the more verbose of them.
int priorityOf(int level) {
  for (const Priority& row : kPriorities) {
    if (level <= row.level) return row.priority;
  }
  return LOG_DEBUG;
}

__attribute__((format(printf, 1, 0))) std::string formatted(char const* format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  const int size = vsnprintf(nullptr, 0, format, again);
  va_end(again);
  if (size < 0) return format;  // an argument that cannot be converted; the format still tells where it happened
  std::string text(static_cast<std::size_t>(size) + 1, '\0');
  vsnprintf(text.data(), text.size(), format, arguments);
  text.pop_back();  // the terminator
  return text;
}

/// Whether the line may go on being written: standard error has room, or gets some in time.
bool awaitRoom() REQUIRES(writing) {
  pollfd room{STDERR_FILENO, POLLOUT, 0};
  const int ready = poll(&room, 1, hasNoRoom ? 0 : kPatienceMilliseconds);
  hasNoRoom = ready == 0;
  return ready == 1 && room.revents == POLLOUT;
}

void writeStandardError(char const* label, const std::string& text) REQUIRES(writing) {
  std::string line = std::string(label) + " " + text;
  if (line.back() != '\n') line += '\n';
  // A pipe that nobody reads any more would end the process (SIGPIPE), and one that nobody empties would stop it: where
  // poll(2) sees room, there is room for PIPE_BUF bytes (pipe(7)).
  for (std::string_view rest = line; !rest.empty();) {
    if (!awaitRoom()) return;
    const ssize_t size = write(STDERR_FILENO, rest.data(), std::min<std::size_t>(rest.size(), PIPE_BUF));
    if (size <= 0) return;
    rest.remove_prefix(static_cast<std::size_t>(size));
  }
}

void writeLine(int level, char const* label, const std::string& text) {
  const int savedErrno = errno;
  {
    const LockGuard guard(writing);
    if (const Logger::Receiver instead = receiver; instead != nullptr) {
      instead(level, label, text);
    } else if (channel == kSystemLog) {
      systemLog.write(priorityOf(level), std::string(label) + " " + text);
    } else {
      writeStandardError(label, text);
    }
  }
  errno = savedErrno;
}

}  // namespace

void Logger::setPrintLevel(int level, bool) {
  printLevel = level;
}

bool Logger::setup(PrintMode const& mode, std::string const& ident, int const& option, int const& facility) {
  const LockGuard guard(writing);
  if (mode != kSystemLog || !systemLog.open(ident, option, facility)) return false;
  channel = kSystemLog;
  return true;
}

void Logger::setup(PrintMode const&) {
  channel = kStandardError;
}

void Logger::handTo(Receiver function) {
  receiver = function;
}

bool Logger::isPrintable(int level) {
  return level <= printLevel;
}

void Logger::printfGeneric(int level, char const* label, char const* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const std::string text = formatted(format, arguments);
  va_end(arguments);
  writeLine(level, label, text);
}

void Logger::printfWarning(char const* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const std::string text = formatted(format, arguments);
  va_end(arguments);
  writeLine(Level::WARNING_LEVEL, Level::WARNING_LABEL, text);
}

}  // namespace ZEL
