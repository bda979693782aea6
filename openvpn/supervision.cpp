#include "openvpn/supervision.h"

#include <dirent.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <tuple>

#include "api/log_tag.h"
#include "support/logger.h"
#include "support/native_thread.h"
#include "support/system.h"

std::list<OvpnTnl> supervisedTunnels;

namespace {

constexpr const char* kProgram = "openvpn";

/// The status of a child that did not become openvpn: the -1 of the call that failed, as a parent sees it.
constexpr int kFailedStatus = 255;

/// Gives every signal that has a handler its default action, which the exec would do anyway (execve(2)).
void dropSignalHandlers() {
  for (int number = 1; number < NSIG; ++number) {
    struct sigaction action {};
    if (sigaction(number, nullptr, &action) == 0 && action.sa_handler != SIG_IGN) signal(number, SIG_DFL);
  }
}

/// fork(2) for a child in which no handler of this process ever runs. A SIGTERM that came before the exec would
/// otherwise be spent on the daemon's handler, which in the child removes the daemon's PID file and forgets the signal.
/// Both processes go on with the mask that the caller had.
pid_t forkWithoutHandlers() {
  const ZEL::BlockedSignals untilDropped;
  const pid_t child = fork();
  if (child == 0) dropSignalHandlers();
  return child;
}

/// Has the kernel end this child when its parent dies. A parent that died before that request is noticed by the child
/// itself, since it has another parent by now; nobody is left who would look at its status.
void followParentIntoDeath(pid_t parent) {
  if (prctl(PR_SET_PDEATHSIG, SIGTERM) < 0) {
    ZEL_LOG(ERROR, "[%s][OVPN] failed setup notify 'perent terminated' in OvpnTnl restart", kLogTag);
    _exit(kFailedStatus);
  }
  if (getppid() != parent) _exit(kFailedStatus);
}

void createIfMissing(const std::string& directory) {
  DIR* const stream = opendir(directory.c_str());
  if (stream != nullptr) {
    closedir(stream);
  } else if (errno == ENOENT) {
    ZEL::System::run("mkdir -p " + directory);
    ZEL_LOG(ERROR, "[%s][OVPN] %s didn't exist. it has been created", kLogTag, directory.c_str());
  }
}

/// The child's life up to the exec. An exception must not leave it: it would go on as a second manager.
[[noreturn]] void becomeOpenvpn(const OvpnTnl& tunnel, pid_t parent) noexcept {
  followParentIntoDeath(parent);
  if (!tunnel.clientConfigDir.empty()) createIfMissing(tunnel.clientConfigDir);
  std::apply([](auto... arguments) { execlp(kProgram, arguments..., nullptr); }, openvpnArguments(tunnel));
  ZEL_LOG(ERROR, "[%s][OVPN] failed exec openvpn", kLogTag);
  _exit(kFailedStatus);
}

ChildState askFor(pid_t child) {
  const pid_t result = waitpid(child, nullptr, WNOHANG);
  return childState(result, errno);
}

}  // namespace

OvpnTnl::OvpnTnl(const OvpnConf& conf)
    : confFile(conf.confFile),
      statusFile(conf.statusFile),
      clientConfigDir(conf.clientConfigDir),
      connectFile(conf.connectFile),
      pingAddress(conf.pingAddress),
      pingCheck(conf.pingCheck) {}

bool OvpnTnl::restart() {
  stop();
  const pid_t parent = getpid();
  pid = forkWithoutHandlers();
  if (pid == 0) becomeOpenvpn(*this, parent);
  if (pid > 0) return true;
  ZEL_LOG(ERROR, "[%s][OVPN] failed fork in OvpnTnl restart", kLogTag);
  pid = 0;
  return false;
}

void OvpnTnl::stop() {
  while (pid > 0) {
    kill(pid, SIGTERM);
    const ChildState state = askFor(pid);
    if (state == ChildState::kGone) pid = 0;
    if (state == ChildState::kRunning) sleep(1);
  }
}

bool OvpnTnl::isRunning() {
  if (pid <= 0) return false;  // waitpid(2) would ask for any child
  ChildState state = askFor(pid);
  while (state == ChildState::kInterrupted) state = askFor(pid);
  if (state == ChildState::kGone) pid = 0;
  return state == ChildState::kRunning;
}

void stopOvpnTunnels() {
  for (OvpnTnl& tunnel : supervisedTunnels) tunnel.stop();
  supervisedTunnels.clear();
}

void startOvpnTunnels() {
  stopOvpnTunnels();
  for (const OvpnConf& conf : Conf::tunnels()) supervisedTunnels.emplace_back(conf);
  for (OvpnTnl& tunnel : supervisedTunnels) tunnel.restart();
}

ChildState childState(pid_t result, int error) {
  if (result > 0) return ChildState::kGone;
  if (result == 0) return ChildState::kRunning;
  if (error == EINTR) return ChildState::kInterrupted;
  return error == ECHILD ? ChildState::kGone : ChildState::kRunning;
}

std::array<const char*, 8> openvpnArguments(const OvpnTnl& tunnel) {
  // The status file is rewritten every second; the last word is the name under which openvpn itself logs.
  return {kProgram,   "--config", tunnel.confFile.c_str(), "--status", tunnel.statusFile.c_str(), "1",
          "--syslog", "openvpn"};
}
