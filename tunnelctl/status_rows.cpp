#include "tunnelctl/status_rows.h"

#include <algorithm>
#include <array>
#include <set>
#include <utility>

#include "effects/effects.h"

namespace {

constexpr std::array<const char*, 5> kStates{"up", "partial", "down", "stale", "unknown"};

struct Unit {
  const char* name;
  std::int64_t seconds;
};

constexpr std::array<Unit, 3> kUnits{{{"days", 86400}, {"h", 3600}, {"min", 60}}};

/// The local ends of what is there.
std::vector<std::string> wansInUse(const Facts& facts) {
  std::set<std::string> addresses;
  for (const Device& device : facts.devices) {
    if (device.isGre) addresses.insert(device.local);
  }
  for (const WrittenConnection& connection : facts.connections) {
    if (facts.isIpsecRunning) addresses.insert(connection.left);
  }
  addresses.erase("");
  return {addresses.begin(), addresses.end()};
}

/// An `ip` that fails for want of an option still leaves its routes out without a word; one that hangs does not.
std::string kernelComplaint(const Facts& facts) {
  if (facts.devicesStatus == kNoAnswer) return "the kernel's devices cannot be listed: ip addr does not answer in time";
  if (!areDevicesKnown(facts))
    return "the kernel's devices cannot be listed: ip addr fails with status " + std::to_string(facts.devicesStatus);
  if (facts.routesStatus == kNoAnswer) return "the kernel's routes cannot be listed: ip route does not answer in time";
  return "";
}

bool has(const Status& status, TunnelState state) {
  return std::any_of(status.tunnels.begin(), status.tunnels.end(),
                     [state](const TunnelRow& row) { return row.verdict.state == state; });
}

}  // namespace

const char* textOf(TunnelState state) {
  return kStates.at(static_cast<std::size_t>(state));
}

Verdict down(std::string_view reason) {
  return {TunnelState::kDown, std::string(reason)};
}

Verdict unknown(std::string_view reason) {
  return {TunnelState::kUnknown, std::string(reason)};
}

Status judge(const Facts& facts) {
  Status status;
  status.time = facts.now;
  status.daemon = daemonStatus(facts);
  status.apiComplaint = facts.apiComplaint;
  if (isConfigurationKnown(facts)) status.wan = facts.configuration.wan;
  status.wansInUse = wansInUse(facts);
  status.ipsec = ipsecService(facts);
  status.kernelComplaint = kernelComplaint(facts);
  for (const auto rows : {greRows, ipsecRows, openvpnRows}) {
    for (TunnelRow& row : rows(facts)) status.tunnels.push_back(std::move(row));
  }
  return status;
}

int exitStatusOf(const Status& status) {
  if (has(status, TunnelState::kDown) || has(status, TunnelState::kPartial)) return 1;
  return status.wan && !has(status, TunnelState::kUnknown) ? 0 : 2;
}

std::string ageText(std::int64_t seconds) {
  for (const Unit& unit : kUnits) {
    if (seconds >= 2 * unit.seconds) return std::to_string(seconds / unit.seconds) + " " + unit.name;
  }
  return std::to_string(std::max<std::int64_t>(seconds, 0)) + " s";
}
