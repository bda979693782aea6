#include "monitors/name_resolution.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netdb.h>

#include <atomic>
#include <chrono>
#include <map>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "support/logger.h"
#include "tests/unit/harness/captured_log.h"
#include "tests/unit/harness/child_process.h"
#include "tests/unit/harness/private_system.h"
#include "tests/unit/harness/waiting.h"

namespace {

constexpr int kWarning = 25;

TEST(ResolveHost, takesDottedAddressesAsTheyAre) {
  for (const char* host : {"192.0.2.1", "0.0.0.0", "255.255.255.255", "10.0.0.1"}) {
    const Resolution resolution = resolveHost(host);
    EXPECT_EQ(resolution.address, host);
    EXPECT_EQ(resolution.error, 0);
  }
}

/// In a network without name servers, where the hosts file knows a few names.
void enterNetworkWithHostsFile() {
  enterPrivateNetwork();
  replaceFile("/etc/nsswitch.conf", "hosts: files\n");
  replaceFile("/etc/hosts",
              "192.0.2.1 one.example\n"
              "192.0.2.2 two.example alias.example\n"
              "192.0.2.31 both.example\n"
              "192.0.2.32 both.example\n"
              "2001:db8::1 six.example\n");
}

TEST(ResolveHost, asksTheSystem) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([] {
    const struct {
      const char* host;
      const char* address;
    } rows[] = {
        {"one.example", "192.0.2.1"},   {"ONE.example", "192.0.2.1"},
        {"alias.example", "192.0.2.2"}, {"both.example", "192.0.2.31"},  // the first of them
        {"10.1", "10.0.0.1"},  // a short form of inet_aton(3), which the resolver knows
    };
    enterNetworkWithHostsFile();
    for (const auto& row : rows) {
      SCOPED_TRACE(row.host);
      const Resolution resolution = resolveHost(row.host);
      EXPECT_EQ(resolution.address, row.address);
      EXPECT_EQ(resolution.error, 0);
    }
  });
}

TEST(ResolveHost, saysThatANameIsNotFound) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([] {
    enterNetworkWithHostsFile();
    for (const char* host : {"none.example", "", " ", "not a name", "256.1.1.1.example", "2001:db8::1"}) {
      SCOPED_TRACE(host);
      const Resolution resolution = resolveHost(host);
      EXPECT_EQ(resolution.address, "");
      EXPECT_EQ(resolution.error, HOST_NOT_FOUND);
    }
  });
}

TEST(ResolveHost, saysThatNoNameServerAnswers) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([] {
    enterPrivateNetwork();
    replaceFile("/etc/nsswitch.conf", "hosts: dns\n");
    replaceFile("/etc/resolv.conf", "nameserver 127.0.0.1\noptions timeout:1 attempts:1\n");
    const Resolution resolution = resolveHost("vpn.example");  // nobody listens on the port
    EXPECT_EQ(resolution.address, "");
    EXPECT_EQ(resolution.error, TRY_AGAIN);
  });
}

TEST(ResolveHosts, hasOneResultForEachDifferentHost) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([] {
    enterNetworkWithHostsFile();
    const auto resolutions =
        resolveHosts({"two.example", "192.0.2.9", "none.example", "two.example", "192.0.2.9", "one.example"});
    ASSERT_EQ(resolutions.size(), 4U);
    EXPECT_EQ(resolutions.at("192.0.2.9").address, "192.0.2.9");
    EXPECT_EQ(resolutions.at("192.0.2.9").error, 0);
    EXPECT_EQ(resolutions.at("one.example").address, "192.0.2.1");
    EXPECT_EQ(resolutions.at("two.example").address, "192.0.2.2");
    EXPECT_EQ(resolutions.at("none.example").address, "");
    EXPECT_EQ(resolutions.at("none.example").error, HOST_NOT_FOUND);
  });
}

TEST(ResolveHosts, asksOnceForEachDifferentHost) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([] {
    enterPrivateNetwork();
    replaceFile("/etc/nsswitch.conf", "hosts: dns\n");
    replaceFile("/etc/resolv.conf", "nameserver 127.0.0.1\noptions timeout:1 attempts:1\n");
    const DatagramSocket nameServer = DatagramSocket::ofNameServer();  // listens and never answers
    resolveHosts({"twice.example", "once.example", "twice.example"});
    int once = 0;
    int twice = 0;
    while (const auto query = nameServer.receiveNow()) {
      once += query->find("\4once\7example") != std::string::npos ? 1 : 0;
      twice += query->find("\5twice\7example") != std::string::npos ? 1 : 0;
    }
    EXPECT_GT(once, 0);
    EXPECT_EQ(twice, once) << "a look-up takes several queries, all of them alike";
  });
}

TEST(ResolveHosts, takesNoHostsAndDottedOnes) {
  EXPECT_TRUE(resolveHosts({}).empty());
  const auto resolutions = resolveHosts({"192.0.2.1", "192.0.2.2", "192.0.2.1"});
  ASSERT_EQ(resolutions.size(), 2U);
  for (const auto& [host, resolution] : resolutions) {
    EXPECT_EQ(resolution.address, host);
    EXPECT_EQ(resolution.error, 0);
  }
}

