// What the tests of the OpenVPN folder share: a directory of their own that is first on PATH, for programs that stand
// in for the real ones, and processes in which to do what the test's own process must not.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <system_error>

#include "openvpn/supervision.h"
#include "support/logger.h"
#include "tests/unit/harness/captured_log.h"
#include "tests/unit/harness/waiting.h"

class Workshop : public ::testing::Test {
 protected:
  /// What hangs in spite of the deadlines ends after this.
  static constexpr unsigned int kLimitSeconds = 280;

  void SetUp() override {
    std::array<char, 32> name{"/tmp/tunnel_mngr_test.XXXXXX"};
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    directory_ = name.data();
    pathBefore_ = getenv("PATH");
    setenv("PATH", (directory_ + ":" + pathBefore_).c_str(), 1);
    log_.emplace(ZEL::Logger::PrintLevel::ERROR_LEVEL);
    alarm(kLimitSeconds);
  }

  void TearDown() override {
    endChildren();
    alarm(0);
    const std::string lines = log();
    log_.reset();
    if (HasFailure() || lines.find("Sanitizer") != std::string::npos) fputs(lines.c_str(), stderr);
    setenv("PATH", pathBefore_.c_str(), 1);
    std::filesystem::remove_all(directory_);
  }

  std::string path(const std::string& name) const { return directory_ + "/" + name; }
  bool exists(const std::string& name) const { return std::filesystem::exists(path(name)); }
  std::string log() const { return log_->text(); }

  /// Forgets what was logged.
  void clearLog() {
    log_.reset();
    log_.emplace(ZEL::Logger::PrintLevel::ERROR_LEVEL);
  }

  std::string read(const std::string& name) const {
    std::ostringstream text;
    text << std::ifstream(path(name), std::ios::binary).rdbuf();
    return text.str();
  }

  void write(const std::string& name, const std::string& text) const {
    std::ofstream(path(name), std::ios::binary) << text;
  }

  /// A shell script first on PATH; in it, $here is the test's directory.
  void program(const std::string& name, const std::string& script, const std::string& shell = "/bin/sh") const {
    write(name, "#!" + shell + "\nhere='" + directory_ + "'\n" + script + "\n");
    chmod(path(name).c_str(), 0700);
  }

  /// An openvpn that leaves the file "started" and stays.
  void lastingOpenvpn() const { program("openvpn", ": > $here/started\nexec sleep 100"); }

  bool waitForFile(const std::string& name) const {
    return eventually([&] { return exists(name); });
  }

  /// Reaps a child and returns its status; nothing when it does not end.
  static std::optional<int> statusOf(pid_t child) {
    int status = 0;
    if (eventually([&] { return waitpid(child, &status, WNOHANG) == child; })) return status;
    return std::nullopt;
  }

  static bool exitedWith(std::optional<int> status, int code) {
    return status && WIFEXITED(*status) && WEXITSTATUS(*status) == code;
  }

  static bool endedBy(std::optional<int> status, int signal) {
    return status && WIFSIGNALED(*status) && WTERMSIG(*status) == signal;
  }

  /// Waits until a child has ended, without reaping it.
  static bool waitForZombie(pid_t child) {
    return eventually([child] {
      siginfo_t info{};
      return waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == child;
    });
  }

  /// Runs `body` in a child process, which then exits with what it returns.
  static pid_t inProcess(const std::function<int()>& body) {
    const pid_t child = fork();
    if (child < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (child == 0) {
      alarm(kLimitSeconds);
      _exit(body());
    }
    return child;
  }

  /// A tunnel's configuration with its files in the test's directory.
  OvpnConf conf(const std::string& name) const {
    OvpnConf result;
    result.name = name;
    result.confFile = path(name + ".conf");
    result.statusFile = path(name + ".status");
    result.connectFile = path(name + ".connect");
    return result;
  }

 private:
  /// A test that failed half way may leave children, and its tunnels in the lists.
  static void endChildren() {
    for (const OvpnTnl& tunnel : supervisedTunnels) {
      if (tunnel.pid <= 0) continue;
      kill(tunnel.pid, SIGKILL);
      waitpid(tunnel.pid, nullptr, 0);
    }
    supervisedTunnels.clear();
    Conf::tunnels().clear();
  }

  std::string directory_;
  std::string pathBefore_;
  std::optional<CapturedLog> log_;
};
