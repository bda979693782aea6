#include "ipsec/connection_section.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "api/json_text.h"
#include "ipsec/proposals.h"
#include "support/log_tag.h"
#include "support/logger.h"
#include "support/text.h"

namespace {

/// What the configuration has for a peer or a network that may be any.
constexpr const char* kAny = "Any";

struct KeyExchange {
  const char* type;
  const char* written;
};

constexpr std::array<KeyExchange, 2> kKeyExchanges{{{"IKE", "ikev1"}, {"IKEv2", "ikev2"}}};

/// The ciphers that "encryptMethod" can name. It says no more than a description with an encryption alone does, so the
/// proposals are the same.
constexpr std::array<const char*, 4> kEncryptionMethods{"3des", "aes128", "aes192", "aes256"};

/// Null for a type that is not supported.
const char* keyExchangeOf(const Json::Value& type) {
  for (const KeyExchange& row : kKeyExchanges) {
    if (type == row.type) return row.written;
  }
  return nullptr;
}

bool isSupported(const std::string& method) {
  return std::find(kEncryptionMethods.begin(), kEncryptionMethods.end(), method) != kEncryptionMethods.end();
}

/// The method as it is where there are proposals for it; otherwise "", for which there are none, with an ERROR line.
std::string supportedMethod(const std::string& method) {
  if (isSupported(method)) return method;
  ZEL_LOG(ERROR, "[%s] Unsupported encryption method.", kLogTag);
  return "";
}

/// Without a description and without a method there is nothing to propose, and nothing to complain of.
std::string ikeProposals(const std::string& phase1, const std::string& method) {
  if (!phase1.empty()) return buildIkeProposal(phase1);
  return method.empty() ? "" : buildIkeProposal(supportedMethod(method));
}

/// Other than for IKE, a method that is missing counts as one that is not supported.
std::string espProposals(const std::string& phase2, const std::string& method) {
  return buildEspProposal(phase2.empty() ? supportedMethod(method) : phase2);
}

std::string remotePeer(const Json::Value& tunnel) {
  const std::string address = tunnel["remoteWanIp"].asString();
  return address == kAny ? "%any" : address;
}

/// The mask is read in any case: one that cannot be used is reported even where it is not needed.
std::string remoteSubnet(const Json::Value& tunnel) {
  const std::string network = tunnel["remoteNetworkIp"].asString();
  const std::string prefix = jsonToText(tunnel["remoteNetworkMask"]);
  return network == kAny ? "%any" : network + "/" + prefix;
}

const char* yesOrNo(const Json::Value& flag) {
  return flag.asBool() ? "yes" : "no";
}

std::string number(const Json::Value& value) {
  return std::to_string(value.asUInt());
}

std::string keyingTries(const Json::Value& retries) {
  return retries.asUInt() == 0 ? "%forever" : number(retries);
}

void addLine(std::string& section, std::string_view key, std::string_view value) {
  section += ZEL::Text::joined({"\t", key, "=", value, "\n"});
}

/// The section for one local network, or "" when the tunnel's type is not supported. Members are read in the order of
/// the lines, and the type before the proposals, which may log.
std::string sectionFor(const std::string& localNetwork, const Json::Value& tunnel, const std::string& localAddress,
                       const std::string& authLines) {
  std::string section = "\nconn " + makeConnName(tunnel["name"].asString(), localNetwork) + "\n";
  addLine(section, "left", localAddress);
  addLine(section, "leftsubnet", localNetwork);
  addLine(section, "right", remotePeer(tunnel));
  addLine(section, "rightsubnet", remoteSubnet(tunnel));
  section += "\tauto=start\n\tdpddelay=60\n\tdpdtimeout=120\n\tdpdaction=restart\n";
  addLine(section, "compress", yesOrNo(tunnel["compression"]));
  addLine(section, "aggressive", yesOrNo(tunnel["aggressiveMode"]));
  const std::string method = tunnel["encryptMethod"].asString();
  const char* const keyExchange = keyExchangeOf(tunnel["type"]);
  if (keyExchange == nullptr) {
    ZEL_LOG(WARNING, "[%s] Error in ipsec config generation. IPSec Connection Type not implemented.", kLogTag);
    return "";
  }
  addLine(section, "ike", ikeProposals(tunnel["phase1"].asString(), method));
  addLine(section, "esp", espProposals(tunnel["phase2"].asString(), method));
  addLine(section, "ikelifetime", number(tunnel["ikelife"]) + "h");
  addLine(section, "keylife", number(tunnel["keylife"]) + "h");
  addLine(section, "keyingtries", keyingTries(tunnel["retries"]));
  addLine(section, "keyexchange", keyExchange);
  return section + authLines;
}

}  // namespace

std::string makeConnName(const std::string& name, const std::string& localNetwork) {
  std::string suffix = localNetwork;
  for (char& c : suffix) {
    if (c < '0' || c > '9') c = '_';
  }
  return name + "_" + suffix;
}

std::string buildConnSection(const Json::Value& tunnel, const std::string& localAddress, const std::string& authLines) {
  const Json::Value& networks = tunnel["localIpWithCidr"];
  std::string sections;
  for (Json::ArrayIndex i = networks.size(); i-- > 0;) {
    const std::string section = sectionFor(networks[i].asString(), tunnel, localAddress, authLines);
    if (section.empty()) return "";
    sections += section;
  }
  return sections;
}
