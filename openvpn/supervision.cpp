#include "openvpn/supervision.h"

#include <dirent.h>
#include <signal.h>

#include <cerrno>
#include <chrono>

#include "effects/effects.h"
#include "support/log_tag.h"
#include "support/logger.h"
#include "support/system.h"

std::list<OvpnTnl> supervisedTunnels;

namespace {

constexpr const char* kProgram = "openvpn";

/// A child that has not ended by then is asked again.
constexpr std::chrono::seconds kAskAgain{1};

/// How often a child that was asked to end is looked at. What it takes to end is outage.
constexpr std::chrono::milliseconds kLookAgain{10};

void createIfMissing(const std::string& directory) {
  DIR* const stream = opendir(directory.c_str());
  if (stream != nullptr) {
    closedir(stream);
  } else if (errno == ENOENT) {
    ZEL::System::run("mkdir -p " + directory);
    ZEL_LOG(ERROR, "[%s][OVPN] %s didn't exist. it has been created", kLogTag, directory.c_str());
  }
}

/// The child's life up to the exec.
void becomeOpenvpn(const OvpnTnl& tunnel) {
  if (!effects().followParentIntoDeath()) {
    ZEL_LOG(ERROR, "[%s][OVPN] failed setup notify 'perent terminated' in OvpnTnl restart", kLogTag);
    return;
  }
  if (!tunnel.clientConfigDir.empty()) createIfMissing(tunnel.clientConfigDir);
  if (!effects().becomeProgram(openvpnArguments(tunnel).data()))
    ZEL_LOG(ERROR, "[%s][OVPN] failed exec openvpn", kLogTag);
}

/// Looks at a child until it is gone, and a second at most. True when it is gone.
bool isGoneWithinASecond(pid_t child) {
  const auto end = effects().now() + kAskAgain;
  for (ChildState state{}; (state = effects().lookAtChild(child)) != ChildState::kGone;) {
    if (effects().now() >= end) return false;
    if (state == ChildState::kRunning) effects().pause(kLookAgain);
  }
  return true;
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
  pid = effects().startChild([this] { becomeOpenvpn(*this); });
  if (pid > 0) return true;
  ZEL_LOG(ERROR, "[%s][OVPN] failed fork in OvpnTnl restart", kLogTag);
  pid = 0;
  return false;
}

void OvpnTnl::stop() {
  while (pid > 0) {
    effects().signalProcess(pid, SIGTERM);
    if (isGoneWithinASecond(pid)) pid = 0;
  }
}

bool OvpnTnl::isRunning() {
  if (pid <= 0) return false;  // waitpid(2) would ask for any child
  ChildState state = effects().lookAtChild(pid);
  while (state == ChildState::kInterrupted) state = effects().lookAtChild(pid);
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

std::array<const char*, 9> openvpnArguments(const OvpnTnl& tunnel) {
  // The status file is rewritten every second; the last word is the name under which openvpn itself logs.
  return {kProgram,  "--config", tunnel.confFile.c_str(), "--status", tunnel.statusFile.c_str(), "1", "--syslog",
          "openvpn", nullptr};
}
