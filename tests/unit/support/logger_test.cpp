#include "support/logger.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "support/text.h"
#include "tests/unit/harness/captured_log.h"
#include "tests/unit/harness/child_process.h"
#include "tests/unit/harness/waiting.h"

namespace {

using ZEL::Logger;
using Level = ZEL::Logger::PrintLevel;

/// One line at every level.
void logAtEveryLevel() {
  ZEL_LOG(ERROR, "[%s] a", "T");
  ZEL_LOG(WARNING, "[%s] b", "T");
  ZEL_LOG(INFO, "[%s] c", "T");
  ZEL_LOG(DEBUG, "[%s] d", "T");
  ZEL_LOG(TRACE, "[%s] e", "T");
}

TEST(Logger, letsThroughWhatIsAtMostThePrintLevel) {
  const struct {
    int printLevel;
    const char* lines;
  } rows[] = {
      {-1, ""},
      {0, "ERROR [T] a\n"},
      {24, "ERROR [T] a\n"},
      {25, "ERROR [T] a\nWARNING [T] b\n"},
      {49, "ERROR [T] a\nWARNING [T] b\n"},
      {50, "ERROR [T] a\nWARNING [T] b\nINFO [T] c\n"},
      {74, "ERROR [T] a\nWARNING [T] b\nINFO [T] c\n"},
      {75, "ERROR [T] a\nWARNING [T] b\nINFO [T] c\nDEBUG [T] d\n"},
      {99, "ERROR [T] a\nWARNING [T] b\nINFO [T] c\nDEBUG [T] d\n"},
      {100, "ERROR [T] a\nWARNING [T] b\nINFO [T] c\nDEBUG [T] d\nTRACE [T] e\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.printLevel);
    const CapturedLog log(row.printLevel);
    logAtEveryLevel();
    EXPECT_EQ(log.text(), row.lines);
  }
}

TEST(Logger, ordersItsLevelsByHowMuchTheyTell) {
  constexpr std::array<int, 5> kLevels{Level::ERROR_LEVEL, Level::WARNING_LEVEL, Level::INFO_LEVEL, Level::DEBUG_LEVEL,
                                       Level::TRACE_LEVEL};
  EXPECT_THAT(kLevels, testing::ElementsAre(0, 25, 50, 75, 100));
  for (const int printLevel : kLevels) {
    const CapturedLog log(printLevel);
    for (const int level : kLevels) EXPECT_EQ(Logger::isPrintable(level), level <= printLevel);
  }
}

TEST(Logger, takesTheLastPrintLevelWhateverTheFlag) {
  const CapturedLog log(Level::ERROR_LEVEL);
  for (const bool flag : {false, true}) {
    Logger::setPrintLevel(Level::TRACE_LEVEL, !flag);
    Logger::setPrintLevel(Level::INFO_LEVEL, flag);
    EXPECT_TRUE(Logger::isPrintable(Level::INFO_LEVEL));
    EXPECT_FALSE(Logger::isPrintable(Level::DEBUG_LEVEL));
  }
}

TEST(Logger, evaluatesTheArgumentsOnlyOfWhatIsWritten) {
  const CapturedLog log(Level::INFO_LEVEL);
  int evaluated = 0;
  ZEL_LOG(DEBUG, "%d", ++evaluated);
  EXPECT_EQ(evaluated, 0);
  ZEL_LOG(INFO, "%d", ++evaluated);
  EXPECT_EQ(evaluated, 1);
  EXPECT_EQ(log.text(), "INFO 1\n");
}

TEST(Logger, isOneStatementBehindACondition) {
  const CapturedLog log(Level::INFO_LEVEL);
  const bool isNeeded = false;
  if (isNeeded)
    ZEL_LOG(INFO, "yes");
  else
    ZEL_LOG(INFO, "no");
  EXPECT_EQ(log.text(), "INFO no\n");
}

TEST(Logger, writesEachMessageAsALine) {
  const std::string longText(100000, 'x');
  const struct {
    std::string message;
    std::string line;
  } rows[] = {
      {"text", "ERROR text\n"},
      {"ends its line itself\n", "ERROR ends its line itself\n"},
      {"two\nlines", "ERROR two\nlines\n"},
      {"", "ERROR \n"},
      {"%s is not a conversion here", "ERROR %s is not a conversion here\n"},
      {"w\u0410hile", "ERROR w\xD0\x90hile\n"},
      {longText, "ERROR " + longText + "\n"},
  };
  for (const auto& row : rows) {
    const CapturedLog log(Level::ERROR_LEVEL);
    ZEL_LOG(ERROR, "%s", row.message.c_str());
    EXPECT_EQ(log.text(), row.line);
  }
}

TEST(Logger, formatsAsPrintf) {
  const CapturedLog log(Level::ERROR_LEVEL);
  Logger::printfGeneric(Level::ERROR_LEVEL, "LABEL", "[%s] error executing ip tunnel command [%d]", "TUNNEL_MNGR", -7);
  EXPECT_EQ(log.text(), "LABEL [TUNNEL_MNGR] error executing ip tunnel command [-7]\n");
}

TEST(Logger, writesTheFormatOfWhatCannotBeFormatted) {
  const CapturedLog log(Level::ERROR_LEVEL);
  const wchar_t noCharacter[] = {static_cast<wchar_t>(0x7FFFFFFF), L'\0'};
  ZEL_LOG(ERROR, "before %ls after", noCharacter);
  EXPECT_EQ(log.text(), "ERROR before %ls after\n");
}

TEST(Logger, warns) {
  const CapturedLog log(Level::ERROR_LEVEL);  // printfWarning() asks no print level
  Logger::printfWarning("[%s] Unable to log to Syslog", "TUNNEL_MNGR");
  EXPECT_EQ(log.text(), "WARNING [TUNNEL_MNGR] Unable to log to Syslog\n");
}

TEST(Logger, keepsErrno) {
  const CapturedLog log(Level::ERROR_LEVEL);
  errno = EXDEV;
  ZEL_LOG(ERROR, "%s", "text");
  EXPECT_EQ(errno, EXDEV);
}

TEST(Logger, keepsTheLinesOfSeveralThreadsWhole) {
  constexpr int kThreads = 4;
  constexpr int kLines = 500;
  const std::string text(200, 'x');
  const CapturedLog log(Level::ERROR_LEVEL);
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&text] {
      for (int line = 0; line < kLines; ++line) ZEL_LOG(ERROR, "[%s] %s", "T", text.c_str());
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::vector<std::string> lines = ZEL::Text::split(log.text(), "\n", 0);
  lines.pop_back();  // behind the last line's end
  EXPECT_EQ(lines.size(), std::size_t{kThreads * kLines});
  EXPECT_THAT(lines, testing::Each("ERROR [T] " + text));
}

/// What the child process of a fork does that logs, and its status. Its deadline is short, since it has next to nothing
/// to do; where it hangs, it ends with SIGALRM.
int statusOfForkedLogger() {
  constexpr unsigned int kSeconds = 30;
  const pid_t child = fork();
  if (child == 0) {
    alarm(kSeconds);
    ZEL_LOG(ERROR, "[%s] from the child", "T");
    _exit(0);
  }
  int status = -1;
  waitpid(child, &status, 0);
  return status;
}

TEST(Logger, worksInAForkedChildWhileOtherThreadsLog) {
  constexpr int kForks = 100;
  const CapturedLog log(Level::ERROR_LEVEL);
  std::atomic<bool> over{false};
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&over] {
      // The pause lets the forking thread have the lock, too.
      for (; !over; std::this_thread::sleep_for(std::chrono::microseconds(10))) ZEL_LOG(ERROR, "[%s] a thread", "T");
    });
  }
  int failed = 0;
  for (int i = 0; i < kForks && failed == 0; ++i) failed = statusOfForkedLogger();
  over = true;
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(failed, 0) << "wait status of the child that failed";
  const std::vector<std::string> lines = ZEL::Text::split(log.text(), "\n", 0);
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "ERROR [T] from the child"), kForks);
}

