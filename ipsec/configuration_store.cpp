#include "ipsec/configuration_store.h"

#include "effects/effects.h"
#include "support/log_tag.h"
#include "support/logger.h"
#include "support/system.h"

namespace {

constexpr const char* kBaseDir = "/var/run/ipsec";
constexpr const char* kConfName = "ipsec.conf";
constexpr const char* kSecretsName = "ipsec.secrets";
constexpr const char* kCaCertsName = "cacerts";
constexpr const char* kCertsName = "certs";
constexpr const char* kPrivateKeysName = "private";

std::string pathOf(const char* name) {
  return std::string(kBaseDir) + "/" + name;
}

/// False, with a line, when the file could not be opened; one that did not take all of its text counts as written.
bool wasOpened(FileOutcome outcome, const std::string& path) {
  if (outcome != FileOutcome::kNotOpened) return true;
  ZEL_LOG(WARNING, "[%s] [%s] could not be opened.", kLogTag, path.c_str());
  return false;
}

}  // namespace

const std::string& ipsecConfPath() {
  static const std::string path = pathOf(kConfName);
  return path;
}

const std::string& ipsecSecretsPath() {
  static const std::string path = pathOf(kSecretsName);
  return path;
}

const std::string& caCertsDir() {
  static const std::string path = pathOf(kCaCertsName);
  return path;
}

const std::string& certsDir() {
  static const std::string path = pathOf(kCertsName);
  return path;
}

const std::string& privateKeysDir() {
  static const std::string path = pathOf(kPrivateKeysName);
  return path;
}

bool writeFile(const std::string& path, const std::string& text) {
  return wasOpened(effects().writeFile(path, text), path);
}

bool appendFile(const std::string& path, const std::string& text) {
  return wasOpened(effects().appendFile(path, text), path);
}

std::string ipsecConfHeader() {
  return "version 2.0\n"
         "\n"
         "config setup\n"
         "\tuniqueids=yes\n";
}

std::string resetCommand() {
  return "rm -rf " + caCertsDir() + "/* " + certsDir() + "/* " + privateKeysDir() + "/*";
}

bool resetIpsecConfiguration() {
  ZEL::System::run(resetCommand());
  return writeFile(ipsecConfPath(), ipsecConfHeader()) && writeFile(ipsecSecretsPath(), "");
}
