#include "tunnelctl/check_members.h"

namespace {

using E = Expected;

constexpr std::array<Member, 2> kWanMembers{
    {{{"current"}, E::kFlag, Step::kPull, kAlways}, {{"ip"}, E::kText, Step::kPull, kAlways}}};

constexpr std::array<Member, 8> kGreTunnelMembers{{{{"name"}, E::kText, Step::kPull, kAlways},
                                                   {{"remoteIp"}, E::kText, Step::kPull, kAlways},
                                                   {{"enabled"}, E::kFlag, Step::kPull, kAlways},
                                                   {{"checkPeriod"}, E::kCount, Step::kPull, kEnabled},
                                                   {{"tunnelIp"}, E::kText, Step::kGre, kEnabled},
                                                   {{"tunnelMask"}, E::kText, Step::kGre, kEnabled},
                                                   {{"ttl"}, E::kTextOrNumber, Step::kGre, kEnabled},
                                                   {{"routes"}, E::kList, Step::kGre, kEnabled}}};

constexpr std::array<Member, 2> kRouteMembers{
    {{{"ip"}, E::kText, Step::kGre, kComplete}, {{"mask"}, E::kMask, Step::kGre, kComplete}}};

constexpr std::array<Member, 5> kInterfaceMembers{{{{"type"}, E::kText, Step::kPull, kAlways},
                                                   {{"available"}, E::kFlag, Step::kPull, kAvailable},
                                                   {{"nitype"}, E::kText, Step::kPull, kNitype},
                                                   {{"bridge"}, E::kText, Step::kPull, kBridge},
                                                   {{"ipv4"}, E::kObject, Step::kPull, kIpv4}}};

constexpr std::array<Member, 2> kIpv4Members{
    {{{"ip"}, E::kText, Step::kPull, kIpv4}, {{"mask"}, E::kText, Step::kPull, kIpv4}}};

constexpr std::array<Member, 23> kIpsecTunnelMembers{{{{"name"}, E::kText, Step::kPull, kAlways},
                                                      {{"remoteWanIp"}, E::kText, Step::kPull, kAlways},
                                                      {{"enabled"}, E::kFlag, Step::kPull, kAlways},
                                                      {{"checkPeriod"}, E::kCount, Step::kPull, kEnabled},
                                                      {{"authMethod"}, E::kAnything, Step::kIpsec, kEnabled},
                                                      {{"caCert"}, E::kText, Step::kIpsec, kCertificate},
                                                      {{"localCert"}, E::kText, Step::kIpsec, kCertificate},
                                                      {{"localPrivKey"}, E::kText, Step::kIpsec, kCertificate},
                                                      {{"uid"}, E::kFlag, Step::kIpsec, kUid},
                                                      {{"localId"}, E::kText, Step::kIpsec, kIdentities},
                                                      {{"remoteId"}, E::kText, Step::kIpsec, kIdentities},
                                                      {{"remoteNetworkIp"}, E::kText, Step::kIpsec, kSections},
                                                      {{"remoteNetworkMask"}, E::kMask, Step::kIpsec, kSections},
                                                      {{"compression"}, E::kFlag, Step::kIpsec, kSections},
                                                      {{"aggressiveMode"}, E::kFlag, Step::kIpsec, kSections},
                                                      {{"encryptMethod"}, E::kText, Step::kIpsec, kSections},
                                                      {{"type"}, E::kAnything, Step::kIpsec, kSections},
                                                      {{"phase1"}, E::kText, Step::kIpsec, kKeying},
                                                      {{"phase2"}, E::kText, Step::kIpsec, kKeying},
                                                      {{"ikelife"}, E::kCount, Step::kIpsec, kKeying},
                                                      {{"keylife"}, E::kCount, Step::kIpsec, kKeying},
                                                      {{"retries"}, E::kCount, Step::kIpsec, kKeying},
                                                      {{"psk"}, E::kText, Step::kIpsec, kPsk}}};

constexpr std::array<Member, 3> kOvpnTunnelMembers{{{{"enabled"}, E::kFlag, Step::kOpenvpn, kAlways},
                                                    {{"name"}, E::kText, Step::kOpenvpn, kEnabled},
                                                    {{"config"}, E::kText, Step::kOpenvpn, kComplete}}};

constexpr std::array<Member, 1> kSyslogMembers{{{{"logLevel"}, E::kCount, Step::kOpenvpn, kEnabled}}};

template <std::size_t kCount>
Members rowsOf(const std::array<Member, kCount>& table) {
  return {table.data(), kCount};
}

}  // namespace

Members membersOfWan() {
  return rowsOf(kWanMembers);
}

Members membersOfGreTunnel() {
  return rowsOf(kGreTunnelMembers);
}

Members membersOfRoute() {
  return rowsOf(kRouteMembers);
}

Members membersOfInterface() {
  return rowsOf(kInterfaceMembers);
}

Members membersOfIpv4() {
  return rowsOf(kIpv4Members);
}

Members membersOfIpsecTunnel() {
  return rowsOf(kIpsecTunnelMembers);
}

Members membersOfOvpnTunnel() {
  return rowsOf(kOvpnTunnelMembers);
}

Members membersOfSyslog() {
  return rowsOf(kSyslogMembers);
}
