#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "effects/effects.h"
#include "support/system.h"
#include "tests/unit/harness/child_process.h"
#include "tests/unit/harness/descriptors.h"
#include "tests/unit/harness/waiting.h"
#include "tests/unit/openvpn/workshop.h"

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kAmple{kTooLong};
constexpr milliseconds kBrief{200};

class AskWithin : public Workshop {
 protected:
  /// The result of a command, whose output is in `output_`.
  int ask(milliseconds limit, const std::string& command) {
    output_ = "before";
    return effects().askWithin(limit, command, output_);
  }

  /// Gives up a command that hangs after it has written a process's number to the file "pid": on a busy machine later,
  /// if it has not come so far.
  int giveUp(const std::string& command) {
    int result = 0;
    for (milliseconds limit = kBrief; read("pid").empty() && limit < kAmple; limit *= 2) result = ask(limit, command);
    return result;
  }

  /// Whether the process whose number stands in the file "pid" has ended, or does so soon. A zombie has, and has no
  /// command line any more.
  bool ends() {
    const std::string commandLine = "/proc/" + std::to_string(std::stoi(read("pid"))) + "/cmdline";
    return eventually([&commandLine] {
      std::string text;
      return ZEL::System::readFile(commandLine, text) != 0 || text.empty();
    });
  }

  std::string output_;
};

TEST_F(AskWithin, CollectsWhatIsAnsweredInTime) {
  const std::size_t descriptors = openDescriptors();
  EXPECT_EQ(ask(kAmple, "echo a; echo b"), 0);
  EXPECT_EQ(output_, "a\nb\n");
  EXPECT_EQ(ask(kAmple, "head -c 300000 /dev/zero"), 0);  // more than a pipe holds
  EXPECT_EQ(output_, std::string(300000, '\0'));
  EXPECT_EQ(ask(kAmple, "echo a; exit 7"), 7);
  EXPECT_EQ(output_, "a\n");
  EXPECT_EQ(ask(kAmple, "kill -9 $$"), 137);
  EXPECT_EQ(ask(kAmple, "no-such-program 2>/dev/null"), 127);
  EXPECT_EQ(ask(kAmple, "umask"), 0);
  EXPECT_EQ(output_, "0022\n");
  EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(AskWithin, WaitsForTheEndOfWhatHasClosedItsOutput) {
  EXPECT_EQ(ask(kAmple, "exec >&-; sleep 0.2; exit 5"), 5);
  EXPECT_EQ(giveUp("echo $$ >" + path("pid") + "; exec >&-; sleep 1000"), kNoAnswer);
  EXPECT_TRUE(ends());
}

TEST_F(AskWithin, GivesUpWhatHangsAndKillsWhatItHasStarted) {
  const std::size_t descriptors = openDescriptors();
  EXPECT_EQ(giveUp("trap '' TERM; echo half; sleep 1000 & echo $! >" + path("pid") + "; wait"), kNoAnswer);
  EXPECT_EQ(output_, "");
  EXPECT_TRUE(ends());
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
  EXPECT_EQ(openDescriptors(), descriptors);
}

TEST_F(AskWithin, LeavesNothingBehindWhenTheAskerEnds) {
  const pid_t asker = fork();
  if (asker == 0) {
    ask(kAmple, "echo $$ >" + path("pid") + "; exec sleep 1000");
    _exit(0);
  }
  ASSERT_TRUE(eventually([this] { return !read("pid").empty(); }));
  kill(asker, SIGKILL);
  EXPECT_TRUE(endedBy(statusOf(asker), SIGKILL));
  EXPECT_TRUE(ends());
}

TEST(AskWithinLimits, FailsWithoutADescriptor) {
  checkInChild([] {
    effects().now();  // the undefined-behaviour sanitizer wants descriptors when it sees an object for the first time
    rlimit few{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &few), 0);
    few.rlim_cur = 3;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    std::string output = "before";
    EXPECT_EQ(effects().askWithin(kAmple, "echo a", output), -1);
  });
}

}  // namespace
