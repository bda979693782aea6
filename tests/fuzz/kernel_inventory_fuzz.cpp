// What `ip tunnel` prints.

#include <json/value.h>

#include <algorithm>
#include <string>
#include <vector>

#include "gre/kernel_inventory.h"
#include "tests/fuzz/harness/require.h"
#include "tests/fuzz/harness/router.h"

namespace {

constexpr const char* kWhiteSpace = " \t\n\v\f\r";
constexpr std::size_t kMembers = 4;

void requireRecord(const Json::Value& tunnel) {
  require(tunnel.size() == kMembers, "a tunnel has four members");
  for (const char* member : {"name", "remoteIp", "localIp", "ttl"}) {
    require(tunnel[member].isString(), "a tunnel's members are texts");
    require(tunnel[member].asString().find_first_of(kWhiteSpace) == std::string::npos, "a member is one word");
  }
  const std::string name = tunnel["name"].asString();
  require(name != "tunl0" && name != "gre0", "the kernel's own devices are left out");
  require(name.empty() || (name.front() != ':' && name.back() != ':'), "a name has no colon at its ends");
}

/// A line that is behind all others changes nothing of what was read before it.
void requirePrefix(const std::string& listing, const Json::Value& tunnels) {
  const Json::Value longer = parseKernelTunnels(listing + "\ngre9: gre/ip remote 192.0.2.7 local 192.0.2.2 ttl 64");
  require(longer.size() == tunnels.size() + 1, "one more line is one more tunnel");
  for (Json::ArrayIndex i = 0; i < tunnels.size(); ++i)
    require(longer[i] == tunnels[i], "tunnels come in the order of their lines");
  require(longer[tunnels.size()]["name"] == "gre9" && longer[tunnels.size()]["ttl"] == "64", "a whole line is read");
}

/// The command around the parser.
void requireListed(const std::string& listing, const Json::Value& tunnels) {
  router.deeds.answers["ip tunnel"] = {0, listing};
  Json::Value listed("untouched");
  std::vector<std::string> names{"before"};
  require(parseCurrentGreTunnels(listed, names) && listed == tunnels, "a listing is what the command prints");
  require(names.size() == tunnels.size() + 1 && names.front() == "before", "names are appended");
  router.deeds.answers["ip tunnel"].status = 1;
  require(!parseCurrentGreTunnels(listed, names) && listed == tunnels && names.size() == tunnels.size() + 1,
          "a command that failed changes nothing");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string listing(data, data + size);
  router = {};
  const Json::Value tunnels = parseKernelTunnels(listing);
  require(tunnels.isArray(), "a listing is an array");
  require(tunnels.size() <= static_cast<std::size_t>(std::count(listing.begin(), listing.end(), '\n')) + 1,
          "a line is one tunnel at most");
  for (const Json::Value& tunnel : tunnels) requireRecord(tunnel);
  requirePrefix(listing, tunnels);
  requireListed(listing, tunnels);
  return 0;
}
