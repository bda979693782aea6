// One reconciliation of the router's tunnels with its configuration.
#pragma once

/// Tears every tunnel down and builds up what is configured: nothing is compared or edited in place. Run by the main
/// thread with the refresh lock held (in daemon mode), so runs never overlap.
///
/// False when a step failed on which the rest depends; what is torn down then stays down until the next successful run.
/// True otherwise, also when no WAN is up and so nothing is built. Throws Json::LogicError for a configuration of a
/// wrong type.
bool manageTunnels();