TEST(ResolveHosts, resolvesMoreHostsThanThereAreWorkers) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([] {
    constexpr int kHosts = 300;
    std::string hostsFile;
    std::vector<std::string> hosts;
    const auto addressOf = [](int i) { return "10.0." + std::to_string(i / 100) + "." + std::to_string(i % 100); };
    for (int i = 0; i < kHosts; ++i) {
      hosts.push_back("host" + std::to_string(i) + ".example");
      hostsFile += addressOf(i) + " " + hosts.back() + "\n";
    }
    enterPrivateNetwork();
    replaceFile("/etc/nsswitch.conf", "hosts: files\n");
    replaceFile("/etc/hosts", hostsFile);
    const auto resolutions = resolveHosts(hosts);
    ASSERT_EQ(resolutions.size(), std::size_t{kHosts});
    for (int i = 0; i < kHosts; ++i) {
      EXPECT_EQ(resolutions.at(hosts[static_cast<std::size_t>(i)]).address, addressOf(i));
    }
  });
}

TEST(ResolveHosts, spendsOneTimeOutOnAllThatTimeOut) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([] {
    enterPrivateNetwork();
    replaceFile("/etc/nsswitch.conf", "hosts: dns\n");
    replaceFile("/etc/resolv.conf", "nameserver 127.0.0.1\noptions timeout:2 attempts:1\n");
    const DatagramSocket nameServer = DatagramSocket::ofNameServer();  // listens and never answers
    std::vector<std::string> hosts;
    for (int i = 0; i < 50; ++i) hosts.push_back("host" + std::to_string(i) + ".example");
    // One after the other they would take a hundred seconds and more.
    std::map<std::string, Resolution> resolutions;
    EXPECT_LT(timeOf([&resolutions, &hosts] { resolutions = resolveHosts(hosts); }), kDeadline);
    ASSERT_EQ(resolutions.size(), hosts.size());
    for (const auto& [host, resolution] : resolutions) {
      EXPECT_EQ(resolution.address, "") << host;
      EXPECT_EQ(resolution.error, TRY_AGAIN) << host;
    }
  });
}

struct FailureRow {
  int error;
  const char* message;
};

constexpr FailureRow kFailures[] = {
    {HOST_NOT_FOUND, "[TUNNEL_MNGR][FQDN_MONITOR] The host [vpn.example] was not found.\n"},
    {TRY_AGAIN,
     "[TUNNEL_MNGR][FQDN_MONITOR] The name server is temporarily unavailable.  Unable to resolve [vpn.example]"},
    {NO_RECOVERY,
     "[TUNNEL_MNGR][FQDN_MONITOR] A non-recoverable name server error occurred.  Unable to resolve [vpn.example]\n"},
    {NO_DATA, "[TUNNEL_MNGR][FQDN_MONITOR] The name [vpn.example] is valid but it has no address.\n"},
};

TEST(LogResolutionFailure, warnsOfTheFourCategories) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([] {
    enterPrivateMounts();
    const DatagramSocket collector = DatagramSocket::ofSystemLog();  // shows the line end that a message has itself
    ASSERT_TRUE(ZEL::Logger::setup(3, "IDENT", 0, 0));
    ZEL::Logger::setPrintLevel(kWarning, false);
    for (const FailureRow& row : kFailures) {
      SCOPED_TRACE(row.error);
      logResolutionFailure("vpn.example", {"", row.error});
      const std::string entry = collector.receive().value_or("none");
      EXPECT_THAT(entry, testing::StartsWith("<12>"));
      EXPECT_THAT(entry, testing::EndsWith(" IDENT: WARNING " + std::string(row.message)));
      EXPECT_EQ(collector.receiveNow(), std::nullopt) << "more than one line";
    }
  });
}

TEST(LogResolutionFailure, saysNothingOfOtherOutcomes) {
  const CapturedLog log(100);
  for (const int error : {0, NETDB_INTERNAL, 5, 100}) logResolutionFailure("vpn.example", {"", error});
  EXPECT_EQ(log.text(), "");
}

TEST(LogResolutionFailure, isOfTheWarningLevel) {
  const CapturedLog log(kWarning - 1);
  for (const FailureRow& row : kFailures) logResolutionFailure("vpn.example", {"", row.error});
  EXPECT_EQ(log.text(), "");
}

TEST(ResolveHost, takesADottedAddressUpToANullByte) {
  const std::string host("203.0.113.7\0x", 13);
  EXPECT_EQ(resolveHost(host).address, "203.0.113.7");
  EXPECT_EQ(resolveHosts({host}).at(host).address, "203.0.113.7");
}

TEST(ResolvingNames, resolvesInPlaceOfTheSystem) {
  const ResolvingNames names([](const std::string& host) { return Resolution{"<" + host + ">", 0}; });
  EXPECT_EQ(resolveHost("vpn.example").address, "<vpn.example>");
  EXPECT_EQ(resolveHost("203.0.113.7").address, "203.0.113.7");
  const auto resolutions = resolveHosts({"a.example", "b.example", "203.0.113.7"});
  EXPECT_EQ(resolutions.at("b.example").address, "<b.example>");
  EXPECT_EQ(resolutions.size(), 3U);
}

/// What the threads share lies on the stack of the one that an exception leaves.
TEST(ResolvingNames, waitsForItsThreadsWhenItRunsOutOfMemory) {
  const auto caller = std::this_thread::get_id();
  std::atomic<bool> begun{false};
  std::atomic<bool> ended{false};
  const ResolvingNames names([&](const std::string&) {
    if (std::this_thread::get_id() == caller) {
      while (!begun) std::this_thread::yield();
      throw std::bad_alloc();
    }
    begun = true;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    ended = true;
    return Resolution{};
  });
  EXPECT_THROW(resolveHosts({"a.example", "b.example"}), std::bad_alloc);
  EXPECT_TRUE(ended);
}

}  // namespace
