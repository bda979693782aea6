// Removing a tunnel from the kernel.
#pragma once

#include <string>

/// Takes a tunnel's link down and deletes the tunnel. Always true: a tunnel that is gone already is as good as removed.
/// Main thread only.
bool destroyTunnel(const std::string& name);
