#include "ipsec/pre_shared_key_authentication.h"

#include "ipsec/configuration_store.h"
#include "ipsec/connection_section.h"

PskIdentities readPskIdentities(const Json::Value& tunnel, const std::string& localAddress) {
  const std::string remoteAddress = tunnel["remoteWanIp"].asString();
  if (!tunnel["uid"].asBool()) return {false, localAddress, remoteAddress};
  return {true, tunnel["localId"].asString(), tunnel["remoteId"].asString()};
}

std::string pskAuthLines(const PskIdentities& identities) {
  std::string lines = "\tauthby=secret\n";
  if (!identities.configured) return lines;
  lines += "\tleftid=\"" + identities.local + "\"\n";
  lines += "\trightid=\"" + identities.remote + "\"\n";
  return lines;
}

std::string pskSecretsLine(const PskIdentities& identities, const std::string& key) {
  return "\"" + identities.local + "\" \"" + identities.remote + "\" : PSK \"" + key + "\"\n";
}

bool configurePskTunnel(const Json::Value& tunnel, const std::string& localAddress) {
  const PskIdentities identities = readPskIdentities(tunnel, localAddress);
  const std::string sections = buildConnSection(tunnel, localAddress, pskAuthLines(identities));
  if (sections.empty() || !appendFile(ipsecConfPath(), sections)) return false;
  return appendFile(ipsecSecretsPath(), pskSecretsLine(identities, tunnel["psk"].asString()));
}
