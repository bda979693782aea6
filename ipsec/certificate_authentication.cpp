#include "ipsec/certificate_authentication.h"

#include "ipsec/configuration_store.h"
#include "ipsec/connection_section.h"

namespace {

std::string pemPath(const std::string& directory, const Json::Value& tunnel) {
  return directory + "/" + tunnel["name"].asString() + ".pem";
}

bool writePem(const std::string& directory, const Json::Value& tunnel, const char* key) {
  return writeFile(pemPath(directory, tunnel), tunnel[key].asString());
}

bool appendConnSections(const Json::Value& tunnel, const std::string& localAddress) {
  const std::string sections = buildConnSection(tunnel, localAddress, rsaAuthLines(tunnel));
  return !sections.empty() && appendFile(ipsecConfPath(), sections);
}

}  // namespace

std::string rsaSecretsLine(const Json::Value& tunnel) {
  return ": RSA " + pemPath(privateKeysDir(), tunnel) + "\n";
}

std::string rsaAuthLines(const Json::Value& tunnel) {
  const std::string localId = tunnel["localId"].asString();
  const std::string remoteId = tunnel["remoteId"].asString();
  std::string lines = "\tauthby=rsasig\n";
  lines += "\tleftcert=" + pemPath(certsDir(), tunnel) + "\n";
  if (!localId.empty() && tunnel["uid"].asBool()) lines += "\tleftid=\"" + localId + "\"\n";
  const bool knowsPeer = !remoteId.empty() && tunnel["uid"].asBool();
  lines += "\trightid=" + (knowsPeer ? "\"" + remoteId + "\"" : "%any") + "\n";
  return lines;
}

bool configureRsaTunnel(const Json::Value& tunnel, const std::string& localAddress) {
  return writePem(caCertsDir(), tunnel, "caCert") && writePem(certsDir(), tunnel, "localCert") &&
         writePem(privateKeysDir(), tunnel, "localPrivKey") && appendFile(ipsecSecretsPath(), rsaSecretsLine(tunnel)) &&
         appendConnSections(tunnel, localAddress);
}
