// The look at the OpenVPN tunnels between two management runs.
#pragma once

#include <string>

/// One pass over the tunnels under supervision: one whose child does not run is restarted, one that runs and has a far
/// end to ping is pinged. A ping that fails is recorded and changes nothing else.
///
/// Waits for every ping, one after the other. Main thread only, with the refresh lock held, never during a run.
void checkOvpnTunnels();

/// The command that pings a tunnel's far end. Pure.
std::string pingCommand(const std::string& address);
