// What the IPsec service's operations do outside the service's own directory.
#include "ipsec/service.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <cstdlib>
#include <vector>

#include "support/logger.h"
#include "tests/unit/harness/captured_log.h"
#include "tests/unit/ipsec/temporary_directory.h"

namespace {

using namespace ipsec_test;

using Level = ZEL::Logger::PrintLevel;

constexpr int kTrace = Level::TRACE_LEVEL;

const std::string kCreating = "DEBUG Creating IPsec Configuration Files\n";

std::string pathVariable() {
  const char* const path = getenv("PATH");
  return path == nullptr ? "" : path;
}

/// Puts a script in front of the commands that PATH finds.
class Script {
 public:
  Script(const std::string& name, const std::string& script) : savedPath_(pathVariable()) {
    const std::string path = directory_.path(name);
    std::ofstream(path) << "#!/bin/sh\n" << script;
    chmod(path.c_str(), 0755);
    setenv("PATH", (directory_.path() + ":" + savedPath_).c_str(), 1);
  }
  ~Script() { setenv("PATH", savedPath_.c_str(), 1); }
  Script(const Script&) = delete;
  Script& operator=(const Script&) = delete;

 private:
  TemporaryDirectory directory_;
  std::string savedPath_;
};

/// An enabled tunnel that cannot be written: there is no local network to write a section for.
Json::Value failingTunnel(const Json::Value& name) {
  Json::Value tunnel;
  tunnel["name"] = name;
  tunnel["enabled"] = true;
  return tunnel;
}

Json::Value array(const std::vector<Json::Value>& elements) {
  Json::Value list(Json::arrayValue);
  for (const Json::Value& element : elements) list.append(element);
  return list;
}

TEST(StopIpsec, runsTheStopCommandAndReturnsItsStatus) {
  const Script ipsec("ipsec", "echo \"$# $*\"\necho complaint >&2\nexit 3\n");
  const CapturedLog log(kTrace);
  testing::internal::CaptureStdout();
  const int status = stopIpsec();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "1 stop\ncomplaint\n");
  EXPECT_EQ(log.text(), "DEBUG [TUNNEL_MNGR] Stopping IPsec\n");
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 3);
}

TEST(ConfigureIpsecTunnels, configuresNothingWithoutTunnels) {
  for (const Json::Value& none : {Json::Value(Json::arrayValue), Json::Value(), Json::Value(Json::objectValue),
                                  Json::Value("text"), Json::Value(5), Json::Value(true)}) {
    const CapturedLog log(kTrace);
    EXPECT_FALSE(configureIpsecTunnels(none, "10.0.0.2"));
    EXPECT_EQ(log.text(), kCreating);
  }
}

TEST(ConfigureIpsecTunnels, passesTunnelsOverThatAreNotEnabled) {
  Json::Value disabled = failingTunnel("disabled");
  disabled["enabled"] = false;
  disabled["authMethod"] = "rsasig";
  Json::Value unspecified = failingTunnel("unspecified");
  unspecified.removeMember("enabled");
  const CapturedLog log(kTrace);
  EXPECT_FALSE(configureIpsecTunnels(array({disabled, unspecified, Json::Value()}), "10.0.0.2"));
  EXPECT_EQ(log.text(), kCreating);
}

TEST(ConfigureIpsecTunnels, reportsEveryTunnelThatFails) {
  const CapturedLog log(kTrace);
  EXPECT_FALSE(configureIpsecTunnels(array({failingTunnel("first"), failingTunnel("second")}), "10.0.0.2"));
  EXPECT_EQ(log.text(), kCreating +
                            "ERROR [TUNNEL_MNGR] Failed to configure IPSEC PSK tunnel [first].\n"
                            "ERROR [TUNNEL_MNGR] Failed to configure IPSEC PSK tunnel [second].\n");
}

TEST(ConfigureIpsecTunnels, usesAPreSharedKeyUnlessTheMethodIsExactlyRsasig) {
  using namespace std::string_literals;
  for (const Json::Value& method :
       {Json::Value(), Json::Value("RSASIG"), Json::Value("rsasig "), Json::Value("rsasig\0"s), Json::Value(""),
        Json::Value("secret"), Json::Value(5), Json::Value(true), array({"rsasig"})}) {
    Json::Value tunnel = failingTunnel("office");
    tunnel["authMethod"] = method;
    const CapturedLog log(kTrace);
    EXPECT_FALSE(configureIpsecTunnels(array({tunnel}), "10.0.0.2"));
    EXPECT_EQ(log.text(), kCreating + "ERROR [TUNNEL_MNGR] Failed to configure IPSEC PSK tunnel [office].\n");
  }
}

TEST(ConfigureIpsecTunnels, showsANameAsFarAsItsFirstNullByte) {
  using namespace std::string_literals;
  const CapturedLog log(Level::ERROR_LEVEL);
  EXPECT_FALSE(configureIpsecTunnels(array({failingTunnel("off\0ice"s)}), "10.0.0.2"));
  EXPECT_EQ(log.text(), "ERROR [TUNNEL_MNGR] Failed to configure IPSEC PSK tunnel [off].\n");
}

TEST(ConfigureIpsecTunnels, throwsForANameThatIsNoTextOnlyWhenItIsPrinted) {
  const Json::Value tunnels = array({failingTunnel(5), failingTunnel(Json::Value())});
  {
    const CapturedLog log(Level::ERROR_LEVEL);
    EXPECT_THROW(configureIpsecTunnels(tunnels, "10.0.0.2"), Json::LogicError);
  }
  const CapturedLog log(Level::ERROR_LEVEL - 1);
  EXPECT_FALSE(configureIpsecTunnels(tunnels, "10.0.0.2"));
  EXPECT_EQ(log.text(), "");
}

TEST(ConfigureIpsecTunnels, throwsForARecordThatCannotBeReadAfterThoseBeforeIt) {
  Json::Value textual = failingTunnel("textual");
  textual["enabled"] = "true";
  for (const Json::Value& record : {textual, Json::Value(5), Json::Value("text"), Json::Value(Json::arrayValue)}) {
    const CapturedLog log(Level::ERROR_LEVEL);
    EXPECT_THROW(configureIpsecTunnels(array({failingTunnel("first"), record}), "10.0.0.2"), Json::LogicError);
    EXPECT_EQ(log.text(), "ERROR [TUNNEL_MNGR] Failed to configure IPSEC PSK tunnel [first].\n");
  }
}

TEST(ConfigureIpsecTunnels, throwsForAnObjectInPlaceOfTheArray) {
  Json::Value object;
  object["first"] = failingTunnel("first");
  EXPECT_THROW(configureIpsecTunnels(object, "10.0.0.2"), Json::LogicError);
}

}  // namespace
