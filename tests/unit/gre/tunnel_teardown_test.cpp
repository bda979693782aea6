#include "gre/tunnel_teardown.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/unit/harness/captured_log.h"
#include "tests/unit/harness/stand_in.h"

namespace {

using testing::ElementsAre;

TEST(DestroyTunnel, takesTheLinkDownAndDeletesTheTunnel) {
  const StandIn ip("ip", "", 0);
  const CapturedLog log(100);
  EXPECT_TRUE(destroyTunnel("gre1"));
  EXPECT_THAT(ip.calls(), ElementsAre("ip|link|set|gre1|down", "ip|tunnel|del|gre1"));
  EXPECT_EQ(log.text(),
            "INFO [TUNNEL_MNGR] DESTROYING TUNNEL: gre1\n"
            "TRACE [TUNNEL_MNGR] ip link set gre1 down\n"
            "TRACE [TUNNEL_MNGR] ip tunnel del gre1\n");
}

TEST(DestroyTunnel, triesToDeleteAlsoWhenTheLinkIsNotToBeHad) {
  const StandIn ip("ip", "", 1);
  EXPECT_TRUE(destroyTunnel("gre1"));
  EXPECT_THAT(ip.calls(), ElementsAre("ip|link|set|gre1|down", "ip|tunnel|del|gre1"));
}

TEST(DestroyTunnel, quotesNothing) {
  const StandIn ip("ip", "", 0);
  EXPECT_TRUE(destroyTunnel("two words"));
  EXPECT_THAT(ip.calls(), ElementsAre("ip|link|set|two|words|down", "ip|tunnel|del|two|words"));
}

}  // namespace
