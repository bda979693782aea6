#include "ipsec/configuration_store.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "support/logger.h"
#include "tests/unit/harness/captured_log.h"
#include "tests/unit/ipsec/temporary_directory.h"

namespace {

using namespace ipsec_test;

using Level = ZEL::Logger::PrintLevel;

constexpr int kTrace = Level::TRACE_LEVEL;

TEST(ConfigurationStore, liesInOneTree) {
  EXPECT_EQ(ipsecConfPath(), "/var/run/ipsec/ipsec.conf");
  EXPECT_EQ(ipsecSecretsPath(), "/var/run/ipsec/ipsec.secrets");
  EXPECT_EQ(caCertsDir(), "/var/run/ipsec/cacerts");
  EXPECT_EQ(certsDir(), "/var/run/ipsec/certs");
  EXPECT_EQ(privateKeysDir(), "/var/run/ipsec/private");
}

TEST(ConfigurationStore, makesEachPathOnce) {
  for (const auto path : {ipsecConfPath, ipsecSecretsPath, caCertsDir, certsDir, privateKeysDir})
    EXPECT_EQ(&path(), &path());
}

TEST(ConfigurationStore, beginsTheConfigurationWithItsHead) {
  EXPECT_EQ(ipsecConfHeader(), "version 2.0\n\nconfig setup\n\tuniqueids=yes\n");
  EXPECT_EQ(ipsecConfHeader().size(), 41U);
}

TEST(ConfigurationStore, emptiesThreeDirectoriesWithOneCommand) {
  EXPECT_EQ(resetCommand(), "rm -rf /var/run/ipsec/cacerts/* /var/run/ipsec/certs/* /var/run/ipsec/private/*");
}

TEST(WriteFile, makesAnAbsentFile) {
  const TemporaryDirectory directory;
  const CapturedLog log(kTrace);
  EXPECT_TRUE(writeFile(directory.path("file"), "text\n"));
  EXPECT_EQ(contentsOf(directory.path("file")), "text\n");
  EXPECT_EQ(log.text(), "");
}

TEST(WriteFile, replacesWhatWasThere) {
  const TemporaryDirectory directory;
  ASSERT_TRUE(writeFile(directory.path("file"), "a longer text than the next"));
  EXPECT_TRUE(writeFile(directory.path("file"), "short"));
  EXPECT_EQ(contentsOf(directory.path("file")), "short");
  EXPECT_TRUE(writeFile(directory.path("file"), ""));
  EXPECT_EQ(contentsOf(directory.path("file")), "");
}

TEST(WriteFile, writesEveryByte) {
  const TemporaryDirectory directory;
  const std::string bytes("\0\xFF\r\n\tx\0", 7);
  EXPECT_TRUE(writeFile(directory.path("file"), bytes));
  EXPECT_EQ(contentsOf(directory.path("file")), bytes);
}

TEST(AppendFile, makesAnAbsentFile) {
  const TemporaryDirectory directory;
  const CapturedLog log(kTrace);
  EXPECT_TRUE(appendFile(directory.path("file"), "text\n"));
  EXPECT_EQ(contentsOf(directory.path("file")), "text\n");
  EXPECT_EQ(log.text(), "");
}

TEST(AppendFile, keepsWhatWasThere) {
  const TemporaryDirectory directory;
  ASSERT_TRUE(writeFile(directory.path("file"), "first\n"));
  EXPECT_TRUE(appendFile(directory.path("file"), "second\n"));
  EXPECT_TRUE(appendFile(directory.path("file"), ""));
  EXPECT_TRUE(appendFile(directory.path("file"), "third"));
  EXPECT_EQ(contentsOf(directory.path("file")), "first\nsecond\nthird");
}

using FileWriter = bool (*)(const std::string&, const std::string&);

class EitherWriter : public testing::TestWithParam<FileWriter> {};
INSTANTIATE_TEST_SUITE_P(ConfigurationStore, EitherWriter, testing::Values(writeFile, appendFile));

TEST_P(EitherWriter, warnsOfAFileThatCannotBeOpened) {
  const TemporaryDirectory directory;
  for (const std::string& path : {directory.path("absent/file"), directory.path()}) {
    const CapturedLog log(kTrace);
    EXPECT_FALSE(GetParam()(path, "text"));
    EXPECT_EQ(log.text(), "WARNING [TUNNEL_MNGR] [" + path + "] could not be opened.\n");
  }
  EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
}

TEST_P(EitherWriter, warnsOnlyWhenWarningsArePrinted) {
  const TemporaryDirectory directory;
  const CapturedLog log(Level::WARNING_LEVEL - 1);
  EXPECT_FALSE(GetParam()(directory.path("absent/file"), "text"));
  EXPECT_EQ(log.text(), "");
}

TEST_P(EitherWriter, looksAtTheOpeningOnly) {
  const CapturedLog log(kTrace);
  EXPECT_TRUE(GetParam()("/dev/full", "text")) << "a full device opens and takes nothing; full(4)";
  EXPECT_EQ(log.text(), "");
}

TEST_P(EitherWriter, leavesTheModeToTheUmask) {
  const TemporaryDirectory directory;
  const mode_t saved = umask(0027);
  const bool written = GetParam()(directory.path("file"), "text");
  umask(saved);
  ASSERT_TRUE(written);
  struct stat status {};
  ASSERT_EQ(stat(directory.path("file").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0640U);
}

}  // namespace
