#include "support/system_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <optional>
#include <string>
#include <thread>

#include "tests/unit/harness/child_process.h"
#include "tests/unit/harness/descriptors.h"
#include "tests/unit/harness/private_system.h"
#include "tests/unit/harness/waiting.h"

namespace {

using testing::EndsWith;
using testing::MatchesRegex;
using testing::StartsWith;
using ZEL::SystemLog;

TEST(SystemLog, writesEntriesAsTheProtocolWantsThem) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([] {
    const std::string process = "\\[" + std::to_string(getpid()) + "\\]";
    const struct {
      int option;
      int facility;
      int priority;
      std::string head;
      std::string tag;
    } rows[] = {
        {0, 0, LOG_ERR, "<11>", "IDENT"},
        {0, 0, LOG_DEBUG, "<15>", "IDENT"},
        {0, LOG_DAEMON, LOG_ERR, "<27>", "IDENT"},
        {LOG_PID, 0, LOG_INFO, "<14>", "IDENT" + process},
        {LOG_PID | LOG_NDELAY, LOG_LOCAL7, LOG_INFO, "<190>", "IDENT" + process},
        {LOG_CONS, 0, LOG_INFO, "<14>", "IDENT"},
    };
    enterPrivateMounts();
    const DatagramSocket collector = DatagramSocket::ofSystemLog();
    for (const auto& row : rows) {
      SystemLog log;
      ASSERT_TRUE(log.open("IDENT", row.option, row.facility));
      log.write(row.priority, "a text");
      EXPECT_THAT(collector.receive().value_or("none"),
                  MatchesRegex(row.head + "[A-Z][a-z][a-z] [ 0-9][0-9] [0-9][0-9]:[0-9][0-9]:[0-9][0-9] " + row.tag +
                               ": a text"));
    }
  });
}

TEST(SystemLog, writesTheLocalTime) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([] {
    enterPrivateMounts();
    setenv("TZ", "IST-5:30", 1);
    tzset();  // localtime_r(3) looks at TZ when it is first called, which a test before this one may have done
    const DatagramSocket collector = DatagramSocket::ofSystemLog();
    SystemLog log;
    ASSERT_TRUE(log.open("IDENT", 0, 0));
    const auto stampNow = [] {
      const time_t shifted = time(nullptr) + 5 * 3600 + 30 * 60;
      tm parts{};
      gmtime_r(&shifted, &parts);
      std::string text(32, '\0');
      text.resize(strftime(text.data(), text.size(), "%b %e %H:%M:%S", &parts));
      return "<11>" + text + " IDENT: text";
    };
    for (int tries = 0; tries < 20; ++tries) {
      const std::string before = stampNow();
      log.write(LOG_ERR, "text");
      const bool isSameSecond = stampNow() == before;
      const std::string entry = collector.receive().value_or("none");
      if (!isSameSecond) continue;
      EXPECT_EQ(entry, before);
      return;
    }
    FAIL() << "every write took more than a second";
  });
}

TEST(SystemLog, saysWhenNothingListens) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([] {
    enterPrivateMounts();
    SystemLog log;
    EXPECT_FALSE(log.open("IDENT", 0, 0)) << "without a socket";
    { const DatagramSocket gone = DatagramSocket::ofSystemLog(); }
    EXPECT_FALSE(log.open("IDENT", 0, 0)) << "with a socket of a system log that is gone";
  });
}

TEST(SystemLog, isAsBeforeWhenItCannotBeOpenedAnew) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([] {
    enterPrivateMounts();
    const DatagramSocket collector = DatagramSocket::ofSystemLog();
    SystemLog log;
    ASSERT_TRUE(log.open("FIRST", 0, 0));
    ASSERT_EQ(unlink("/dev/log"), 0);
    EXPECT_FALSE(log.open("SECOND", LOG_PID, LOG_DAEMON));
    log.write(LOG_ERR, "text");
    const std::string entry = collector.receive().value_or("none");
    EXPECT_THAT(entry, StartsWith("<11>"));
    EXPECT_THAT(entry, EndsWith(" FIRST: text"));
  });
}

TEST(SystemLog, cutsTextsBeyond64KiB) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([] {
    constexpr std::size_t kLongest = 65536;
    enterPrivateMounts();
    const DatagramSocket collector = DatagramSocket::ofSystemLog();
    SystemLog log;
    ASSERT_TRUE(log.open("IDENT", 0, 0));
    for (const std::size_t size : {kLongest, kLongest + 1, 2 * kLongest}) {
      log.write(LOG_ERR, std::string(size, 'x'));
      const std::string entry = collector.receive().value_or("none");
      EXPECT_EQ(entry.size() - entry.find('x'), kLongest);
    }
  });
}

