// The daemon's signals, and how it becomes one. What it does then: daemon_loop_test.cpp.

#include "core/daemon.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "core/single_instance.h"
#include "monitors/refresh_request.h"
#include "tests/unit/harness/act_text.h"
#include "tests/unit/harness/child_process.h"
#include "tests/unit/harness/signal_masks.h"
#include "tests/unit/harness/waiting.h"

namespace {

using Lines = std::vector<std::string>;

const Lines kCleanUp{"drop semaphore TUNNEL_MANAGER", "remove /var/run/tunnel_mngr.pid"};

/// As `checkInChild`, with a condition of the child's own. The descriptor of its parent's would be the same for both.
void checkDaemon(const std::function<void()>& body) {
  checkInChild([&body] {
    refreshCondition.reset(refreshLock->createCondition());
    body();
  });
}

TEST(OnSighup, RequestsARefreshForThatSignalOnly) {
  checkDaemon([] {
    for (const int number : {SIGTERM, SIGINT, 0, -1}) {
      onSighup(number);
      EXPECT_EQ(refreshPending, 0) << number;
    }
    const ZEL::LockGuard guard(*refreshLock);
    EXPECT_GE(timeOf([] { refreshCondition->wait(50); }), std::chrono::milliseconds(50)) << "signalled";
    onSighup(SIGHUP);
    EXPECT_EQ(refreshPending, 1);
    EXPECT_LT(timeOf([] { refreshCondition->wait(kTooLong); }), kDeadline);
  });
}

TEST(OnSigterm, CleansUpForThatSignalOnlyAndOnce) {
  checkDaemon([] {
    NotingEffects noting;
    const ActingAs as(noting);
    pidWritten = true;
    for (const int number : {SIGHUP, SIGINT, 0, -1}) {
      onSigterm(number);
      EXPECT_FALSE(stopped) << number;
      EXPECT_TRUE(noting.acts.empty()) << number;
    }
    onSigterm(SIGTERM);
    EXPECT_TRUE(stopped);
    EXPECT_EQ(textsOf(noting.acts), kCleanUp);
    onSigterm(SIGTERM);
    EXPECT_EQ(textsOf(noting.acts), kCleanUp);
  });
}

/// What signal handlers call must not note, and may set errno.
class InHandlers : public NotingEffects {
 public:
  void removeSemaphore(const char* name) override {
    dropped += name == instanceName.c_str() ? 1 : 100;
    errno = EACCES;
  }
  void removeFile(const char* path) override {
    removed += path == pidFilePath.c_str() ? 1 : 100;
    errno = ENOENT;
  }

  int dropped = 0;
  int removed = 0;
};

/// A daemon that is sent both signals as soon as it is one.
class SignalledEarly : public InHandlers {
 public:
  bool detach() override {
    const bool detached = InHandlers::detach();
    raise(SIGHUP);
    raise(SIGTERM);
    return detached;
  }
  FileOutcome writeFile(const std::string& path, const std::string& text) override {
    EXPECT_EQ(firstUnblocked(currentMask()), 0);
    EXPECT_FALSE(stopped || refreshPending != 0);
    return InHandlers::writeFile(path, text);
  }
};

TEST(BecomeDaemon, HandlesTheSignalsThatComeBeforeItsHandlers) {
  checkDaemon([] {
    SignalledEarly early;
    const ActingAs as(early);
    const sigset_t before = currentMask();
    becomeDaemon();
    EXPECT_EQ(textsOf(early.acts), (Lines{"detach", "write " + pidFilePath}));
    EXPECT_TRUE(stopped && early.dropped == 1 && early.removed == 1);
    EXPECT_EQ(refreshPending, 1);
    EXPECT_TRUE(sameMasks(currentMask(), before));
  });
}

TEST(BecomeDaemon, LeavesErrnoToWhatItsHandlersInterrupt) {
  checkDaemon([] {
    InHandlers hands;
    const ActingAs as(hands);
    becomeDaemon();
    errno = EXDEV;
    raise(SIGHUP);
    EXPECT_EQ(errno, EXDEV);
    raise(SIGTERM);
    EXPECT_EQ(errno, EXDEV);
    EXPECT_TRUE(refreshPending == 1 && hands.dropped == 1 && hands.removed == 1);
  });
}

class Undetachable : public NotingEffects {
 public:
  bool detach() override {
    NotingEffects::detach();
    return false;
  }
};

TEST(BecomeDaemon, EndsTheProcessThatCannotDetach) {
  const ChildEnd end = runInChild([] {
    static Undetachable undetachable;
    atexit([] {
      for (const std::string& text : textsOf(undetachable.acts)) puts(text.c_str());
    });
    const ActingAs as(undetachable);
    becomeDaemon();
  });
  EXPECT_TRUE(end.exitedWith(1)) << end;
  EXPECT_EQ(end.out, "detach\n");
}

}  // namespace
