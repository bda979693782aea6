// Whether a run ends where `check` says that it does: the documents are given to the program's own run.

#include <gtest/gtest.h>
#include <json/writer.h>

#include <algorithm>
#include <array>
#include <random>
#include <string>
#include <vector>

#include "api/query.h"
#include "api/wan_list.h"
#include "core/tunnel_management_run.h"
#include "effects/noting_effects.h"
#include "ipsec/configuration_store.h"
#include "monitors/fqdn_monitor.h"
#include "monitors/name_resolution.h"
#include "openvpn/supervision.h"
#include "support/logger.h"
#include "support/text.h"
#include "tests/unit/harness/json_document.h"
#include "tests/unit/tunnelctl/check_rows.h"
#include "tunnelctl/check.h"

namespace {

/// Where a run ends, in the order of its steps.
enum class End { kOpenvpn, kPull, kGre, kIpsec, kNone };

void say(int, const char*, const std::string&) {}

/// Of the documents what the URL names, as the API answers: all of them each time would take an emulator minutes.
std::string answerTo(const Json::Value& documents, const std::string& url) {
  Json::Value result;
  if (url == wanInfoUrl) {
    result = documents["wans"];
  } else {
    for (const std::string& field : ZEL::Text::split(url.substr(url.find('=') + 1), ",", 0))
      result[field] = documents[field];
  }
  return R"({"code":200,"result":)" + textOf(result) + "}";
}

bool hasRun(const NotingEffects& deeds, const std::string& beginning) {
  const std::vector<std::string> commands = deeds.subjects(Act::Kind::kRun);
  return std::any_of(commands.begin(), commands.end(),
                     [&](const std::string& command) { return command.rfind(beginning, 0) == 0; });
}

/// Where the program's run ends. Of one that ends before it has made a GRE tunnel it cannot be seen whether it was
/// about to make one: that counts as the pull, which leaves the same.
End endOfRun(const Json::Value& documents) {
  NotingEffects deeds;
  const ActingAs noting(deeds);
  const AnsweringRequests answers([&](const std::string& url) { return answerTo(documents, url); });
  const ResolvingNames names([](const std::string&) { return Resolution{"203.0.113.1", 0}; });
  ZEL::Logger::handTo(say);
  End end = End::kNone;
  try {
    if (!manageTunnels()) end = End::kOpenvpn;
  } catch (const Json::LogicError&) {
    end = hasRun(deeds, resetCommand()) ? End::kIpsec : hasRun(deeds, "ip tunnel add") ? End::kGre : End::kPull;
  }
  ZEL::Logger::handTo(nullptr);
  v_apFqdnMonitor.clear();
  supervisedTunnels.clear();
  return end;
}

/// Where `check` says that it does.
End foundEnd(const Json::Value& documents) {
  constexpr std::array<const char*, 4> kLeft{"go on as they were", "every tunnel is down",
                                             "the GRE tunnels before it are up", "the GRE tunnels are up"};
  End end = End::kNone;
  for (const Finding& finding : findingsOf(documents, nullptr)) {
    if (finding.problem != Problem::kEndsRun) continue;
    const auto* const left = std::find_if(
        kLeft.begin(), kLeft.end(), [&](const char* text) { return finding.message.find(text) != std::string::npos; });
    const auto said = static_cast<End>(left - kLeft.begin());
    EXPECT_EQ(said == End::kGre, said != End::kPull && finding.pointer.rfind("/greTunnels", 0) == 0) << finding.pointer;
    end = std::min(end, said);
  }
  return end;
}

/// Returns where the run ends.
End expectSameEnd(const Json::Value& documents) {
  const End end = endOfRun(documents);
  const End found = foundEnd(documents);
  const bool isSame = end == found || (end == End::kPull && found == End::kGre);
  EXPECT_TRUE(isSame) << static_cast<int>(end) << " is where the run ends, " << static_cast<int>(found)
                      << " where it is said to, with " << textOf(documents);
  return end;
}

const std::vector<std::string> kPointers{"/greTunnels",
                                         "/ipsecTunnels",
                                         "/ovpnTunnels",
                                         "/syslog",
                                         "/ni",
                                         "/ni/nis",
                                         "/greTunnels/0",
                                         "/greTunnels/0/name",
                                         "/greTunnels/0/enabled",
                                         "/greTunnels/0/remoteIp",
                                         "/greTunnels/0/checkPeriod",
                                         "/greTunnels/0/tunnelIp",
                                         "/greTunnels/0/tunnelMask",
                                         "/greTunnels/0/ttl",
                                         "/greTunnels/0/routes",
                                         "/greTunnels/0/routes/0",
                                         "/greTunnels/0/routes/0/ip",
                                         "/greTunnels/0/routes/0/mask",
                                         "/greTunnels/1",
                                         "/greTunnels/1/ttl",
                                         "/ipsecTunnels/0",
                                         "/ipsecTunnels/0/name",
                                         "/ipsecTunnels/0/enabled",
                                         "/ipsecTunnels/0/remoteWanIp",
                                         "/ipsecTunnels/0/checkPeriod",
                                         "/ipsecTunnels/0/authMethod",
                                         "/ipsecTunnels/0/caCert",
                                         "/ipsecTunnels/0/localCert",
                                         "/ipsecTunnels/0/localPrivKey",
                                         "/ipsecTunnels/0/uid",
                                         "/ipsecTunnels/0/localId",
                                         "/ipsecTunnels/0/remoteId",
                                         "/ipsecTunnels/0/remoteNetworkIp",
                                         "/ipsecTunnels/0/remoteNetworkMask",
                                         "/ipsecTunnels/0/compression",
                                         "/ipsecTunnels/0/aggressiveMode",
                                         "/ipsecTunnels/0/encryptMethod",
                                         "/ipsecTunnels/0/type",
                                         "/ipsecTunnels/0/phase1",
                                         "/ipsecTunnels/0/phase2",
                                         "/ipsecTunnels/0/ikelife",
                                         "/ipsecTunnels/0/keylife",
                                         "/ipsecTunnels/0/retries",
                                         "/ipsecTunnels/0/psk",
                                         "/ipsecTunnels/0/localIpWithCidr",
                                         "/ipsecTunnels/1/authMethod",
                                         "/ipsecTunnels/1/uid",
                                         "/ipsecTunnels/1/localId",
                                         "/ipsecTunnels/1/remoteId",
                                         "/ipsecTunnels/1/caCert",
                                         "/ipsecTunnels/1/localCert",
                                         "/ipsecTunnels/1/localPrivKey",
                                         "/ipsecTunnels/1/psk",
                                         "/ipsecTunnels/1/type",
                                         "/ni/nis/0",
                                         "/ni/nis/0/type",
                                         "/ni/nis/0/available",
                                         "/ni/nis/0/nitype",
                                         "/ni/nis/0/bridge",
                                         "/ni/nis/0/ipv4",
                                         "/ni/nis/0/ipv4/ip",
                                         "/ni/nis/1/type",
                                         "/ni/nis/1/available",
                                         "/ni/nis/1/nitype",
                                         "/ni/nis/1/bridge",
                                         "/ni/nis/1/ipv4",
                                         "/ni/nis/2/type",
                                         "/ni/nis/2/available",
                                         "/ni/nis/2/nitype",
                                         "/ni/nis/2/bridge",
                                         "/ni/nis/2/ipv4",
                                         "/ni/nis/2/ipv4/mask",
                                         "/ovpnTunnels/0",
                                         "/ovpnTunnels/0/name",
                                         "/ovpnTunnels/0/enabled",
                                         "/ovpnTunnels/0/config",
                                         "/ovpnTunnels/1/name",
                                         "/ovpnTunnels/1/enabled",
                                         "/ovpnTunnels/1/config",
                                         "/syslog/logLevel"};

/// Of each type, at the ends of each range, and what members are compared with.
const std::vector<std::string> kValues{
    "null",         "true",         "false",       "0",           "1",           "-1",        "5",        "2147483647",
    "2147483648",   "-2147483648",  "-2147483649", "4294967295",  "4294967296",  "1e10",      "-0.5",     "0.5",
    "2147483647.5", "4294967295.5", R"("")",       R"("5")",      R"("true")",   R"("text")", "[]",       "[1]",
    "[null]",       "{}",           R"({"a": 1})", R"("absent")", R"("rsasig")", R"("IKE")",  R"("LAN")", R"("BRIDGE")",
    R"("--")",      R"("br0")",     R"("depot")"};

TEST(CheckExactness, oneMemberEndsTheRunWhereItIsSaid) {
  for (const std::string& pointer : kPointers) {
    for (const std::string& value : kValues) expectSameEnd(changed("{\"" + pointer + "\": " + value + "}"));
  }
}

/// Whether a member is read depends on others. Only values that leave a record one can be changed further.
TEST(CheckExactness, severalMembersDoSo) {
  std::mt19937 random(1);
  std::array<std::size_t, 5> ends{};
  const auto anyOf = [&random](const std::vector<std::string>& all) { return all[random() % all.size()]; };
  for (int i = 0; i < 4000; ++i) {
    std::string changes;
    for (int left = 4; left > 0; --left) {
      std::string pointer;
      do {
        pointer = anyOf(kPointers);
      } while (std::count(pointer.begin(), pointer.end(), '/') < 3);
      changes += (changes.empty() ? "{\"" : ", \"") + pointer + "\": " + anyOf(kValues);
    }
    Json::Value documents;
    try {
      documents = changed(changes + "}");
    } catch (const std::exception&) {
      continue;  // a member of what an earlier change has made something else
    }
    ++ends.at(static_cast<std::size_t>(expectSameEnd(documents)));
  }
  for (const std::size_t count : ends) EXPECT_GT(count, 50U);
}

}  // namespace
