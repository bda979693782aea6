// One `openvpn` process per tunnel, as a child of this one.
//
// Main thread only: the lists take no lock, and the kernel sends a child its parent-death signal when the *thread* that
// forked it ends (PR_SET_PDEATHSIG in prctl(2)), so only the thread that lasts as long as the process may fork. There
// is no SIGCHLD handler; a child that has ended is a zombie until somebody asks for it here.
#pragma once

#include <sys/types.h>

#include <array>
#include <list>
#include <string>

#include "openvpn/configuration.h"

/// A tunnel and its `openvpn` child. It is idle with a `pid` of 0 and not copied, since a child belongs to one tunnel.
///
/// Destroying it leaves the child alone; the kernel sends the child SIGTERM when this process ends, however it ends.
class OvpnTnl {
 public:
  explicit OvpnTnl(const OvpnConf& conf);
  OvpnTnl(const OvpnTnl&) = delete;
  OvpnTnl& operator=(const OvpnTnl&) = delete;

  /// Forks a child that becomes `openvpn`, after it has ended the one that it had. False, with an ERROR line, when the
  /// fork failed. True says nothing about the child's fate: what it cannot do it logs, and its status is 255.
  bool restart();

  /// Ends the child: SIGTERM once a second until it is gone, for as long as that takes. Returns within milliseconds of
  /// its end.
  void stop();

  /// Whether there is a child that runs; one that has ended is reaped. Never waits.
  bool isRunning();

  /// Pings the far end and writes "connected", or nothing, to the connect file. Waits for ping(8). Without an address
  /// it does nothing.
  void ping();

  pid_t pid = 0;
  std::string confFile;
  std::string statusFile;
  std::string clientConfigDir;
  std::string connectFile;
  std::string pingAddress;
  bool pingCheck;
};

/// The tunnels under supervision.
extern std::list<OvpnTnl> supervisedTunnels;

/// Ends the children one after the other and empties the list. Waits until the last one is gone.
void stopOvpnTunnels();

/// Stops what runs and starts every configured tunnel. A tunnel whose fork failed stays idle in the list.
void startOvpnTunnels();

/// The child's argument vector, up to a null pointer. It points into the tunnel. Pure.
std::array<const char*, 9> openvpnArguments(const OvpnTnl& tunnel);
