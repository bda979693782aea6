#include <json/value.h>

#include <algorithm>

#include "tunnelctl/ip_listing.h"
#include "tunnelctl/json_member.h"

namespace {

/// The text where it is a dotted address; `ip` has "any" and 0.0.0.0 for an end that is none.
std::string endIn(const Json::Value& ends, const char* name) {
  const std::string text = textMember(ends, name);
  return parseAddress(text).value_or(0) == 0 ? "" : text;
}

bool hasText(const Json::Value& array, const char* text) {
  return array.isArray() && std::any_of(array.begin(), array.end(), [text](const Json::Value& v) { return v == text; });
}

std::optional<Traffic> trafficIn(const Json::Value& statistics) {
  const std::optional<std::uint64_t> received = countMember(memberOf(statistics, "rx"), "bytes");
  const std::optional<std::uint64_t> sent = countMember(memberOf(statistics, "tx"), "bytes");
  if (!received || !sent) return std::nullopt;
  return Traffic{*received, *sent};
}

std::vector<Ipv4Network> addressesIn(const Json::Value& list) {
  std::vector<Ipv4Network> addresses;
  if (!list.isArray()) return addresses;
  for (const Json::Value& entry : list) {
    const std::optional<std::uint64_t> prefix = countMember(entry, "prefixlen");
    if (!prefix) continue;
    if (const auto address = parseNetwork(textMember(entry, "local"), std::to_string(*prefix)))
      addresses.push_back(*address);
  }
  return addresses;
}

Device deviceIn(const Json::Value& entry) {
  const Json::Value& info = memberOf(entry, "linkinfo");
  const Json::Value& ends = memberOf(info, "info_data");
  Device device;
  device.name = textMember(entry, "ifname");
  device.isUp = hasText(memberOf(entry, "flags"), "UP");
  device.isGre = textMember(info, "info_kind") == "gre" && device.name != "gre0";
  if (device.isGre) {
    device.local = endIn(ends, "local");
    device.remote = endIn(ends, "remote");
  }
  device.addresses = addressesIn(memberOf(entry, "addr_info"));
  device.traffic = trafficIn(memberOf(entry, "stats64"));
  return device;
}

/// Of a route without a type packets go along.
bool isWay(const Json::Value& entry) {
  const std::string type = textMember(entry, "type");
  return (type.empty() || type == "unicast") && !hasText(memberOf(entry, "flags"), "dead");
}

}  // namespace

bool parseDevicesJson(const std::string& output, std::vector<Device>& devices) {
  const Json::Value list = parseArray(output);
  if (list.isNull()) return false;
  devices.clear();
  for (const Json::Value& entry : list) {  // ip(8) may leave an empty object for a device that it does not show
    if (!textMember(entry, "ifname").empty()) devices.push_back(deviceIn(entry));
  }
  return true;
}

bool parseRoutesJson(const std::string& output, std::vector<Route>& routes) {
  const Json::Value list = parseArray(output);
  if (list.isNull()) return false;
  routes.clear();
  for (const Json::Value& entry : list) {
    const std::optional<Ipv4Network> destination = parseNetwork(textMember(entry, "dst"));
    if (destination && isWay(entry)) routes.push_back({*destination, textMember(entry, "dev")});
  }
  return true;
}
