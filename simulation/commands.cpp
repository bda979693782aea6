// What the router's programs do.

#include <algorithm>
#include <cstdlib>

#include "simulation/process.h"
#include "simulation/router.h"
#include "simulation/text.h"

namespace simulation {
namespace {

using Words = std::vector<std::string>;

constexpr int kRefused = 2 << 8;
constexpr int kNotFound = 127 << 8;
constexpr std::size_t kLongestName = 15;

/// The kernel has one tunnel of a kind between two ends.
bool isTaken(const KernelTunnel& other) {
  return std::any_of(world->tunnels.begin(), world->tunnels.end(), [&other](const auto& entry) {
    return entry.second.remote == other.remote && entry.second.local == other.local;
  });
}

/// ip tunnel add NAME mode gre remote ADDRESS local ADDRESS ttl NUMBER
int addTunnel(const Words& words) {
  if (words.size() != 12 || words[6] != "remote" || words[8] != "local" || words[10] != "ttl") return kRefused;
  const KernelTunnel tunnel{words[7], words[9], words[11]};
  if (words[3].size() > kLongestName || world->tunnels.count(words[3]) > 0 || isTaken(tunnel)) return kRefused;
  world->tunnels[words[3]] = tunnel;
  return 0;
}

KernelTunnel* find(const std::string& name) {
  const auto tunnel = world->tunnels.find(name);
  return tunnel == world->tunnels.end() ? nullptr : &tunnel->second;
}

int setLink(const Words& words) {
  KernelTunnel* const tunnel = words.size() == 5 ? find(words[3]) : nullptr;
  if (tunnel == nullptr) return kRefused;
  tunnel->up = words[4] == "up";
  if (!tunnel->up) tunnel->routes.clear();
  return 0;
}

/// ip addr add ADDRESS dev NAME, ip route add DESTINATION dev NAME
int addTo(const Words& words, std::vector<std::string> KernelTunnel::*list) {
  KernelTunnel* const tunnel = words.size() == 6 ? find(words[5]) : nullptr;
  if (tunnel == nullptr || (list == &KernelTunnel::routes && !tunnel->up)) return kRefused;
  std::vector<std::string>& entries = tunnel->*list;
  if (std::find(entries.begin(), entries.end(), words[3]) != entries.end()) return kRefused;
  entries.push_back(words[3]);
  return 0;
}

int performIp(const Words& words) {
  if (words.size() < 3) return 0;  // a listing
  const std::string what = words[1] + " " + words[2];
  if (what == "tunnel add") return addTunnel(words);
  if (what == "tunnel del") return world->tunnels.erase(words.size() == 4 ? words[3] : "") > 0 ? 0 : kRefused;
  if (what == "link set") return setLink(words);
  return addTo(words, what == "addr add" ? &KernelTunnel::addresses : &KernelTunnel::routes);
}

int performIpsec(const Words& words) {
  IpsecService& service = world->ipsec;
  service.runs = words[1] == "restart";
  service.loaded.clear();
  if (!service.runs) return 0;
  for (const auto& [path, file] : world->files) {
    if (startsWith(path, "/var/run/ipsec/")) service.loaded[path] = file;
  }
  return 0;
}

/// rm -rf DIRECTORY/* ...
int performRm(const Words& words) {
  for (auto file = world->files.begin(); file != world->files.end();) {
    const bool goes = std::any_of(words.begin() + 2, words.end(), [&file](const std::string& pattern) {
      return startsWith(file->first, pattern.substr(0, pattern.size() - 1));
    });
    file = goes ? world->files.erase(file) : std::next(file);
  }
  return 0;
}

int perform(const Words& words) {
  const std::string& program = words[0];
  if (program == "ip") return performIp(words);
  if (program == "ipsec") return performIpsec(words);
  if (program == "rm") return world->faults.has(FaultKind::kDiskReadOnly) ? kRefused : performRm(words);
  if (program == "mkdir") return world->directories.insert(words.back()).second ? 0 : kRefused;
  return program == "firewall" || program == "ping" ? 0 : kNotFound;
}

/// In milliseconds, when nothing is wrong.
std::int64_t usualTime(const std::string& program) {
  if (program == "ping") return 2000;
  return program == "ipsec" ? world->chance.between(50, 400) : world->chance.between(1, 6);
}

}  // namespace

int performCommand(const std::string& command) {
  const Words words = wordsOf(command);
  const std::string& program = words[0];
  const bool fails = world->faults.has(FaultKind::kCommandFails, program);
  const Fault* const slow = world->faults.find(FaultKind::kCommandSlow, program);
  const std::int64_t time = slow != nullptr ? slow->amount : fails && program == "ping" ? 12000 : usualTime(program);
  spend(time / 2 * kMillisecond, program.c_str());
  const int status = fails ? kRefused : perform(words);
  spend((time - time / 2) * kMillisecond, program.c_str());
  return status;
}

std::string tunnelListing() {
  std::string listing = "gre0: gre/ip  remote any  local any  ttl inherit  nopmtudisc\n";
  for (const auto& [name, tunnel] : world->tunnels)
    listing += name + ": gre/ip  remote " + tunnel.remote + "  local " + tunnel.local + "  ttl " + tunnel.ttl + "\n";
  return listing;
}

}  // namespace simulation
