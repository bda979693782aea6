#include "effects/effects.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <string>

#include "tests/unit/harness/descriptors.h"
#include "tests/unit/openvpn/workshop.h"

namespace {

using RealFiles = Workshop;

TEST_F(RealFiles, CreatesAndTruncates) {
  const std::string longText = "a\r\n\xFF" + std::string(100000, 'x') + std::string(1, '\0') + "z";
  for (const std::string& text : {longText, std::string("short"), std::string()}) {
    EXPECT_EQ(effects().writeFile(path("file"), text), FileOutcome::kWritten);
    EXPECT_EQ(read("file"), text);
  }
}

TEST_F(RealFiles, IsNobodyElsesToWriteWhateverTheUmask) {
  const mode_t before = umask(0);
  effects().writeFile(path("file"), "text");
  umask(before);
  struct stat status {};
  ASSERT_EQ(stat(path("file").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0644U);
}

TEST_F(RealFiles, SaysWhenTheFileCannotBeOpened) {
  EXPECT_EQ(effects().writeFile(path("absent/file"), "text"), FileOutcome::kNotOpened);
  EXPECT_EQ(effects().writeFile(path(""), "text"), FileOutcome::kNotOpened);  // a directory
}

TEST_F(RealFiles, SeesAFullDiskHoweverShortTheText) {
  EXPECT_EQ(effects().writeFile("/dev/full", "x"), FileOutcome::kShort);
  EXPECT_EQ(effects().writeFile("/dev/full", std::string(100000, 'x')), FileOutcome::kShort);
}

TEST_F(RealFiles, LeavesWhatFoundRoom) {
  rlimit before{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
  rlimit little = before;
  little.rlim_cur = 4096;
  const auto handlerBefore = signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &little);
  const FileOutcome outcome = effects().writeFile(path("file"), std::string(5000, 'x'));
  setrlimit(RLIMIT_FSIZE, &before);
  signal(SIGXFSZ, handlerBefore);
  EXPECT_EQ(outcome, FileOutcome::kShort);
  EXPECT_EQ(read("file"), std::string(4096, 'x'));
}

TEST_F(RealFiles, LeavesNoDescriptorOpen) {
  const std::size_t before = openDescriptors();
  effects().writeFile(path("file"), "text");
  effects().writeFile("/dev/full", "text");
  effects().writeFile(path("absent/file"), "text");
  EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
