// What `ip` tells of the kernel's devices and routes, in the two forms that there are: JSON (iproute2) and plain text
// (BusyBox has no other). Every text is taken; what is no line or member of these is passed over. Pure functions; any
// thread. Only IPv4 counts.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tunnelctl/ipv4_network.h"

/// Bytes that have come and gone.
struct Traffic {
  std::uint64_t received = 0;
  std::uint64_t sent = 0;
};

struct Device {
  std::string name{};
  bool isUp = false;    ///< has been set up; whether it carries anything is another matter
  bool isGre = false;   ///< joins two ends by GRE over IPv4; the kernel's own gre0 is none
  std::string local{};  ///< ends of a GRE tunnel; "" where it is no dotted address
  std::string remote{};
  std::vector<Ipv4Network> addresses{};
  std::optional<Traffic> traffic{};
};

/// A route along which packets go; those that deliver to this host, or refuse, are none.
struct Route {
  Ipv4Network destination;
  std::string device;  ///< "" for a route with several
};

/// From `ip -j -s -d addr`. False, with `devices` untouched, when the text is no JSON array.
bool parseDevicesJson(const std::string& output, std::vector<Device>& devices);

/// From `ip -j route`. False, with `routes` untouched, when the text is no JSON array.
bool parseRoutesJson(const std::string& output, std::vector<Route>& routes);

/// From `ip addr`. No device has its traffic.
std::vector<Device> parseDevices(const std::string& output);

/// From `ip route`.
std::vector<Route> parseRoutes(const std::string& output);

/// Gives the devices their traffic from the text of /proc/net/dev.
void addTraffic(std::vector<Device>& devices, const std::string& counters);
