// The openvpn processes of the daemon that runs.
#pragma once

#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

/// The process id and the configuration file of every child of a process that was started as this program starts
/// openvpn, by process id. Read from /proc (proc(5)); a process that ends meanwhile is left out.
std::vector<std::pair<pid_t, std::string>> openvpnChildrenOf(pid_t parent);

/// The process that the PID file names, or 0.
pid_t processOfPidFile();
