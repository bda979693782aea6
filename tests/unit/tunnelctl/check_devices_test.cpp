#include "tunnelctl/check_devices.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include "tests/unit/harness/child_process.h"
#include "tests/unit/harness/private_system.h"

namespace {

TEST(IsIpKeyword, knowsWordsAndTheirBeginnings) {
  for (const char* name :
       {"a", "ad", "address", "alias", "up", "dev", "dsfield", "d", "txqueuelen", "tx", "link-net", "ttl"})
    EXPECT_TRUE(isIpKeyword(name)) << name;
  for (const char* name : {"", "u", "ups", "addresses", "de", "tt", "s", "k", "gre1", "|", "ar", "ddress"})
    EXPECT_FALSE(isIpKeyword(name)) << name;
}

TEST(IsForeignDevice, asksTheKernel) {
  SKIP_WITHOUT_NAMESPACES();
  const ChildEnd end = runInChild([] {
    enterPrivateNetwork();
    EXPECT_TRUE(isForeignDevice("lo"));
    EXPECT_FALSE(isForeignDevice("lo1"));
    EXPECT_FALSE(isForeignDevice("a name of more than 15 bytes"));
    EXPECT_FALSE(isForeignDevice(""));
  });
  EXPECT_TRUE(end.exitedWith(0)) << end.out;
}

}  // namespace
