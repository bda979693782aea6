// The program's log.
#pragma once

#include <string>

namespace ZEL {

/// One process-wide log with a threshold and a channel. Every operation may be called from every thread, also at the
/// very end of the process. One message is one system log entry, or one line of standard error.
///
/// A child made with fork(2) may log before it executes another program, whatever the other threads did at the fork.
class Logger {
 public:
  /// How much a message matters: the level is compared with the print level, the label is written before the message.
  struct PrintLevel {
    static constexpr int ERROR_LEVEL = 0;
    static constexpr int WARNING_LEVEL = 25;
    static constexpr int INFO_LEVEL = 50;
    static constexpr int DEBUG_LEVEL = 75;
    static constexpr int TRACE_LEVEL = 100;
    static constexpr const char* ERROR_LABEL = "ERROR";
    static constexpr const char* WARNING_LABEL = "WARNING";
    static constexpr const char* INFO_LABEL = "INFO";
    static constexpr const char* DEBUG_LABEL = "DEBUG";
    static constexpr const char* TRACE_LABEL = "TRACE";
  };

  /// Where messages go: 3 is the system log, 1 is standard error. Until a channel is set up it is standard error.
  using PrintMode = int;

  /// Sets the threshold; the last call wins, and the flag changes nothing.
  static void setPrintLevel(int level, bool);

  /// Opens the system log (mode 3) under the ident, with the option and facility words of openlog(3). False, and the
  /// channel unchanged, when the mode is another one or when nothing listens on the system log's socket.
  static bool setup(PrintMode const& mode, std::string const& ident, int const& option, int const& facility);

  /// Selects a channel that always works, whatever the mode: standard error.
  static void setup(PrintMode const& mode);

  /// Has every message handed to a function, by the thread that logs it and by one at a time, instead of written; null
  /// ends that. The function must not log.
  using Receiver = void (*)(int level, char const* label, std::string const& text);
  static void handTo(Receiver receiver);

  /// True when a message of that level is at most the print level.
  static bool isPrintable(int level);

  static void printfGeneric(int level, char const* label, char const* format, ...)
      __attribute__((format(printf, 3, 4)));
  static void printfWarning(char const* format, ...) __attribute__((format(printf, 1, 2)));
};

}  // namespace ZEL

/// Writes a message of the level ERROR, WARNING, INFO, DEBUG or TRACE; the arguments are evaluated only when it is
/// written.
#define ZEL_LOG(LEVEL, ...)                                                                                      \
  do {                                                                                                           \
    if (ZEL::Logger::isPrintable(ZEL::Logger::PrintLevel::LEVEL##_LEVEL))                                        \
      ZEL::Logger::printfGeneric(ZEL::Logger::PrintLevel::LEVEL##_LEVEL, ZEL::Logger::PrintLevel::LEVEL##_LABEL, \
                                 __VA_ARGS__);                                                                   \
  } while (false)
