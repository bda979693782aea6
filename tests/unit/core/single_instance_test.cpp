#include "core/single_instance.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "support/logger.h"
#include "tests/unit/harness/act_text.h"
#include "tests/unit/harness/captured_log.h"
#include "tests/unit/harness/child_process.h"
#include "tests/unit/harness/private_system.h"

namespace {

using Lines = std::vector<std::string>;

constexpr int kPrintAll = ZEL::Logger::PrintLevel::TRACE_LEVEL;
const std::string kPidFile = "/var/run/tunnel_mngr.pid";

/// A way of acting in which nobody can be signalled, and in which what succeeds sets errno, as it may.
class Hands : public NotingEffects {
 public:
  bool signalProcess(pid_t process, int signal) override {
    NotingEffects::signalProcess(process, signal);
    return canSignal;
  }
  FileOutcome writeFile(const std::string& path, const std::string& text) override {
    NotingEffects::writeFile(path, text);
    return outcome;
  }
  void removeFile(const char* path) override {
    NotingEffects::removeFile(path);
    errno = ENOENT;
  }
  void removeSemaphore(const char* name) override {
    NotingEffects::removeSemaphore(name);
    errno = EACCES;
  }
  void closeSemaphore(sem_t* semaphore) override { closed.push_back(semaphore); }

  bool canSignal = true;
  FileOutcome outcome = FileOutcome::kWritten;
  std::vector<sem_t*> closed;
};

TEST(SingleInstance, HasItsNames) {
  EXPECT_EQ(instanceName, "TUNNEL_MANAGER");
  EXPECT_EQ(pidFilePath, kPidFile);
  EXPECT_EQ(instanceSemaphore, nullptr);
  EXPECT_FALSE(pidWritten);
  EXPECT_FALSE(stopped);
}

TEST(SignalRunningInstance, ReturnsToTheOnlyInstanceWithItsSemaphoreAndWithoutAWord) {
  checkInChild([] {
    Hands hands;
    const ActingAs as(hands);
    const CapturedLog log(kPrintAll);
    signalRunningInstance();
    EXPECT_EQ(textsOf(hands.acts), (Lines{"make semaphore TUNNEL_MANAGER"}));
    EXPECT_EQ(log.text(), "");
    EXPECT_FALSE(stopped || pidWritten);
    ASSERT_NE(instanceSemaphore, nullptr);
    sem_t* const semaphore = instanceSemaphore;
    closeInstanceSemaphore();
    closeInstanceSemaphore();
    EXPECT_EQ(hands.closed, std::vector<sem_t*>{semaphore});
    EXPECT_EQ(instanceSemaphore, nullptr);
  });
}

/// A process that finds the semaphore there and this in the PID file, if it has one. It ends itself; at its end it
/// prints what it has done.
ChildEnd secondInstance(const std::optional<std::string>& pidFile, bool canSignal, bool isStopped = false) {
  return runInChild([&] {
    enterPrivateMounts();
    if (pidFile) std::ofstream(kPidFile) << *pidFile;
    static Hands hands;
    hands.semaphores.insert(instanceName);
    hands.canSignal = canSignal;
    atexit([] {
      for (const std::string& text : textsOf(hands.acts)) puts(text.c_str());
    });
    stopped = isStopped;
    const ActingAs as(hands);
    ZEL::Logger::setPrintLevel(kPrintAll, false);
    signalRunningInstance();
    puts("it has returned");
  });
}

const std::string kTried = "make semaphore TUNNEL_MANAGER\n";
const std::string kCleared = "drop semaphore TUNNEL_MANAGER\nremove " + kPidFile + "\n";
const std::string kSignaling = "INFO [TUNNEL_MNGR] Signaling to process for refresh.\n";
const std::string kUnreadable = "WARNING [TUNNEL_MNGR] Unable to read PID file [" + kPidFile + "]\n";
const std::string kGivingUp = "WARNING [TUNNEL_MNGR] Unable to signal process. Exiting ...\n";

std::string unparsable(const std::string& contents) {
  return "WARNING [TUNNEL_MNGR] Unable to parse PID file [" + kPidFile + "] result [" + contents + "]\n";
}

TEST(SignalRunningInstance, HandsTheRefreshOverOrClearsAwayWhatIsLeftOfAnInstance) {
  SKIP_WITHOUT_NAMESPACES();
  const std::string asked = kTried + "signal 1 to 4711\n";
  const struct {
    std::optional<std::string> pidFile;
    bool canSignal;
    int status;
    std::string acts;
    std::string log;
  } rows[] = {
      {"4711\n", true, 0, asked, kSignaling},
      {" \t4711\r\n\n", true, 0, asked, kSignaling},
      {"4711\n", false, 1, asked + kCleared, kSignaling + kGivingUp},
      {std::nullopt, true, 1, kTried + kCleared, kSignaling + kUnreadable + kGivingUp},
      {"", true, 1, kTried + kCleared, kSignaling + unparsable("") + kGivingUp},
      {"abc\n", true, 1, kTried + kCleared, kSignaling + unparsable("abc\n") + kGivingUp},
      {"4711 1", true, 1, kTried + kCleared, kSignaling + unparsable("4711 1") + kGivingUp},
      {"4294967297", true, 1, kTried + kCleared, kSignaling + unparsable("4294967297") + kGivingUp},
      {"0\n", true, 1, kTried + kCleared, kSignaling + unparsable("0\n") + kGivingUp},
      {"-1", true, 1, kTried + kCleared, kSignaling + unparsable("-1") + kGivingUp},
      {"-4711", true, 1, kTried + kCleared, kSignaling + unparsable("-4711") + kGivingUp},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.pidFile.value_or("no file"));
    const ChildEnd end = secondInstance(row.pidFile, row.canSignal);
    EXPECT_TRUE(end.exitedWith(row.status)) << end;
    EXPECT_EQ(end.out, row.acts);
    EXPECT_EQ(end.err, row.log);
  }
}

