#include "tunnelctl/status_rows.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "effects/effects.h"
#include "tests/unit/tunnelctl/status_samples.h"

namespace {

using status_test::facts;
using testing::ElementsAre;
using testing::IsEmpty;

Status withStates(const std::vector<TunnelState>& states) {
  Status status;
  status.wan = "198.51.100.2";
  for (const TunnelState state : states) status.tunnels.push_back({"gre", "a", {state, ""}});
  return status;
}

TEST(ExitStatusOf, tellsWhetherAllThatIsConfiguredIsUp) {
  using State = TunnelState;
  const struct {
    std::vector<TunnelState> states;
    int exitStatus;
  } rows[] = {{{}, 0},
              {{State::kUp, State::kUp}, 0},
              {{State::kUp, State::kStale}, 0},
              {{State::kUp, State::kDown}, 1},
              {{State::kPartial}, 1},
              {{State::kUp, State::kUnknown}, 2},
              {{State::kUnknown, State::kDown}, 1}};
  for (const auto& row : rows) EXPECT_EQ(exitStatusOf(withStates(row.states)), row.exitStatus);
}

TEST(ExitStatusOf, cannotTellWithoutTheApi) {
  Status status = withStates({TunnelState::kUp});
  status.wan.reset();
  EXPECT_EQ(exitStatusOf(status), 2);
  status = withStates({TunnelState::kDown});
  status.wan.reset();
  EXPECT_EQ(exitStatusOf(status), 1);
}

TEST(Judge, bringsTheKindsTogether) {
  Facts found = facts();
  TunnelRecord gre;
  gre.name = "g";
  gre.isEnabled = true;
  found.configuration.gre = {gre};
  TunnelRecord ipsec;
  ipsec.name = "i";
  ipsec.isEnabled = true;
  found.configuration.ipsec = {ipsec};
  TunnelRecord openvpn;
  openvpn.name = "o";
  openvpn.isEnabled = true;
  found.configuration.openvpn = {openvpn};
  const Status status = judge(found);
  ASSERT_EQ(status.tunnels.size(), 3U);
  EXPECT_STREQ(status.tunnels[0].kind, "gre");
  EXPECT_STREQ(status.tunnels[1].kind, "ipsec");
  EXPECT_STREQ(status.tunnels[2].kind, "openvpn");
  EXPECT_EQ(status.time, status_test::kNow);
  EXPECT_TRUE(status.daemon.isRunning);
  EXPECT_EQ(status.wan, "198.51.100.2");
  EXPECT_EQ(status.kernelComplaint, "");
}

TEST(Judge, tellsOfTheApiAndTheKernel) {
  Facts found = facts();
  found.apiComplaint = "no answer";
  found.devicesStatus = 127;
  const Status status = judge(found);
  EXPECT_EQ(status.apiComplaint, "no answer");
  EXPECT_FALSE(status.wan.has_value());
  EXPECT_EQ(status.kernelComplaint, "the kernel's devices cannot be listed: ip addr fails with status 127");
}

TEST(Judge, tellsWhatIpHasNotAnswered) {
  Facts found = facts();
  found.routesStatus = kNoAnswer;
  EXPECT_EQ(judge(found).kernelComplaint, "the kernel's routes cannot be listed: ip route does not answer in time");
  found.devicesStatus = kNoAnswer;
  EXPECT_EQ(judge(found).kernelComplaint, "the kernel's devices cannot be listed: ip addr does not answer in time");
}

TEST(Judge, tellsTheLocalEndsOfWhatIsThere) {
  Facts found = facts();
  EXPECT_THAT(judge(found).wansInUse, IsEmpty());
  Device device;
  device.isGre = true;
  found.devices.push_back(device);
  device.local = "198.51.100.9";
  found.devices.push_back(device);
  found.connections.push_back({"a_1", "198.51.100.2", "", ""});
  EXPECT_THAT(judge(found).wansInUse, ElementsAre("198.51.100.9"));
  found.isIpsecRunning = true;
  EXPECT_THAT(judge(found).wansInUse, ElementsAre("198.51.100.2", "198.51.100.9"));
}

TEST(AgeText, isInTheLargestUnitOfWhichThereAreTwo) {
  const struct {
    std::int64_t seconds;
    std::string text;
  } rows[] = {{-5, "0 s"},       {0, "0 s"},    {4, "4 s"},       {119, "119 s"},     {120, "2 min"},
              {7199, "119 min"}, {7200, "2 h"}, {172799, "47 h"}, {172800, "2 days"}, {864000, "10 days"}};
  for (const auto& row : rows) EXPECT_EQ(ageText(row.seconds), row.text);
}

}  // namespace
