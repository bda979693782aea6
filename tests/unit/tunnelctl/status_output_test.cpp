#include "tunnelctl/status_output.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "tests/unit/harness/json_document.h"
#include "tests/unit/tunnelctl/status_samples.h"

namespace {

using testing::Each;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;

Status sample() {
  Status status;
  status.time = 1000000;
  status.daemon = {true, 100, false, 999940, 25, {"its semaphore is gone"}};
  status.wan = "198.51.100.2";
  status.wansInUse = {"198.51.100.2"};
  status.ipsec = {true, "", 2, 1};
  status.tunnels.push_back({"gre", "head_office", {}, "198.51.100.2", "203.0.113.7", Traffic{308, 3000000}});
  status.tunnels.push_back({"openvpn", "depot", {TunnelState::kDown, "no child for 20 s"}});
  status.tunnels.back().lastContact = 999000;
  return status;
}

/// With nothing known.
Status blank() {
  Status status;
  status.time = 1000000;
  status.apiComplaint = "the configuration API does not answer";
  status.ipsec.complaint = "nobody may ask it";
  status.kernelComplaint = "ip fails";
  status.tunnels.push_back({"gre", "a", {TunnelState::kUnknown, "nobody knows"}});
  return status;
}

std::vector<std::string> linesOf(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> lines;
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

TEST(StatusText, isAScreen) {
  const std::vector<std::string> lines = linesOf(statusText(sample()));
  ASSERT_EQ(lines.size(), 10U);
  EXPECT_THAT(lines[0],
              testing::MatchesRegex("Daemon  runs, PID 100, since 1970-01-1[123] ..:..:40 \\(60 s\\), print level 25"));
  EXPECT_EQ(lines[1], "        its semaphore is gone");
  EXPECT_EQ(lines[2], "API     answers");
  EXPECT_EQ(lines[3], "WAN     198.51.100.2, which tunnels use");
  EXPECT_EQ(lines[4], "IPsec   the service runs and has loaded 1 of 2 written connections");
  EXPECT_EQ(lines[5], "");
  EXPECT_EQ(lines[6],
            "KIND    NAME                    STATE   LOCAL             REMOTE               RECEIVED       SENT");
  EXPECT_EQ(lines[7],
            "gre     head_office             up      198.51.100.2      203.0.113.7             308 B    2.8 MiB");
  EXPECT_EQ(lines[8],
            "openvpn depot                   down    -                 -                           -          -");
  EXPECT_EQ(lines[9], "        no child for 20 s");
}

TEST(StatusText, tellsWhatIsNotKnown) {
  const std::vector<std::string> lines = linesOf(statusText(blank()));
  EXPECT_THAT(lines, testing::ElementsAre("Daemon  does not run", "API     the configuration API does not answer",
                                          "WAN     unknown", "IPsec   nobody may ask it", "Kernel  ip fails", "",
                                          testing::StartsWith("KIND "), testing::StartsWith("gre     a "),
                                          "        nobody knows"));
}

TEST(StatusText, tellsOfTheWan) {
  const struct {
    std::optional<std::string> wan;
    std::vector<std::string> inUse;
    std::string line;
  } rows[] = {{"198.51.100.2", {}, "WAN     198.51.100.2\n"},
              {"198.51.100.2", {"198.51.100.9"}, "WAN     198.51.100.2; tunnels use 198.51.100.9\n"},
              {"198.51.100.2",
               {"198.51.100.2", "198.51.100.9"},
               "WAN     198.51.100.2; tunnels use 198.51.100.2, 198.51.100.9\n"},
              {"", {}, "WAN     none is current\n"},
              {"", {"198.51.100.9"}, "WAN     none is current; tunnels use 198.51.100.9\n"},
              {std::nullopt, {"198.51.100.9"}, "WAN     unknown; tunnels use 198.51.100.9\n"}};
  for (const auto& row : rows) {
    Status status;
    status.wan = row.wan;
    status.wansInUse = row.inUse;
    EXPECT_THAT(statusText(status), HasSubstr(row.line));
  }
}

TEST(StatusText, tellsOfASingleRunAndOfNoTunnel) {
  Status status;
  status.daemon.isSingleRun = true;
  status.daemon.pid = 7;
  EXPECT_THAT(statusText(status), HasSubstr("Daemon  does not run; a single run goes on, PID 7\n"));
  EXPECT_THAT(statusText(status), HasSubstr("IPsec   the service does not run; 0 written connections\n"));
  EXPECT_THAT(statusText(status), HasSubstr("\nThere is no tunnel, and none is configured as far as is known.\n"));
}

TEST(StatusText, showsBytesInTenColumns) {
  const struct {
    std::uint64_t bytes;
    std::string text;
  } rows[] = {{0, "0 B"},           {1023, "1023 B"},
              {1024, "1.0 KiB"},    {1048575, "1023.9 KiB"},
              {1048576, "1.0 MiB"}, {18446744073709551615U, "15.9 EiB"}};
  for (const auto& row : rows) {
    Status status;
    status.tunnels.push_back({"gre", "a", {}, "", "", Traffic{row.bytes, 0}});
    EXPECT_THAT(statusText(status), HasSubstr(std::string(11 - row.text.size(), ' ') + row.text + "        0 B\n"));
  }
}

TEST(StatusText, hasNoLineOfMoreThanAHundredColumns) {
  Status status = sample();
  status.daemon.remarks = {std::string(300, 'x')};
  status.apiComplaint = std::string(300, 'y');
  status.kernelComplaint = std::string(300, 'z');
  status.wansInUse.assign(50, "198.51.100.2");
  for (const char* text : {"a ", "aaaaaaaaaaaa", "\x1B[31m", "\xFF", "\n"}) {
    std::string longText;
    for (int i = 0; i < 50; ++i) longText += text;
    status.tunnels.push_back({"openvpn", longText, {TunnelState::kPartial, longText}, longText, longText});
  }
  for (const std::string& line : linesOf(statusText(status))) EXPECT_LE(line.size(), 100U) << line;
}

TEST(StatusJson, hasAllMembers) {
  EXPECT_EQ(textOf(statusJson(sample())),
            R"({"api":{"answers":true,"complaint":null},)"
            R"("daemon":{"pid":100,"printLevel":25,"remarks":["its semaphore is gone"],"running":true,)"
            R"("singleRun":false,"startedAt":999940},)"
            R"("exitStatus":1,)"
            R"("ipsecService":{"complaint":null,"connectionsLoaded":1,"connectionsWritten":2,"running":true},)"
            R"("kernelComplaint":null,"time":1000000,"tunnels":[)"
            R"({"kind":"gre","lastContact":null,"local":"198.51.100.2","name":"head_office","reason":null,)"
            R"("receivedBytes":308,"remote":"203.0.113.7","sentBytes":3000000,"state":"up"},)"
            R"({"kind":"openvpn","lastContact":999000,"local":null,"name":"depot","reason":"no child for 20 s",)"
            R"("receivedBytes":null,"remote":null,"sentBytes":null,"state":"down"}],)"
            R"("wan":{"current":"198.51.100.2","inUse":["198.51.100.2"]}})");
}

TEST(StatusJson, isNullWhereNothingIsKnown) {
  EXPECT_EQ(textOf(statusJson(blank())),
            R"({"api":{"answers":false,"complaint":"the configuration API does not answer"},)"
            R"("daemon":{"pid":null,"printLevel":null,"remarks":[],"running":false,"singleRun":false,)"
            R"("startedAt":null},)"
            R"("exitStatus":2,)"
            R"("ipsecService":{"complaint":"nobody may ask it",)"
            R"("connectionsLoaded":null,"connectionsWritten":0,"running":null},)"
            R"("kernelComplaint":"ip fails","time":1000000,"tunnels":[)"
            R"({"kind":"gre","lastContact":null,"local":null,"name":"a","reason":"nobody knows",)"
            R"("receivedBytes":null,"remote":null,"sentBytes":null,"state":"unknown"}],)"
            R"("wan":{"current":null,"inUse":[]}})");
}

/// The lines that are no comments.
std::vector<std::string> samplesOf(const Status& status) {
  std::vector<std::string> samples;
  for (const std::string& line : linesOf(statusMetrics(status))) {
    if (line[0] != '#') samples.push_back(line);
  }
  return samples;
}

TEST(StatusMetrics, areTheSameFacts) {
  EXPECT_THAT(
      samplesOf(sample()),
      testing::ElementsAre("tunnel_mngr_daemon_up 1", "tunnel_mngr_daemon_start_time_seconds 999940",
                           "tunnel_mngr_api_up 1", "tunnel_mngr_wan_up 1", "tunnel_mngr_ipsec_service_up 1",
                           R"(tunnel_mngr_tunnel_up{kind="gre",name="head_office"} 1)",
                           R"(tunnel_mngr_tunnel_up{kind="openvpn",name="depot"} 0)",
                           R"(tunnel_mngr_tunnel_state{kind="gre",name="head_office",state="up"} 1)",
                           R"(tunnel_mngr_tunnel_state{kind="openvpn",name="depot",state="down"} 1)",
                           R"(tunnel_mngr_tunnel_received_bytes_total{kind="gre",name="head_office"} 308)",
                           R"(tunnel_mngr_tunnel_sent_bytes_total{kind="gre",name="head_office"} 3000000)",
                           R"(tunnel_mngr_tunnel_last_contact_timestamp_seconds{kind="openvpn",name="depot"} 999000)",
                           "tunnel_mngr_status_timestamp_seconds 1000000"));
}

TEST(StatusMetrics, leaveOutWhatIsNotKnown) {
  EXPECT_THAT(samplesOf(blank()),
              testing::ElementsAre("tunnel_mngr_daemon_up 0", "tunnel_mngr_api_up 0",
                                   R"(tunnel_mngr_tunnel_state{kind="gre",name="a",state="unknown"} 1)",
                                   "tunnel_mngr_status_timestamp_seconds 1000000"));
}

TEST(StatusMetrics, haveNoTunnelTwice) {
  Status status = sample();
  status.tunnels = {{"gre", "a\x01", {}}, {"gre", "a\x02", {}}, {"ipsec", "a\x01", {}}};
  EXPECT_THAT(statusMetrics(status), HasSubstr("\ntunnel_mngr_tunnel_up{kind=\"gre\",name=\"a?\"} 1\n"
                                               "tunnel_mngr_tunnel_up{kind=\"ipsec\",name=\"a?\"} 1\n#"));
}

TEST(StatusMetrics, escapeNames) {
  Status status = sample();
  status.tunnels = {{"gre", "a\"b\\c\nd\xFF", {}}};
  EXPECT_THAT(statusMetrics(status), HasSubstr("\ntunnel_mngr_tunnel_up{kind=\"gre\",name=\"a\\\"b\\\\c?d?\"} 1\n"));
}

TEST(StatusMetrics, comeBehindTheirHelpAndType) {
  const std::vector<std::string> lines = linesOf(statusMetrics(sample()));
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].compare(0, 7, "# HELP ") != 0) continue;
    const std::string name = lines[i].substr(7, lines[i].find(' ', 7) - 7);
    ASSERT_LT(i + 2, lines.size());
    EXPECT_THAT(lines[i + 1], testing::MatchesRegex("# TYPE " + name + " (gauge|counter)"));
    EXPECT_THAT(lines[i + 2], testing::MatchesRegex(name + "[ {].*"));
  }
}

}  // namespace