TEST(SignalRunningInstance, ClearsNothingAwayTwice) {
  SKIP_WITHOUT_NAMESPACES();
  const ChildEnd end = secondInstance("abc", true, true);
  EXPECT_TRUE(end.exitedWith(1)) << end;
  EXPECT_EQ(end.out, kTried);
}

TEST(WritePidFile, HoldsTheProcessUnlessItCannotBeOpened) {
  const std::string warning = "WARNING [TUNNEL_MNGR] Unable to write pid to file: " + kPidFile + "\n";
  const struct {
    FileOutcome outcome;
    bool written;
    std::string log;
  } rows[] = {
      {FileOutcome::kWritten, true, ""}, {FileOutcome::kShort, true, ""}, {FileOutcome::kNotOpened, false, warning}};
  for (const auto& row : rows) {
    checkInChild([&row] {
      Hands hands;
      hands.outcome = row.outcome;
      const ActingAs as(hands);
      const CapturedLog log(kPrintAll);
      writePidFile();
      EXPECT_EQ(textsOf(hands.acts), (Lines{"write " + kPidFile}));
      EXPECT_EQ(hands.files[kPidFile], std::to_string(getpid()) + "\n");
      EXPECT_EQ(pidWritten, row.written);
      EXPECT_EQ(log.text(), row.log);
    });
  }
}

TEST(CleanUp, RemovesTheNameAndTheFileThatThisProcessHasWritten) {
  checkInChild([] {
    Hands hands;
    const ActingAs as(hands);
    cleanUp();
    EXPECT_TRUE(stopped);
    EXPECT_EQ(textsOf(hands.acts), (Lines{"drop semaphore TUNNEL_MANAGER"}));
    hands.acts.clear();
    stopped = false;
    pidWritten = true;
    cleanUp();
    EXPECT_TRUE(stopped);
    EXPECT_FALSE(pidWritten);
    EXPECT_EQ(textsOf(hands.acts), (Lines{"drop semaphore TUNNEL_MANAGER", "remove " + kPidFile}));
    hands.acts.clear();
    cleanUp();
    EXPECT_EQ(textsOf(hands.acts), (Lines{"drop semaphore TUNNEL_MANAGER"})) << "by now the file is another's";
  });
}

/// It is called at any instruction of any code.
TEST(CleanUp, KeepsErrno) {
  checkInChild([] {
    Hands hands;
    const ActingAs as(hands);
    pidWritten = true;
    errno = EXDEV;
    cleanUp();
    EXPECT_EQ(errno, EXDEV);
    EXPECT_EQ(hands.acts.size(), 2U);
  });
}

}  // namespace
