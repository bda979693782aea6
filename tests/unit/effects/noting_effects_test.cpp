#include "effects/noting_effects.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

namespace {

using Kind = Act::Kind;

Act by(pid_t actor, Act act) {
  act.actor = actor;
  return act;
}

TEST(NotingEffects, IsInForceForAScopeAndChangesNothing) {
  NotingEffects noting;
  Effects* const real = &effects();
  const std::string path = testing::TempDir() + "noted";
  {
    const ActingAs as(noting);
    EXPECT_EQ(&effects(), &noting);
    EXPECT_EQ(effects().run("touch " + path), 0);
    EXPECT_EQ(effects().writeFile(path, "text"), FileOutcome::kWritten);
    effects().setMode(path, 0600);
    EXPECT_TRUE(effects().detach());
    EXPECT_TRUE(effects().signalProcess(getpid(), SIGKILL));
    effects().pause(std::chrono::hours(1));
    NotingEffects other;
    const ActingAs inner(other);
    EXPECT_EQ(&effects(), &other);
  }
  EXPECT_EQ(&effects(), real);
  EXPECT_NE(access(path.c_str(), F_OK), 0);
}

TEST(NotingEffects, NotesEveryActInItsOrder) {
  NotingEffects noting;
  noting.run("a");
  std::string output;
  noting.ask("b", output);
  noting.writeFile("/f", "text");
  noting.appendFile("/f", " more");
  noting.setMode("/f", 0644);
  EXPECT_NE(noting.createSemaphore("S"), SEM_FAILED);
  EXPECT_EQ(noting.createSemaphore("S"), SEM_FAILED);
  noting.removeSemaphore("S");
  const pid_t child = noting.startChild([&noting] {
    noting.followParentIntoDeath();
    noting.run("c");
    const std::vector<const char*> arguments{"p", "1", nullptr};
    EXPECT_TRUE(noting.becomeProgram(arguments.data()));
  });
  EXPECT_EQ(noting.lookAtChild(child), ChildState::kRunning);
  noting.signalProcess(child, SIGTERM);
  EXPECT_EQ(noting.lookAtChild(child), ChildState::kGone);
  noting.pause(std::chrono::milliseconds(10));
  noting.detach();
  EXPECT_EQ(noting.files, (std::map<std::string, std::string>{{"/f", "text more"}}));
  EXPECT_EQ(noting.modes, (std::map<std::string, mode_t>{{"/f", 0644}}));
  noting.removeFile("/f");
  EXPECT_TRUE(noting.files.empty());

  const std::vector<Act> expected{{Kind::kRun, "a"},
                                  {Kind::kAsk, "b"},
                                  {Kind::kWrite, "/f", "text"},
                                  {Kind::kAppend, "/f", " more"},
                                  {Kind::kSetMode, "/f", "", {}, 0644},
                                  {Kind::kMakeSemaphore, "S"},
                                  {Kind::kMakeSemaphore, "S"},
                                  {Kind::kDropSemaphore, "S"},
                                  {Kind::kStart, "", "", {}, child},
                                  by(child, {Kind::kFollowParent}),
                                  by(child, {Kind::kRun, "c"}),
                                  by(child, {Kind::kBecome, "p", "", {"p", "1"}}),
                                  {Kind::kSignal, "", "", {}, child, SIGTERM},
                                  {Kind::kPause, "", "", {}, 10},
                                  {Kind::kDetach},
                                  {Kind::kRemove, "/f"}};
  EXPECT_TRUE(noting.acts == expected);
  EXPECT_EQ(noting.subjects(Kind::kRun), (std::vector<std::string>{"a", "c"}));
}

TEST(NotingEffects, AnswersAsItIsTold) {
  NotingEffects noting;
  noting.answers["ip tunnel"] = {3, "text"};
  std::string output = "before";
  EXPECT_EQ(noting.ask("ip tunnel", output), 3);
  EXPECT_EQ(output, "text");
  EXPECT_EQ(noting.ask("other", output), 0);
  EXPECT_EQ(output, "");
}

TEST(NotingEffects, AnswersInTime) {
  NotingEffects noting;
  noting.answers["ip tunnel"] = {3, "a listing"};
  std::string output;
  EXPECT_EQ(noting.askWithin(std::chrono::milliseconds(0), "ip tunnel", output), 3);
  EXPECT_EQ(output, "a listing");
  EXPECT_EQ(noting.subjects(Act::Kind::kAsk), std::vector<std::string>{"ip tunnel"});
}

TEST(NotingEffects, GivesEveryChildANumberThatNoProcessHas) {
  NotingEffects noting;
  const pid_t first = noting.startChild([] {});
  const pid_t second = noting.startChild([] {});
  EXPECT_NE(first, second);
  for (const pid_t child : {first, second}) EXPECT_NE(kill(child, 0), 0);
}

TEST(NotingEffects, NotesWhatTheSystemWouldTake) {
  using namespace std::string_literals;
  NotingEffects noting;
  noting.run("a\0b"s);
  noting.writeFile("/f\0g"s, "te\0xt"s);
  noting.setMode("/f\0h"s, 0600);
  EXPECT_EQ(noting.subjects(Kind::kRun), std::vector<std::string>{"a"});
  EXPECT_EQ(noting.files, (std::map<std::string, std::string>{{"/f", "te\0xt"s}}));
  EXPECT_EQ(noting.modes.count("/f"), 1U);
}

TEST(NotingEffects, KnowsWhichChildrenLive) {
  NotingEffects noting;
  const auto become = [&noting] {
    const std::vector<const char*> arguments{"p", nullptr};
    noting.becomeProgram(arguments.data());
  };
  const pid_t failed = noting.startChild([] {});
  const pid_t child = noting.startChild(become);
  EXPECT_EQ(noting.lookAtChild(failed), ChildState::kGone);
  noting.signalProcess(child, SIGHUP);
  EXPECT_EQ(noting.lookAtChild(child), ChildState::kRunning);
  noting.signalProcess(child, SIGTERM);
  EXPECT_EQ(noting.lookAtChild(child), ChildState::kGone);
}

}  // namespace
