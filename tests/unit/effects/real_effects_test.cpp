#include "effects/real_effects.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <vector>

#include "tests/unit/harness/child_process.h"
#include "tests/unit/harness/private_system.h"
#include "tests/unit/harness/waiting.h"
#include "tests/unit/openvpn/workshop.h"

namespace {

using RealEffectsTest = Workshop;

struct Outcome {
  pid_t result;
  int error;
  ChildState state;
};

TEST(ChildState, ReadsEveryResultOfWaitpid) {
  const std::vector<Outcome> table{
      {4711, 0, ChildState::kGone},          {1, 0, ChildState::kGone},
      {4711, EINTR, ChildState::kGone},  // errno is left over from before when the call succeeds
      {0, 0, ChildState::kRunning},          {0, ECHILD, ChildState::kRunning},
      {0, EINTR, ChildState::kRunning},      {-1, ECHILD, ChildState::kGone},
      {-1, EINTR, ChildState::kInterrupted}, {-1, EINVAL, ChildState::kRunning},
      {-1, EPERM, ChildState::kRunning},     {-1, EAGAIN, ChildState::kRunning},
      {-1, 0, ChildState::kRunning},
  };
  for (const Outcome& row : table) {
    EXPECT_EQ(childState(row.result, row.error), row.state) << row.result << " " << row.error;
  }
}

mode_t modeOf(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

/// A umask for as long as a scope lasts.
class Umask {
 public:
  explicit Umask(mode_t mask) : before_(umask(mask)) {}
  ~Umask() { umask(before_); }
  Umask(const Umask&) = delete;
  Umask& operator=(const Umask&) = delete;

 private:
  mode_t before_;
};

/// What this process was started with, as programs are to have it: nothing is writable by group or others.
std::string programUmask() {
  const Umask nothing(0);
  std::string output;
  effects().ask("umask", output);
  return output;
}

TEST_F(RealEffectsTest, LetsNoProgramCreateWhatOthersMayWrite) {
  const Umask daemons(0);
  effects().run("umask > " + path("run") + "; : > " + path("file"));
  EXPECT_EQ(read("run"), "0022\n");
  EXPECT_EQ(modeOf(path("file")), 0644U);
  EXPECT_EQ(programUmask(), "0022\n");
  const pid_t child = effects().startChild([this] { effects().run("umask > " + path("child")); });
  EXPECT_TRUE(exitedWith(statusOf(child), 255));
  EXPECT_EQ(read("child"), "0022\n");
  const pid_t program = effects().startChild([this] {
    const std::string command = "umask > " + path("program");
    const std::vector<const char*> arguments{"sh", "-c", command.c_str(), nullptr};
    effects().becomeProgram(arguments.data());
  });
  EXPECT_TRUE(exitedWith(statusOf(program), 0));
  EXPECT_EQ(read("program"), "0022\n");
  EXPECT_EQ(umask(0), 0U) << "the daemon's own umask is another one afterwards";
}

TEST_F(RealEffectsTest, CreatesFilesThatOnlyTheirOwnerWritesWhateverTheUmask) {
  const struct { mode_t mask, mode; } rows[] = {{0, 0644}, {0022, 0644}, {0002, 0644}, {0027, 0640}, {0077, 0600}};
  for (const auto& row : rows) {
    const Umask mask(row.mask);
    EXPECT_EQ(effects().writeFile(path("written"), "text"), FileOutcome::kWritten);
    EXPECT_EQ(effects().appendFile(path("appended"), "text"), FileOutcome::kWritten);
    for (const char* name : {"written", "appended"}) {
      EXPECT_EQ(modeOf(path(name)), row.mode) << name << " " << row.mask;
      effects().removeFile(path(name).c_str());
      EXPECT_FALSE(exists(name));
    }
  }
}

TEST_F(RealEffectsTest, AppendsToWhatIsThere) {
  EXPECT_EQ(effects().appendFile(path("file"), "first "), FileOutcome::kWritten);
  EXPECT_EQ(effects().appendFile(path("file"), "second"), FileOutcome::kWritten);
  EXPECT_EQ(read("file"), "first second");
  EXPECT_EQ(effects().appendFile(path("absent/file"), "text"), FileOutcome::kNotOpened);
  EXPECT_EQ(effects().appendFile("/dev/full", "text"), FileOutcome::kShort);
}

TEST_F(RealEffectsTest, SetsAMode) {
  write("file", "");
  effects().setMode(path("file"), 0604);
  EXPECT_EQ(modeOf(path("file")), 0604U);
}

/// What is made in "/dev/shm" here is nobody else's to see.
void enterPrivateMemory() {
  enterPrivateMounts();
  ASSERT_EQ(mkdir("/dev/shm", 01777), 0);
}

TEST(RealSemaphore, IsTheOwnersAloneAndMadeOnce) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([] {
    enterPrivateMemory();
    umask(0);  // the daemon's own
    sem_t* const semaphore = effects().createSemaphore("TEST");
    ASSERT_NE(semaphore, SEM_FAILED);
    EXPECT_EQ(modeOf("/dev/shm/sem.TEST"), 0600U);
    int value = -1;
    sem_getvalue(semaphore, &value);
    EXPECT_EQ(value, 0);
    EXPECT_EQ(effects().createSemaphore("TEST"), SEM_FAILED);
    effects().removeSemaphore("TEST");
    EXPECT_NE(access("/dev/shm/sem.TEST", F_OK), 0);
    effects().closeSemaphore(semaphore);
  });
}

volatile sig_atomic_t alarms = 0;

TEST(RealPause, LastsThroughSignals) {
  checkInChild([] {
    struct sigaction action {};
    action.sa_handler = [](int) { alarms = alarms + 1; };
    sigaction(SIGALRM, &action, nullptr);
    ualarm(20000, 20000);
    EXPECT_GE(timeOf([] { effects().pause(std::chrono::milliseconds(1100)); }), std::chrono::milliseconds(1100));
    EXPECT_GT(alarms, 0);
  });
}

TEST(RealDetach, GoesOnAsTheLeaderOfASessionWithoutAUmask) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const pid_t here = getpid();
  const ChildEnd end = runInChild([&ends, here] {
    const pid_t before = getpid();
    umask(0027);
    const bool detached = effects().detach();
    const bool right = detached && getpid() != before && getpid() != here && getsid(0) == getpid() && umask(0) == 0;
    [[maybe_unused]] const ssize_t size = write(ends[1], right ? "y" : "n", 1);
  });
  EXPECT_TRUE(end.exitedWith(0)) << end;
  close(ends[1]);
  char answer = 0;
  EXPECT_EQ(read(ends[0], &answer, 1), 1);
  EXPECT_EQ(answer, 'y');
  close(ends[0]);
}

TEST(RealSignal, TellsWhetherThereIsSomebody) {
  EXPECT_TRUE(effects().signalProcess(getpid(), 0));
  EXPECT_FALSE(effects().signalProcess(5000000, 0));  // beyond pid_max
}

}  // namespace
