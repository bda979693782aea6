// The log and the threads of the program, replaced by a log in memory and by no threads. Each source file that is
// replaced here is replaced as a whole, since the linker takes its object only when a symbol of it is missing.

#include <cstdarg>
#include <cstdio>
#include <utility>

#include "support/logger.h"
#include "support/native_thread.h"
#include "tests/fuzz/harness/router.h"

namespace {

__attribute__((format(printf, 2, 0))) void note(int level, char const* format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  const int size = vsnprintf(nullptr, 0, format, again);
  va_end(again);
  std::string text(static_cast<std::size_t>(size) + 1, '\0');
  vsnprintf(text.data(), text.size(), format, arguments);
  text.pop_back();  // the terminator
  router.log.push_back({level, std::move(text)});
}

}  // namespace

namespace ZEL {

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

bool spawnThread(std::size_t, std::function<void()>, pthread_t*) {
  return false;
}

}  // namespace ZEL
