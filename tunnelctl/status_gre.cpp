#include <algorithm>

#include "effects/effects.h"
#include "support/text.h"
#include "tunnelctl/status_rows.h"

namespace {

using ZEL::Text;

constexpr const char* kKind = "gre";
constexpr std::size_t kLongestName = 15;  // IFNAMSIZ, with the null byte

/// Why there is no device.
Verdict missing(const TunnelRecord& record, const Facts& facts) {
  const auto address = facts.addresses.find(record.host);
  if (record.name.size() > kLongestName) return down("its name has more than 15 characters, which the kernel refuses");
  if (record.host.empty()) return down("it has no remote host");
  if (address != facts.addresses.end() && address->second.empty()) return down(record.host + " has no address");
  if (!daemonStatus(facts).isRunning) return down("it has not been built, and the daemon does not run");
  return down("it has not been built: it is newer than the last run, or ip refused it");
}

bool isOwnAddress(const std::string& text, const std::vector<Device>& devices) {
  const std::optional<std::uint32_t> address = parseAddress(text);
  return std::any_of(devices.begin(), devices.end(), [&address](const Device& device) {
    return std::any_of(device.addresses.begin(), device.addresses.end(),
                       [&address](const Ipv4Network& own) { return own.address == address; });
  });
}

/// Whether a way leads there that is not the tunnel itself.
bool isReachable(const std::string& text, const Device& tunnel, const std::vector<Route>& routes) {
  const std::optional<std::uint32_t> address = parseAddress(text);
  return !address || std::any_of(routes.begin(), routes.end(), [&](const Route& route) {
    return route.device != tunnel.name && contains(route.destination, *address);
  });
}

/// What stops every packet, whatever is configured; "" when nothing does.
std::string obstacle(const Device& device, const Facts& facts) {
  if (!device.isUp) return "its link is down; a run is due";
  if (!device.local.empty() && !isOwnAddress(device.local, facts.devices))
    return "no interface has its local end " + device.local;
  if (areRoutesKnown(facts) && !isReachable(device.remote, device, facts.routes))
    return "no route leads to its remote end " + device.remote;
  return "";
}

/// In what the device's ends are not those that are configured; "" when they are.
std::string otherEnds(const Device& device, const TunnelRecord& record, const Facts& facts) {
  if (device.local != facts.configuration.wan)
    return Text::joined({"it begins at ", device.local, ", but the current WAN is ", facts.configuration.wan});
  if (parseAddress(record.host) && device.remote != record.host)
    return Text::joined({"it ends at ", device.remote, ", but ", record.host, " is configured; a run is due"});
  return "";
}

/// Of what the record asks for, what the device lacks.
std::string lack(const Device& device, const TunnelRecord& record, const Facts& facts) {
  for (const Ipv4Network& address : record.addresses) {
    const auto& own = device.addresses;
    if (std::find(own.begin(), own.end(), address) == own.end())
      return Text::joined({"it lacks its address ", textOf(address), "; a run is due"});
  }
  if (!areRoutesKnown(facts)) return "";
  for (const Ipv4Network& wanted : record.routes) {
    if (std::none_of(facts.routes.begin(), facts.routes.end(),
                     [&](const Route& route) { return route.device == device.name && route.destination == wanted; }))
      return Text::joined({"no route to ", textOf(wanted), " leads through it; a run is due"});
  }
  return "";
}

/// Up, as far as the routes go.
Verdict unlessRoutesHang(const Facts& facts) {
  if (facts.routesStatus != kNoAnswer) return {};
  return unknown("ip does not list the kernel's routes");
}

Verdict judgeConfigured(const TunnelRecord& record, const Device* device, const Facts& facts) {
  if (!record.isReadable) return unknown("a member of its record has a wrong type, which ends every run");
  if (!areDevicesKnown(facts)) return unknown("ip does not list the kernel's devices");
  if (facts.configuration.wan.empty()) return down("no WAN is current, so nothing is built");
  if (device == nullptr) return missing(record, facts);
  if (!device->isGre) return down("another device has its name");
  if (std::string reason = otherEnds(*device, record, facts); !reason.empty()) return down(reason);
  if (std::string reason = obstacle(*device, facts); !reason.empty()) return down(reason);
  if (std::string reason = lack(*device, record, facts); !reason.empty()) return {TunnelState::kPartial, reason};
  return unlessRoutesHang(facts);
}

TunnelRow rowOf(const std::string& name, const Verdict& verdict, const Device* device) {
  TunnelRow row{kKind, name, verdict};
  if (device == nullptr) return row;
  row.local = device->local;
  row.remote = device->remote;
  row.traffic = device->traffic;
  return row;
}

TunnelRow configuredRow(const TunnelRecord& record, const Facts& facts) {
  const Device* const device = deviceOf(record.name, facts);
  TunnelRow row = rowOf(record.name, judgeConfigured(record, device, facts), device);
  if (device == nullptr) row.remote = record.host;
  return row;
}

/// The record of a device, or null.
const TunnelRecord* recordOf(const Device& device, const Facts& facts) {
  const std::vector<TunnelRecord>& records = facts.configuration.gre;
  const auto found = std::find_if(records.begin(), records.end(),
                                  [&device](const TunnelRecord& record) { return record.name == device.name; });
  return found == records.end() ? nullptr : &*found;
}

Verdict judgeFound(const Device& device, const TunnelRecord* record, const Facts& facts) {
  if (record != nullptr) return {TunnelState::kStale, "it is disabled; the next run removes it"};
  if (isConfigurationKnown(facts))
    return {TunnelState::kStale, "it is not in the configuration; the next run removes it"};
  const std::string reason = obstacle(device, facts);
  return reason.empty() ? unlessRoutesHang(facts) : down(reason);
}

bool isShown(const TunnelRecord& record) {
  return record.isEnabled || !record.isReadable;
}

}  // namespace

std::vector<TunnelRow> greRows(const Facts& facts) {
  std::vector<TunnelRow> rows;
  for (const TunnelRecord& record : facts.configuration.gre) {
    if (isShown(record)) rows.push_back(configuredRow(record, facts));
  }
  for (const Device& device : facts.devices) {
    const TunnelRecord* const record = recordOf(device, facts);
    if (!device.isGre || (record != nullptr && isShown(*record))) continue;
    rows.push_back(rowOf(device.name, judgeFound(device, record, facts), &device));
  }
  return rows;
}
