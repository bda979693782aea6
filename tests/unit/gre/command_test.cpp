#include "gre/command.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/harness/captured_log.h"
#include "tests/unit/harness/stand_in.h"

namespace {

constexpr int kTrace = 100;

TEST(RunCommand, logsTheCommandAndRunsIt) {
  const StandIn ip("ip", "", 0);
  const CapturedLog log(kTrace);
  runCommand("ip link set gre1 up");
  EXPECT_EQ(log.text(), "TRACE [TUNNEL_MNGR] ip link set gre1 up\n");
  EXPECT_THAT(ip.calls(), testing::ElementsAre("ip|link|set|gre1|up"));
}

TEST(RunCommand, doesNotLookAtTheStatus) {
  const StandIn ip("ip", "", 2);
  const CapturedLog log(kTrace - 1);
  runCommand("ip link set gre1 up");
  EXPECT_EQ(log.text(), "");
  EXPECT_THAT(ip.calls(), testing::SizeIs(1));
}

}  // namespace