/// A pipe whose one end is standard error from now on, in a process of the test's own; returns the other end.
int pipeFromStandardError() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe2");
  dup2(ends[1], STDERR_FILENO);
  close(ends[1]);
  return ends[0];
}

TEST(Logger, isNotEndedByAPipeThatNobodyReadsAnyMore) {
  checkInChild([] {
    close(pipeFromStandardError());
    ZEL_LOG(ERROR, "lost, and the program goes on");
  });
}

TEST(Logger, isNotStoppedByAPipeThatNobodyEmpties) {
  checkInChild([] {
    const int readEnd = pipeFromStandardError();
    fcntl(STDERR_FILENO, F_SETFL, O_NONBLOCK);
    while (write(STDERR_FILENO, "x", 1) == 1) {
    }
    fcntl(STDERR_FILENO, F_SETFL, 0);
    EXPECT_LT(timeOf([] {
                for (int i = 0; i < 2 * kDeadline.count(); ++i) ZEL_LOG(ERROR, "lost, and the program goes on");
              }),
              kDeadline)
        << "more than the first line has waited";

    std::string all(1 << 20, '\0');  // as much as a pipe holds, pipe(7)
    ASSERT_GT(read(readEnd, all.data(), all.size()), 0);
    ZEL_LOG(ERROR, "room again");
    const ssize_t size = read(readEnd, all.data(), all.size());
    ASSERT_GT(size, 0);
    EXPECT_EQ(all.substr(0, static_cast<std::size_t>(size)), "ERROR room again\n");
  });
}

}  // namespace
