// What `ip` prints of devices and routes, in JSON and in plain text, and what comes of it.

#include "tunnelctl/ip_listing.h"

#include <algorithm>
#include <string>
#include <vector>

#include "tests/fuzz/harness/require.h"
#include "tunnelctl/status_output.h"

namespace {

std::size_t linesOf(const std::string& text) {
  return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) + 1;
}

void requireNetwork(const Ipv4Network& network) {
  require(network.prefix >= 0 && network.prefix <= 32, "a prefix has no more bits than an address");
  require(parseNetwork(textOf(network)) == network, "a network's text is that network");
}

void requireEnd(const Device& device, const std::string& end) {
  require(end.empty() || (device.isGre && parseAddress(end)), "an end is an address of a GRE tunnel");
}

void requireDevice(const Device& device) {
  require(!device.isGre || device.name != "gre0", "the kernel's own device is no tunnel");
  requireEnd(device, device.local);
  requireEnd(device, device.remote);
  for (const Ipv4Network& address : device.addresses) requireNetwork(address);
}

/// A device that is behind all others changes nothing of them.
void requirePrefix(const std::string& listing, const std::vector<Device>& devices) {
  const std::vector<Device> longer =
      parseDevices(listing + "\n9: gre9@NONE: <UP>\n    link/gre 192.0.2.1 peer 192.0.2.2\n");
  require(longer.size() == devices.size() + 1, "one more line is one more device");
  const Device& last = longer.back();
  require(last.name == "gre9" && last.isUp && last.isGre && last.remote == "192.0.2.2", "a whole device is read");
  for (std::size_t i = 0; i < devices.size(); ++i)
    require(longer[i].name == devices[i].name && longer[i].remote == devices[i].remote, "devices keep their order");
}

void requirePlain(const std::string& text, Facts& facts) {
  facts.devices = parseDevices(text);
  facts.routes = parseRoutes(text);
  require(facts.devices.size() <= linesOf(text) && facts.routes.size() <= linesOf(text), "a line is one item at most");
  requirePrefix(text, facts.devices);
  addTraffic(facts.devices, text);
}

void requireJson(const std::string& text, Facts& facts) {
  std::vector<Device> devices(1);
  std::vector<Route> routes(1);
  const bool isArray = parseDevicesJson(text, devices);
  require(parseRoutesJson(text, routes) == isArray, "an array is one for both");
  require(isArray || (devices.size() == 1 && routes.size() == 1), "what is no array changes nothing");
  if (!isArray) return;
  for (const Device& device : devices) require(!device.name.empty(), "a device has a name");
  facts.devices = devices;
  facts.routes = routes;
}

/// Without the API each tunnel that was found has its row.
void requireRows(const Facts& facts) {
  const Status status = judge(facts);
  const auto tunnels =
      std::count_if(facts.devices.begin(), facts.devices.end(), [](const Device& device) { return device.isGre; });
  require(status.tunnels.size() == static_cast<std::size_t>(tunnels), "each tunnel has a row");
  require(!statusText(status).empty() && !statusMetrics(status).empty() && statusJson(status).isObject(),
          "a status can be shown");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text(data, data + size);
  Facts facts;
  facts.apiComplaint = "no answer";
  requirePlain(text, facts);
  requireJson(text, facts);
  for (const Device& device : facts.devices) requireDevice(device);
  for (const Route& route : facts.routes) requireNetwork(route.destination);
  requireRows(facts);
  return 0;
}
