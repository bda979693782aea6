// The look at the OpenVPN tunnels between two management runs.
#pragma once

#include <string>

/// One pass over the tunnels under supervision: one whose child does not run is restarted, one that runs and has a far
/// end to ping is pinged. A ping that fails is recorded and changes nothing else.
///
/// Waits for every ping, one after the other, each of which takes up to twelve seconds when nobody answers. So a pass
/// can give way: it asks `givesWay` before each tunnel and ends where that is true; the tunnels behind are looked at in
/// the next pass. Main thread only, with the refresh lock held, never during a run.
void checkOvpnTunnels();
void checkOvpnTunnels(bool (*givesWay)());

/// The command that pings a tunnel's far end. Pure.
std::string pingCommand(const std::string& address);
