#include "tests/unit/harness/child_process.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace {

TEST(RunInChild, tellsHowTheChildEnded) {
  EXPECT_TRUE(runInChild([] {}).exitedWith(0));
  EXPECT_TRUE(runInChild([] { EXPECT_TRUE(true); }).exitedWith(0));
  EXPECT_TRUE(runInChild([] { ADD_FAILURE(); }).exitedWith(1));
  EXPECT_TRUE(runInChild([] { FAIL(); }).exitedWith(1));
  EXPECT_TRUE(runInChild([] { throw std::runtime_error("thrown"); }).exitedWith(2));
  EXPECT_TRUE(runInChild([] { _exit(3); }).exitedWith(3));
  EXPECT_TRUE(runInChild([] { raise(SIGKILL); }).killedBy(SIGKILL));
}

TEST(RunInChild, collectsWhatTheChildWrites) {
  const ChildEnd end = runInChild([] {
    printf("out");
    fprintf(stderr, "err");
  });
  EXPECT_EQ(end.out, "out");
  EXPECT_EQ(end.err, "err");
}

TEST(CheckInChild, failsUnlessTheChildSucceeds) {
  checkInChild([] {});
  EXPECT_NONFATAL_FAILURE(checkInChild([] { _exit(3); }), "exited with 3");
  EXPECT_NONFATAL_FAILURE(checkInChild([] { raise(SIGKILL); }), "killed by signal 9");
  EXPECT_NONFATAL_FAILURE(checkInChild([] { throw std::runtime_error("a reason"); }), "a reason");
}

}  // namespace
