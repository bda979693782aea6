#include "tunnelctl/check_findings.h"

namespace {

constexpr Severity kWarning = Severity::kWarning;
constexpr Severity kError = Severity::kError;

constexpr std::array<ProblemKind, kProblems> kKinds{{
    {Problem::kEndsRun, "ends-run", kError, "{} {}, and the run ends there: {}; {}."},
    {Problem::kWouldEndRun, "would-end-run", kWarning,
     "{} {}, which is not read as things are, and ends the run once it is; {}."},
    {Problem::kCountsAsAbsent, "counts-as-absent", kWarning, "{} {} and counts as absent; {}."},
    {Problem::kConverted, "converted", kWarning, "{} is taken for {}; {}."},
    {Problem::kUnknownMember, "unknown-member", kWarning, R"("{}" is not read; if "{}" is meant, write that.)"},
    {Problem::kNoWan, "no-wan", kError, "No WAN is current, and so every tunnel is down; mark the one to be used."},
    {Problem::kWanAddress, "wan-address", kError,
     R"(The address of the current WAN is "{}", and so no tunnel comes up; write four decimal numbers with dots )"
     "between them."},
    {Problem::kDeviceName, "device-name", kError,
     R"("{}" {}, and so the tunnel is missing; write up to 15 letters, digits, "-", "_" and ".".)"},
    {Problem::kIpKeyword, "ip-keyword", kError,
     R"("{}" is a word of ip(8)'s, or the beginning of one, and so the tunnel is missing or down; write a longer )"
     "name."},
    {Problem::kKernelDevice, "kernel-device", kError,
     R"("{}" is a device of the kernel's own, which gets this tunnel's address and routes, and there is no tunnel; )"
     "write another name."},
    {Problem::kExistingDevice, "existing-device", kError,
     R"("{}" is a device that the router has already, which gets this tunnel's address and routes, and there is no )"
     "tunnel; write another name."},
    {Problem::kSameDevice, "same-device", kError,
     R"("{}" is the device of {}, too, and only one of the two tunnels has it; write another name, different in its )"
     "first letters."},
    {Problem::kShellCharacters, "shell-characters", kError,
     R"("{}" has a character that means something to the shell, which runs the command as root, and so the command )"
     "becomes another; leave it out."},
    {Problem::kGreRemote, "gre-remote", kError,
     R"("{}" never resolves to an address, and so the tunnel is missing; write an address or a host name.)"},
    {Problem::kSameRemote, "same-remote", kError,
     R"("{}" is the remote end of {}, too, and so this tunnel is missing; make one tunnel of them.)"},
    {Problem::kTunnelAddress, "tunnel-address", kError,
     R"("{}" is no {}, and so the device gets no address, or another; write four decimal numbers with dots between )"
     "them, and a prefix length."},
    {Problem::kHalfAddress, "half-address", kWarning,
     "An address without a mask is not set, nor is a mask without an address; write both or none."},
    {Problem::kTtl, "ttl", kError, R"("{}" is no TTL, and so the tunnel is missing; write a number from 0 to 255.)"},
    {Problem::kRouteSkipped, "route-skipped", kWarning,
     "A route without a network or without a mask is left out; write both."},
    {Problem::kRouteNetwork, "route-network", kError,
     R"("{}" {}, and so the route is missing; write a network and its prefix length.)"},
    {Problem::kRouteTwice, "route-twice", kError, "{} is a route of {}, and so this one is missing; leave it out."},
    {Problem::kCheckPeriod, "check-period", kWarning, "{} counts as {}; write a number of minutes from 1 to 65535."},
    {Problem::kNoLocalNetwork, "no-local-network", kError,
     "No interface gives a local network, and so no IPsec tunnel is written; give an available LAN interface an "
     "address and a mask."},
    {Problem::kInterfaceAddress, "interface-address", kWarning,
     R"("{}" is not of the form 255.255.255.0, and so the interface's network is in no connection; write it in that )"
     "form."},
    {Problem::kInterfaceBridge, "interface-bridge", kWarning,
     R"("{}" is the name of no bridge, and so the interface's network is in no connection; write "--" for one that )"
     "stands alone."},
    {Problem::kInterfaceSpelling, "interface-spelling", kWarning,
     R"("{}" is not "{}", and so the interface's network is in no connection; write it in capitals.)"},
    {Problem::kMaskWithHoles, "mask-with-holes", kWarning,
     R"("{}" is no mask, and the network counts as {}; write a mask whose one bits all come first.)"},
    {Problem::kNoName, "no-name", kWarning, "Nothing tells what is made of this tunnel from others'; name it."},
    {Problem::kIpsecName, "ipsec-name", kError, R"("{}" {}; leave that out.)"},
    {Problem::kIpsecNameTwice, "ipsec-name-twice", kError,
     R"("{}" is the name of {}, too, and the service makes one connection of both; write another name.)"},
    {Problem::kHiddenFiles, "hidden-files", kWarning,
     R"("{}" makes hidden files of the certificates and the key, which stay when the tunnel is gone; write another )"
     "first letter."},
    {Problem::kIkeVersion, "ike-version", kError,
     R"({} is no type of key exchange, and so the tunnel is refused; write "IKE" or "IKEv2".)"},
    {Problem::kAuthMethod, "auth-method", kWarning,
     R"({} means a pre-shared key, as does all that is not exactly "rsasig"; write that, or "secret".)"},
    {Problem::kNoKey, "no-key", kError,
     "The key is the empty one, which the service accepts from whoever has the peer's address; write a key."},
    {Problem::kKeyCharacters, "key-characters", kError,
     "The key has a double quote, a line feed or a NUL, with which the service has another key, and may not read "
     "those of the tunnels after it; leave that out."},
    {Problem::kIdentityCharacters, "identity-characters", kError,
     R"("{}" has a double quote, a backslash, a line feed or a NUL, with which the service has another identity, or )"
     "reads none of its files; leave that out."},
    {Problem::kNoIdentity, "no-identity", kWarning,
     R"("uid" has identities used, and this one is empty, which is any; write it, or leave out "uid".)"},
    {Problem::kUnusedIdentity, "unused-identity", kWarning,
     R"(Without "uid" this identity is not used; set "uid" to true, or leave it out.)"},
    {Problem::kNoCertificate, "no-certificate", kError,
     "Without its own certificate and the key to it the tunnel does not come up; write both."},
    {Problem::kNoCaCertificate, "no-ca-certificate", kWarning,
     "No tunnel brings the certificate of an authority, and so the peer's is not trusted; write it here."},
    {Problem::kNotPem, "not-pem", kError,
     "There is no PEM text of a {}, and so the tunnel does not come up; write the text itself, with its lines of "
     "BEGIN and END."},
    {Problem::kUnusableKey, "unusable-key", kError,
     "The service is told to load an RSA key that needs no passphrase, which this is not, and so the tunnel does not "
     "come up; write such a key."},
    {Problem::kAnyPeer, "any-peer", kWarning,
     R"("{}" is no host that could be resolved, and so any peer may connect that has the key or a certificate; )"
     "write its address, or 0.0.0.0 if any is meant."},
    {Problem::kRemoteNetwork, "remote-network", kWarning,
     R"("{}" is {} to the service; write the network, for any network 0.0.0.0 with the mask 0.)"},
    {Problem::kAllTraffic, "all-traffic", kWarning,
     R"("{}" is taken for 0, and so all traffic goes into the tunnel; write a prefix length from 0 to 32.)"},
    {Problem::kSingleAddress, "single-address", kWarning,
     R"("{}" is taken for 32, and so one address is reached; write a prefix length from 0 to 32.)"},
    {Problem::kUnknownProposal, "unknown-proposal", kError,
     R"("{}" {}, and so the service leaves the connection out; write names as in "aes256-sha2_256;modp2048".)"},
    {Problem::kUnusedProposal, "unused-proposal", kWarning, R"({}; write the form "encryption-hash;group".)"},
    {Problem::kNoProposal, "no-proposal", kWarning,
     R"("{}" is no encryption method, and for a phase without a text the service offers what it has by itself; )"
     R"(write "aes256", or both texts.)"},
    {Problem::kSha2, "sha2", kWarning,
     R"("sha2" is no complete name, and "sha2_256" is offered; write that, or "sha2_512".)"},
    {Problem::kEndlessKeys, "endless-keys", kWarning,
     "Without a lifetime its keys are never renewed; write a number of hours."},
    {Problem::kOvpnName, "ovpn-name", kError, R"("{}" {}; write letters, digits, "-", "_" and ".".)"},
    {Problem::kOvpnNameTwice, "ovpn-name-twice", kError,
     R"("{}" is the name of {}, too, and so this tunnel is left out; write another name.)"},
    {Problem::kOvpnDevice, "ovpn-device", kError,
     R"("{}" tells neither tun nor tap, and so openvpn ends at once, again and again; write "dev tun".)"},
    {Problem::kOvpnCaFile, "ovpn-ca-file", kWarning,
     R"(With "ca" and a file's name the tunnel counts as one with a static key, and what its "ifconfig" names is )"
     "pinged; write the certificate inline, between <ca> and </ca>."},
    {Problem::kOvpnNoSecret, "ovpn-no-secret", kError,
     "There are neither certificates nor a static key, and so everything is sent as clear text; write an inline "
     "<ca>, or <secret>."},
    {Problem::kOvpnNoIfconfig, "ovpn-no-ifconfig", kWarning,
     R"(A tunnel with a static key has no address but that of "ifconfig", which is not there; write it.)"},
    {Problem::kOvpnPing, "ovpn-ping", kWarning,
     R"("{}" in "ifconfig" is pinged as the far end, which it is not; write an inline <ca>, or two addresses.)"},
    {Problem::kOvpnInline, "ovpn-inline", kError,
     "<{}> has no {}, and so openvpn ends at once, again and again; write the text itself, with its lines of BEGIN "
     "and END, between its tags."},
    {Problem::kOvpnDaemon, "ovpn-daemon", kWarning,
     R"(With "daemon" openvpn outlives the tunnel, and is started again in vain; leave it out.)"},
    {Problem::kOverlapsLan, "overlaps-lan", kWarning,
     "{} overlaps {} of the LAN, whose hosts reach only one of the two at these addresses; give one of them others."},
    {Problem::kOverlapsTunnel, "overlaps-tunnel", kWarning,
     "{} overlaps {} of {}, and only one of the two tunnels carries what goes to these addresses; give one of them "
     "others."},
}};

constexpr bool isInOrder() {
  for (std::size_t i = 0; i < kProblems; ++i) {
    if (kKinds[i].problem != static_cast<Problem>(i)) return false;
  }
  return true;
}

static_assert(isInOrder(), "the table is indexed by the problems");

}  // namespace

const std::array<ProblemKind, kProblems>& problemKinds() {
  return kKinds;
}

const ProblemKind& kindOf(Problem problem) {
  return kKinds[static_cast<std::size_t>(problem)];
}
