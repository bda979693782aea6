// The GRE tunnels that the kernel has right now.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

/// The GRE tunnels that an output of `ip tunnel` lists, in its order: an array of objects with the texts "name",
/// "remoteIp", "localIp" and "ttl". Tunnels of other modes and the kernel's own devices "tunl0" and "gre0" are left
/// out.
///
/// Lines are read as words in fixed places, as ip-tunnel(8) prints them; a line with fewer words than that keeps the
/// missing ones of the line before it.
Json::Value parseKernelTunnels(const std::string& output);

/// Runs `ip tunnel` and reads its output. On success `tunnels` is replaced by the tunnels found and their names are
/// appended to `names`. False, with an ERROR line and both untouched, when the command failed. Main thread only.
bool parseCurrentGreTunnels(Json::Value& tunnels, std::vector<std::string>& names);
