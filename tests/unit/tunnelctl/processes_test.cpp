#include "tunnelctl/processes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/unit/harness/child_process.h"
#include "tests/unit/harness/private_system.h"
#include "tests/unit/ipsec/temporary_directory.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kStat =
    "88 (openvpn) S 33 33 33 0 -1 256 581 0 0 0 15 15 0 0 20 0 1 0 2846 13660160 2359 18446744073709551615 1 1 0\n";

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  return text.replace(text.find(from), from.size(), to);
}

bool isAmong(const std::vector<Process>& processes, int pid) {
  return std::any_of(processes.begin(), processes.end(), [pid](const Process& process) { return process.pid == pid; });
}

TEST(ParseProcess, readsTheFields) {
  const std::optional<Process> process = parseProcess(kStat);
  ASSERT_TRUE(process.has_value());
  EXPECT_EQ(process->pid, 88);
  EXPECT_EQ(process->parent, 33);
  EXPECT_EQ(process->name, "openvpn");
  EXPECT_EQ(process->startedAt, 2846);
}

TEST(ParseProcess, takesAnyName) {
  const std::optional<Process> process = parseProcess(replaced(kStat, "(openvpn)", "(a) S 1 (b)"));
  ASSERT_TRUE(process.has_value());
  EXPECT_EQ(process->name, "a) S 1 (b");
  EXPECT_EQ(process->parent, 33);
}

TEST(ParseProcess, passesOverTheDeadAndWhatIsNone) {
  for (const std::string& text :
       {replaced(kStat, ") S", ") Z"), replaced(kStat, ") S", ") X"), replaced(kStat, "88 ", "x "), std::string(),
        std::string("88 (openvpn) S 33"), std::string("88 )openvpn( S"), std::string("88 openvpn")})
    EXPECT_FALSE(parseProcess(text).has_value()) << text;
}

TEST(ParseArguments, areEndedByNullBytes) {
  EXPECT_THAT(parseArguments(std::string("a\0b c\0\0", 7)), ElementsAre("a", "b c", ""));
  EXPECT_THAT(parseArguments(std::string("a\0b", 3)), ElementsAre("a", "b"));
  EXPECT_THAT(parseArguments(""), IsEmpty());
}

TEST(ReadProcesses, findsThisOne) {
  const std::vector<Process> processes = readProcesses();
  const auto self =
      std::find_if(processes.begin(), processes.end(), [](const Process& process) { return process.pid == getpid(); });
  ASSERT_NE(self, processes.end());
  EXPECT_EQ(self->parent, getppid());
  EXPECT_THAT(self->arguments.front(), testing::EndsWith("unit_tests"));
  const std::int64_t now = time(nullptr);
  EXPECT_LE(self->startedAt, now + 2);  // the clock may have been set since the machine's start, but not by much
  EXPECT_GE(self->startedAt, now - 86400);
}

TEST(ReadProcesses, readsThemInTheirOrder) {
  const ipsec_test::TemporaryDirectory folder;
  for (const char* pid : {"10", "9", "self", "x1"}) std::filesystem::create_directory(folder.path(pid));
  std::ofstream(folder.path("stat")) << "cpu 1 2\nbtime 5000\n";
  std::ofstream(folder.path("9/stat")) << replaced(kStat, "88", "9");
  std::ofstream(folder.path("10/stat")) << replaced(kStat, "88", "10");
  std::ofstream(folder.path("10/cmdline")) << std::string("openvpn\0--config\0", 17);
  const std::vector<Process> processes = readProcesses(folder.path());
  ASSERT_EQ(processes.size(), 2U);
  EXPECT_EQ(processes[0].pid, 9);
  EXPECT_THAT(processes[0].arguments, IsEmpty());
  EXPECT_EQ(processes[1].pid, 10);
  EXPECT_THAT(processes[1].arguments, ElementsAre("openvpn", "--config"));
  EXPECT_EQ(processes[1].startedAt, 5000 + 2846 / sysconf(_SC_CLK_TCK));
}

TEST(ReadProcesses, leavesOutThoseOfContainers) {
  SKIP_WITHOUT_NAMESPACES();
  checkInChild([] {
    ASSERT_EQ(unshare(CLONE_NEWPID), 0);  // for its children, while it stays where it is
    const pid_t pid = fork();
    if (pid == 0) {
      pause();
      _exit(0);
    }
    ASSERT_GT(pid, 0);
    EXPECT_TRUE(std::filesystem::exists("/proc/" + std::to_string(pid)));
    EXPECT_FALSE(isAmong(readProcesses(), pid));
    kill(pid, SIGKILL);
    EXPECT_EQ(waitpid(pid, nullptr, 0), pid);
  });
}

}  // namespace
