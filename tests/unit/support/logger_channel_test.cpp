#include "support/logger.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>

#include "tests/unit/harness/captured_log.h"
#include "tests/unit/harness/child_process.h"
#include "tests/unit/harness/private_system.h"

namespace {

using testing::EndsWith;
using testing::StartsWith;
using ZEL::Logger;
using Level = ZEL::Logger::PrintLevel;

constexpr Logger::PrintMode kSystemLog = 3;
constexpr Logger::PrintMode kFallback = 1;

TEST(LoggerChannel, refusesModesThatItDoesNotHave) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([] {
    enterPrivateMounts();
    const DatagramSocket collector = DatagramSocket::ofSystemLog();
    for (const int mode : {-1, 0, kFallback, 2, 4}) EXPECT_FALSE(Logger::setup(mode, "TUNNEL_MNGR", 0, 0)) << mode;
  });
}

TEST(LoggerChannel, isTheSystemLogWhereOneListens) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([] {
    enterPrivateMounts();
    const DatagramSocket collector = DatagramSocket::ofSystemLog();
    const CapturedLog log(Level::TRACE_LEVEL);
    ASSERT_TRUE(Logger::setup(kSystemLog, "TUNNEL_MNGR", 0, 0));
    ZEL_LOG(INFO, "[%s] MANAGING TUNNELS", "TUNNEL_MNGR");
    const std::string entry = collector.receive().value_or("none");
    EXPECT_THAT(entry, StartsWith("<14>"));
    EXPECT_THAT(entry, EndsWith(" TUNNEL_MNGR: INFO [TUNNEL_MNGR] MANAGING TUNNELS"));
    EXPECT_EQ(log.text(), "");
    Logger::setup(kFallback);
    ZEL_LOG(INFO, "again");
    EXPECT_EQ(log.text(), "INFO again\n");
    EXPECT_EQ(collector.receiveNow(), std::nullopt);
  });
}

TEST(LoggerChannel, staysAsItIsWhereNoSystemLogListens) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([] {
    enterPrivateMounts();
    const CapturedLog log(Level::ERROR_LEVEL);
    EXPECT_FALSE(Logger::setup(kSystemLog, "TUNNEL_MNGR", 0, 0));
    ZEL_LOG(ERROR, "still here");
    EXPECT_EQ(log.text(), "ERROR still here\n");
  });
}

TEST(LoggerChannel, givesEachLevelItsSystemLogPriority) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([] {
    const struct {
      int level;
      int priority;
    } rows[] = {
        {Level::ERROR_LEVEL, LOG_ERR},       {Level::WARNING_LEVEL, LOG_WARNING}, {Level::INFO_LEVEL, LOG_INFO},
        {Level::DEBUG_LEVEL, LOG_DEBUG},     {Level::TRACE_LEVEL, LOG_DEBUG},     {Level::ERROR_LEVEL + 1, LOG_WARNING},
        {Level::TRACE_LEVEL + 1, LOG_DEBUG},
    };
    enterPrivateMounts();
    const DatagramSocket collector = DatagramSocket::ofSystemLog();
    ASSERT_TRUE(Logger::setup(kSystemLog, "TUNNEL_MNGR", 0, 0));
    for (const auto& row : rows) {
      Logger::printfGeneric(row.level, "LABEL", "text");
      EXPECT_THAT(collector.receive().value_or("none"),
                  StartsWith("<" + std::to_string(LOG_USER | row.priority) + ">"));
    }
  });
}

TEST(LoggerChannel, keepsTheLineEndInsideTheMessage) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([] {
    enterPrivateMounts();
    const DatagramSocket collector = DatagramSocket::ofSystemLog();
    ASSERT_TRUE(Logger::setup(kSystemLog, "TUNNEL_MNGR", 0, 0));
    ZEL_LOG(ERROR, "ends its line itself\n");
    EXPECT_THAT(collector.receive().value_or("none"), EndsWith(": ERROR ends its line itself\n"));
  });
}

/// A pipe that has room for one page, and so says that it has room, and that nobody reads.
TEST(LoggerChannel, isNotStoppedByALineThatFindsRoomForAPartOnly) {
  checkInChild([] {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_NONBLOCK), 0);
    const std::string page(4096, 'x');
    while (write(ends[1], page.data(), page.size()) > 0) {
    }
    std::string read(page.size(), '\0');
    ASSERT_GT(::read(ends[0], read.data(), read.size()), 0);
    fcntl(ends[1], F_SETFL, 0);
    dup2(ends[1], STDERR_FILENO);
    ZEL_LOG(ERROR, "%s", std::string(9000, 'y').c_str());
  });
}

std::string received;

TEST(LoggerReceiver, isHandedEveryLineInPlaceOfTheChannel) {
  const CapturedLog log(ZEL::Logger::PrintLevel::INFO_LEVEL);
  ZEL::Logger::handTo([](int level, char const* label, std::string const& text) {
    received += std::to_string(level) + " " + label + " " + text + ";";
  });
  ZEL_LOG(ERROR, "[%s] first", "tag");
  ZEL_LOG(INFO, "second\n");
  ZEL_LOG(TRACE, "not printed");
  ZEL::Logger::handTo(nullptr);
  ZEL_LOG(ERROR, "third");
  EXPECT_EQ(received, "0 ERROR [tag] first;50 INFO second\n;");
  EXPECT_EQ(log.text(), "ERROR third\n");
}

}  // namespace