TEST(SystemLog, findsARestartedSystemLogAgain) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([] {
    enterPrivateMounts();
    std::optional<DatagramSocket> collector(DatagramSocket::ofSystemLog());
    SystemLog log;
    ASSERT_TRUE(log.open("IDENT", 0, 0));
    collector.reset();
    log.write(LOG_ERR, "lost, and the program goes on");
    collector.emplace(DatagramSocket::ofSystemLog());
    log.write(LOG_ERR, "back");
    EXPECT_THAT(collector->receive().value_or("none"), EndsWith(" IDENT: back"));
    EXPECT_EQ(collector->receiveNow(), std::nullopt);
  });
}

TEST(SystemLog, hasOneDescriptorHoweverOftenItConnects) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([] {
    enterPrivateMounts();
    std::optional<DatagramSocket> collector(DatagramSocket::ofSystemLog());
    const std::size_t before = openDescriptors();
    SystemLog log;
    for (int i = 0; i < 3; ++i) {
      ASSERT_TRUE(log.open("IDENT", 0, 0));
      EXPECT_EQ(openDescriptors(), before + 1);
    }
    for (int i = 0; i < 3; ++i) {
      collector.reset();
      collector.emplace(DatagramSocket::ofSystemLog());
      log.write(LOG_ERR, "back");
      EXPECT_THAT(collector->receive().value_or("none"), EndsWith(" IDENT: back"));
      EXPECT_EQ(openDescriptors(), before + 1);
    }
    collector.reset();
    EXPECT_FALSE(log.open("IDENT", 0, 0));
    EXPECT_EQ(openDescriptors(), before) << "that of the connection, without the collector's";
  });
}

/// More entries than the kernel keeps for a system log that does not read: unix(7), max_dgram_qlen.
int moreThanFit() {
  int limit = 0;
  std::ifstream("/proc/sys/net/unix/max_dgram_qlen") >> limit;
  return limit + 100;
}

TEST(SystemLog, isNotStoppedByASystemLogThatDoesNotRead) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([] {
    enterPrivateMounts();
    const DatagramSocket collector = DatagramSocket::ofSystemLog();
    SystemLog log;
    ASSERT_TRUE(log.open("IDENT", 0, 0));
    const int entries = moreThanFit();
    EXPECT_LT(timeOf([&log, entries] {
                for (int i = 0; i < entries; ++i) log.write(LOG_ERR, std::to_string(i));
              }),
              kDeadline)
        << "a wait for each of them takes longer";
    int kept = 0;
    while (const auto entry = collector.receiveNow())
      ASSERT_THAT(*entry, EndsWith(" IDENT: " + std::to_string(kept++)));
    EXPECT_LT(kept, entries) << "so there was always room, and this test shows nothing";
    log.write(LOG_ERR, "room again");
    EXPECT_THAT(collector.receive().value_or("none"), EndsWith(" IDENT: room again"));
  });
}

TEST(SystemLog, losesNothingToASystemLogThatIsOnlySlow) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([] {
    enterPrivateMounts();
    const DatagramSocket collector = DatagramSocket::ofSystemLog();
    SystemLog log;
    ASSERT_TRUE(log.open("IDENT", 0, 0));
    const int entries = 10 * moreThanFit();
    std::thread reader([&collector, entries] {
      for (int i = 0; i < entries; ++i) {
        ASSERT_THAT(collector.receive().value_or("none"), EndsWith(" IDENT: " + std::to_string(i)));
      }
    });
    for (int i = 0; i < entries; ++i) log.write(LOG_ERR, std::to_string(i));
    reader.join();
  });
}

std::atomic<int> handled{0};

TEST(SystemLog, waitsOnForRoomAfterASignalHandler) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([] {
    enterPrivateMounts();
    const DatagramSocket collector = DatagramSocket::ofSystemLog();
    SystemLog filler;
    ASSERT_TRUE(filler.open("IDENT", 0, 0));
    for (int i = moreThanFit(); i > 0; --i) filler.write(LOG_ERR, "no room is left");
    SystemLog log;
    ASSERT_TRUE(log.open("IDENT", 0, 0));

    struct sigaction action {};
    action.sa_handler = [](int) { ++handled; };
    sigaction(SIGUSR1, &action, nullptr);
    constexpr int kSignals = 50;
    std::atomic<bool> writes{false};
    std::string last;
    const auto empty = [&collector, &last] {
      while (auto entry = collector.receiveNow()) last = *entry;
    };
    std::thread reader([&writes, &empty, writer = pthread_self()] {
      while (!writes) std::this_thread::yield();
      for (; writes && handled < kSignals; std::this_thread::sleep_for(std::chrono::milliseconds(1)))
        pthread_kill(writer, SIGUSR1);
      empty();
    });
    writes = true;
    log.write(LOG_ERR, "kept");
    writes = false;
    reader.join();
    empty();
    EXPECT_GE(handled, kSignals) << "the write was over before them";
    EXPECT_THAT(last, EndsWith(" IDENT: kept"));
  });
}

}  // namespace
