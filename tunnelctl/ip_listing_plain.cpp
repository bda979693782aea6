#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "support/text.h"
#include "tunnelctl/ip_listing.h"

namespace {

using Words = std::vector<std::string>;

/// The word behind another, or "".
std::string wordAfter(const Words& words, std::string_view key) {
  const auto found = std::find(words.begin(), words.end(), key);
  return found == words.end() || found + 1 == words.end() ? "" : found[1];
}

/// "7: Branch_Office_1@NONE: <POINTOPOINT,NOARP,UP,LOWER_UP> mtu ..."
Device deviceIn(const Words& words) {
  Device device;
  device.name = words[1].substr(0, words[1].find_first_of("@:"));
  if (words.size() < 3) return device;
  const std::string flags = "," + ZEL::Text::trim(ZEL::Text::trim(words[2], '<'), '>') + ",";
  device.isUp = flags.find(",UP,") != std::string::npos;
  return device;
}

bool beginsDevice(const std::string& line, const Words& words) {
  return line[0] >= '0' && line[0] <= '9' && words.size() > 1;
}

std::string dotted(const std::string& text) {
  return parseAddress(text).value_or(0) == 0 ? "" : text;
}

/// "link/gre 198.51.100.2 peer 203.0.113.2"; a BusyBox without the names of rare types has the type's number.
void readLink(const Words& words, Device& device) {
  if ((words[0] != "link/gre" && words[0] != "link/[778]") || device.name == "gre0") return;
  device.isGre = true;
  device.local = words.size() > 1 ? dotted(words[1]) : "";
  device.remote = dotted(wordAfter(words, "peer"));
}

/// "inet 10.1.1.1/30 scope global Branch_Office_1", "inet 10.2.0.1 peer 10.2.0.2/32 scope global tunstatic"
void readAddress(const Words& words, Device& device) {
  if (words[0] != "inet" || words.size() < 2) return;
  const std::string peer = wordAfter(words, "peer");
  const std::string& mask = peer.empty() ? words[1] : peer;
  const std::size_t slash = mask.find('/');
  const auto address =
      parseNetwork(words[1].substr(0, words[1].find('/')), slash == std::string::npos ? "32" : mask.substr(slash + 1));
  if (address) device.addresses.push_back(*address);
}

/// Routes of another kind begin with the kind's name.
std::optional<Route> routeIn(Words words) {
  if (!words.empty() && words[0] == "unicast") words.erase(words.begin());
  if (words.empty() || std::find(words.begin(), words.end(), "dead") != words.end()) return std::nullopt;
  const std::optional<Ipv4Network> destination = parseNetwork(words[0]);
  if (!destination) return std::nullopt;
  return Route{*destination, wordAfter(words, "dev")};
}

/// "Branch_Office_1:     308       5    0    0    0     0          0         0      252       4 ..."
std::optional<Traffic> trafficIn(const std::string& numbers) {
  const Words words = ZEL::Text::words(numbers);
  if (words.size() < 9) return std::nullopt;
  return Traffic{strtoull(words[0].c_str(), nullptr, 10), strtoull(words[8].c_str(), nullptr, 10)};
}

}  // namespace

std::vector<Device> parseDevices(const std::string& output) {
  std::vector<Device> devices;
  for (const std::string& line : ZEL::Text::split(output, "\n", 0)) {
    const Words words = ZEL::Text::words(line);
    if (words.empty()) continue;
    if (beginsDevice(line, words)) {
      devices.push_back(deviceIn(words));
    } else if (!devices.empty()) {
      readLink(words, devices.back());
      readAddress(words, devices.back());
    }
  }
  return devices;
}

std::vector<Route> parseRoutes(const std::string& output) {
  std::vector<Route> routes;
  for (const std::string& line : ZEL::Text::split(output, "\n", 0)) {
    if (const std::optional<Route> route = routeIn(ZEL::Text::words(line))) routes.push_back(*route);
  }
  return routes;
}

void addTraffic(std::vector<Device>& devices, const std::string& counters) {
  for (const std::string& line : ZEL::Text::split(counters, "\n", 0)) {
    const std::size_t colon = line.rfind(':');
    if (colon == std::string::npos) continue;
    const std::string name = ZEL::Text::trim(line.substr(0, colon));
    for (Device& device : devices) {
      if (device.name == name) device.traffic = trafficIn(line.substr(colon + 1));
    }
  }
}
