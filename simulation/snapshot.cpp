#include "simulation/snapshot.h"

#include <vector>

#include "simulation/text.h"
#include "simulation/world.h"

namespace simulation {
namespace {

std::string joined(const std::vector<std::string>& texts) {
  std::string all;
  for (const std::string& text : texts) all += " " + text;
  return all;
}

std::string told(const KernelTunnel& tunnel) {
  return tunnel.remote + " " + tunnel.local + " " + tunnel.ttl + (tunnel.up ? " up" : " down") +
         joined(tunnel.addresses) + " routes" + joined(tunnel.routes);
}

std::string told(const File& file) {
  return std::to_string(file.mode) + " " + file.text;
}

/// The process's own, what pings found, and the files of tunnels that are no longer configured, which stay.
bool isNotCompared(const std::string& path) {
  return endsWith(path, ".pid") || startsWith(path, "/var/run/connect_") || startsWith(path, "/var/run/openvpn_");
}

void addFiles(const std::map<std::string, File>& files, const std::string& prefix, Snapshot& snapshot) {
  for (const auto& [path, file] : files) {
    if (!isNotCompared(path)) snapshot[prefix + path] = told(file);
  }
}

}  // namespace

Snapshot snapshotOf(const Process& daemon) {
  Snapshot snapshot;
  for (const auto& [name, tunnel] : world->tunnels) snapshot["tunnel " + name] = told(tunnel);
  addFiles(world->files, "file ", snapshot);
  for (const std::string& name : world->configuration.openvpnNames()) {
    const std::string path = "/var/run/openvpn_" + name + ".conf";
    const auto file = world->files.find(path);
    if (file != world->files.end()) snapshot["file " + path] = told(file->second);
  }
  snapshot["ipsec service"] = world->ipsec.runs ? "runs" : "is stopped";
  addFiles(world->ipsec.loaded, "loaded file ", snapshot);
  snapshot["firewall"] = daemon.watch.ranFirewall ? "is initialised" : "is not";
  for (const auto& [pid, child] : world->children) {
    if (child.parent != daemon.pid || child.dies <= timeNow()) continue;
    std::string& children = snapshot["children of " + joined(child.arguments)];
    children += std::string(child.followsParent ? "following " : "") + child.configuration;
  }
  return snapshot;
}

std::string differenceBetween(const Snapshot& is, const Snapshot& ought) {
  for (const auto& [name, text] : ought) {
    const auto found = is.find(name);
    if (found == is.end()) return name + " is missing";
    if (found->second != text) return name + " is [" + found->second + "], not [" + text + "]";
  }
  for (const auto& [name, text] : is) {
    if (ought.count(name) == 0) return name + " is too many: [" + text + "]";
  }
  return "";
}

}  // namespace simulation
