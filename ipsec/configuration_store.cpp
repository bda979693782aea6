#include "ipsec/configuration_store.h"

#include <fstream>

#include "api/log_tag.h"
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

bool putText(const std::string& path, const std::string& text, std::ios::openmode mode) {
  std::ofstream file(path, mode);
  if (!file.is_open()) {
    ZEL_LOG(WARNING, "[%s] [%s] could not be opened.", kLogTag, path.c_str());
    return false;
  }
  file << text;
  return true;
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
  return putText(path, text, std::ios::out | std::ios::trunc);
}

bool appendFile(const std::string& path, const std::string& text) {
  return putText(path, text, std::ios::out | std::ios::app);
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
