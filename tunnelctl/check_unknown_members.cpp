#include <algorithm>
#include <string_view>

#include "tunnelctl/check_addresses.h"
#include "tunnelctl/check_members.h"
#include "tunnelctl/check_rules.h"
#include "tunnelctl/nearest_word.h"

namespace {

/// Other programs' members may be there too. Short names are alike by chance, and long ones like none of ours.
constexpr std::size_t kShortestAlike = 3;
constexpr std::size_t kLongestAlike = 40;

using Names = std::vector<std::string_view>;

Names namesOf(Members members) {
  Names names;
  for (const Member& member : members) names.emplace_back(member.name.data());
  return names;
}

/// What is meant by a member that is not known: one that is missing; "" if none is like it.
std::string_view meantBy(std::string_view name, const Names& missing) {
  for (const std::string_view known : missing) {
    if (isAlikeInSmallLetters(known, name)) return known;
  }
  return name.size() < kShortestAlike || name.size() > kLongestAlike ? "" : nearestWord(name, missing);
}

void checkNames(const Place& record, const Names& known, Findings& findings) {
  Names missing;
  for (const std::string_view name : known) {
    const bool isThere = !record.value().isObject() || record.value().isMember(name.begin(), name.end());
    if (!isThere) missing.push_back(name);
  }
  for (const Place& member : record.members()) {
    if (std::find(known.begin(), known.end(), member.name()) != known.end()) continue;
    const std::string_view meant = meantBy(member.name(), missing);
    if (!meant.empty()) findings.add(member, Problem::kUnknownMember, {member.name(), meant});
  }
}

void checkEach(const std::vector<Place>& records, Members known, Findings& findings) {
  const Names names = namesOf(known);
  for (const Place& record : records) checkNames(record, names, findings);
}

}  // namespace

void checkUnknownMembers(const Place& root, Findings& findings) {
  checkNames(root, {"wans", "greTunnels", "ipsecTunnels", "ni", "ovpnTunnels", "syslog"}, findings);
  checkEach(root["wans"].elements(), membersOfWan(), findings);
  checkEach(greTunnelsOf(root), membersOfGreTunnel(), findings);
  for (const Place& tunnel : greTunnelsOf(root)) checkEach(tunnel["routes"].elements(), membersOfRoute(), findings);
  checkNames(root["ni"], {"nis"}, findings);
  checkEach(root["ni"]["nis"].elements(), membersOfInterface(), findings);
  for (const Place& interface : root["ni"]["nis"].elements())
    checkNames(interface["ipv4"], namesOf(membersOfIpv4()), findings);
  checkEach(ipsecTunnelsOf(root), membersOfIpsecTunnel(), findings);
  checkEach(ovpnTunnelsOf(root), membersOfOvpnTunnel(), findings);
  checkNames(root["syslog"], namesOf(membersOfSyslog()), findings);
}
