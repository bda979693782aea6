#include "tunnelctl/check_devices.h"

#include <net/if.h>
#include <net/if_arp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>

#include "openvpn/option_text.h"
#include "support/text.h"
#include "tunnelctl/check_addresses.h"
#include "tunnelctl/check_lines.h"
#include "tunnelctl/check_owners.h"
#include "tunnelctl/check_rules.h"

namespace {

constexpr std::size_t kLongestName = IFNAMSIZ - 1;

/// What the kernel's dev_valid_name() (net/core/dev.c) takes into no name: "/", ":", and what is white space to it, the
/// no-break space of Latin-1 included (lib/ctype.c). And a NUL, which ends a command.
constexpr std::string_view kForbidden("/: \t\n\v\f\r\xA0\0", 10);

/// What it takes for no name at all, or has directories of (/proc/sys/net/ipv4/conf).
constexpr std::array<std::string_view, 4> kDirectories{".", "..", "all", "default"};

/// Never the name of another device: the interface that loops back, and those that the kernel makes for each kind of
/// tunnel (net.core.fb_tunnels_only_for_init_net in its Documentation/admin-guide/sysctl/net.rst).
constexpr std::array<std::string_view, 10> kKernelDevices{"lo",   "tunl0",   "gre0",    "gretap0", "erspan0",
                                                          "sit0", "ip6tnl0", "ip6gre0", "ip_vti0", "ip6_vti0"};

/// What `ip tunnel add` and `ip link set`, of iproute2 6.1, take for a word of their own where a name stands. The
/// letters before a "|" are enough of it. Seen by giving them every word that their program and manual pages have.
constexpr std::string_view kKeywords =
    "a|ddress a|ddrgenmode a|lias allmulticast arp b|rd b|roadcast carrier csum dev down d|sfield d|ynamic "
    "gro_max_size group gso_max_segs gso_max_size h|elp hlim hoplimit icsum ikey index iseq key l|ink-netnsid "
    "local m|aster mode mtu multicast name netns n|omaster nopmtudisc n|umrxqueues n|umtxqueues ocsum okey oseq "
    "parentdev pmtudisc promisc protodown qlen remote seq state tclass tos trailers ttl t|xqlen t|xqueuelen t|ype "
    "up vf vrf xdp xdpdrv xdpgeneric xdpoffload";

/// A device that a tunnel makes.
struct Device {
  std::string name;
  Place place;
  bool isGre;
};

template <std::size_t kCount>
bool isAmong(const std::array<std::string_view, kCount>& names, std::string_view name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

void checkName(const Device& device, IsForeignDevice isForeign, Findings& findings) {
  const std::string& name = device.name;
  const Place& place = device.place;
  if (hasShellCharacter(name) || (name.empty() && !place.isInForce())) return;  // told elsewhere, or still to be named
  if (const char* const objection = objectionToDeviceName(name); objection != nullptr) {
    findings.add(place, Problem::kDeviceName, {name, objection});
  } else if (isAmong(kKernelDevices, name)) {
    findings.add(place, Problem::kKernelDevice, {name});
  } else if (isIpKeyword(name)) {
    findings.add(place, Problem::kIpKeyword, {name});
  } else if (isForeign && place.isInForce() && isForeign(name)) {
    findings.add(place, Problem::kExistingDevice, {name});
  }
}

std::vector<Device> devicesOf(const Place& root) {
  std::vector<Device> devices;
  for (const Place& tunnel : greTunnelsOf(root)) {
    const Place place = tunnel["name"];
    if (const auto name = place.text()) devices.push_back({ZEL::Text::replace(*name, " ", "_"), place, true});
  }
  for (const Place& tunnel : ovpnTunnelsOf(root)) {
    const Place place = tunnel["name"];
    std::string device;
    if (place.text() && getConfigOption(std::string(tunnel["config"].textOrNothing()), "dev", device))
      devices.push_back({interfaceName(device, std::string(*place.text())), place, false});
  }
  return devices;
}

}  // namespace

const char* objectionToDeviceName(std::string_view name) {
  if (name.empty()) return "is no name";
  if (name.size() > kLongestName) return "has more than 15 bytes";
  if (name.find_first_of(kForbidden) != std::string_view::npos)
    return "has a character that the kernel takes into no name";
  if (name.find('%') != std::string_view::npos) return "has a \"%\", which to the kernel is the place of a number";
  return isAmong(kDirectories, name) ? "is a name that the kernel keeps for itself" : nullptr;
}

bool isIpKeyword(std::string_view name) {
  for (std::string_view rest = kKeywords; !rest.empty();) {
    std::string_view word = takePiece(rest, ' ');
    const std::string_view enough = takePiece(word, '|');
    const std::string_view behind = name.substr(std::min(enough.size(), name.size()));
    if (name.substr(0, enough.size()) == enough && word.substr(0, behind.size()) == behind) return true;
  }
  return false;
}

bool isForeignDevice(const std::string& name) {
  ifreq request{};
  name.copy(request.ifr_name, kLongestName);
  const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const bool exists = descriptor >= 0 && ioctl(descriptor, SIOCGIFHWADDR, &request) == 0;
  if (descriptor >= 0) close(descriptor);
  return exists && request.ifr_hwaddr.sa_family != ARPHRD_IPGRE;
}

void checkDevices(const Place& root, IsForeignDevice isForeign, Findings& findings) {
  Owners owners(Problem::kSameDevice);
  for (const Device& device : devicesOf(root)) {
    if (device.isGre) checkName(device, isForeign, findings);
    if (!device.name.empty()) owners.add(device.name, device.place, device.place, findings);
  }
}
