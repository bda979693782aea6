#include "support/system.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "tests/unit/harness/child_process.h"

namespace {

using ZEL::System;

constexpr char kUntouched[] = "untouched";

/// No further descriptor can be opened, and so no pipe made, in the child process where this is called.
void useUpDescriptors() {
  const rlimit none{0, 0};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
}

TEST(SystemRun, returnsTheStatusOfTheShell) {
  const int status = System::run("exit 3");
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 3);
  EXPECT_EQ(System::run("true"), 0);
}

TEST(SystemRun, leavesTheOutputToTheProgramsOwn) {
  const ChildEnd end = runInChild([] { System::run("echo to standard output; echo to standard error >&2"); });
  EXPECT_EQ(end.out, "to standard output\n");
  EXPECT_EQ(end.err, "to standard error\n");
}

TEST(SystemCmd, returnsStatusAndOutput) {
  const struct {
    const char* command;
    int status;
    std::string output;
  } rows[] = {
      {"true", 0, ""},
      {"echo text", 0, "text\n"},
      {"printf 'no line end'", 0, "no line end"},
      {"printf 'a\\0b'", 0, std::string("a\0b", 3)},
      {"echo one; echo two; exit 3", 3, "one\ntwo\n"},
      {"exit 255", 255, ""},
      {"no-such-program-anywhere 2>/dev/null", 127, ""},
      {"kill -TERM $$", 128 + SIGTERM, ""},
      {"echo before; kill -KILL $$", 128 + SIGKILL, "before\n"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.command);
    std::string output = kUntouched;
    EXPECT_EQ(System::cmd(row.command, output), row.status);
    EXPECT_EQ(output, row.output);
  }
}

TEST(SystemCmd, collectsMegabytes) {
  constexpr std::size_t kSize = 5000000;
  std::string output;
  EXPECT_EQ(System::cmd("head -c 5000000 /dev/zero | tr '\\0' x", output), 0);
  EXPECT_EQ(output.size(), kSize);
  EXPECT_EQ(output.find_first_not_of('x'), std::string::npos);
}

std::atomic<int> handled{0};

/// A handler that does not have system calls restarted, as that of a library might be.
TEST(SystemCmd, readsOnAfterASignal) {
  struct sigaction action {};
  struct sigaction before {};
  action.sa_handler = [](int) { ++handled; };
  ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
  std::atomic<bool> ended{false};
  std::thread sender([&ended, reader = pthread_self()] {
    while (!ended) {
      pthread_kill(reader, SIGUSR1);
      usleep(1000);
    }
  });
  std::string output;
  EXPECT_EQ(System::cmd("echo first; sleep 0.2; echo last", output), 0);
  EXPECT_EQ(output, "first\nlast\n");
  EXPECT_GT(handled, 0);
  ended = true;
  sender.join();
  sigaction(SIGUSR1, &before, nullptr);
}

TEST(SystemCmd, leavesStandardErrorToTheProgramsOwn) {
  const ChildEnd end = runInChild([] {
    std::string output;
    EXPECT_EQ(System::cmd("echo out; echo err >&2", output), 0);
    EXPECT_EQ(output, "out\n");
  });
  EXPECT_TRUE(end.exitedWith(0)) << end;
  EXPECT_EQ(end.err, "err\n");
}

TEST(SystemCmd, reportsACommandThatCannotBeRun) {
  checkInChild([] {
    std::string output;
    ASSERT_EQ(System::cmd("true", output), 0);  // a sanitizer needs descriptors for its first look at a class
    useUpDescriptors();
    output = kUntouched;
    EXPECT_EQ(System::cmd("true", output), -1);
    EXPECT_EQ(output, "");
  });
}

class SystemReadFile : public testing::Test {
 protected:
  SystemReadFile() : folder_(std::filesystem::temp_directory_path() / ("read-file-" + std::to_string(getpid()))) {
    std::filesystem::create_directory(folder_);
  }
  ~SystemReadFile() override { std::filesystem::remove_all(folder_); }

  std::string fileWith(const std::string& text) const {
    const std::string path = folder_ / "file";
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }

  const std::filesystem::path folder_;
  std::string contents_ = kUntouched;
};

TEST_F(SystemReadFile, readsAllBytes) {
  const std::string texts[] = {
      "", "4711\n", "no line end", std::string("a\0b", 3), std::string(4096, 'x'), std::string(100000, 'y')};
  for (const std::string& text : texts) {
    SCOPED_TRACE(text.size());
    EXPECT_EQ(System::readFile(fileWith(text), contents_), 0);
    EXPECT_EQ(contents_, text);
  }
}

TEST_F(SystemReadFile, readsFilesThatDoNotTellTheirSize) {
  EXPECT_EQ(System::readFile("/proc/self/status", contents_), 0);
  EXPECT_THAT(contents_, testing::HasSubstr("\nPid:\t" + std::to_string(getpid()) + "\n"));
}

TEST_F(SystemReadFile, reportsAFileThatIsMissing) {
  EXPECT_EQ(System::readFile(folder_ / "none", contents_), ENOENT);
  EXPECT_EQ(contents_, kUntouched);
}

TEST_F(SystemReadFile, reportsADirectory) {
  EXPECT_EQ(System::readFile(folder_, contents_), EISDIR);
  EXPECT_EQ(contents_, kUntouched);
}

}  // namespace
