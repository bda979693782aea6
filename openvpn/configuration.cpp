#include "openvpn/configuration.h"

#include <json/value.h>

#include <algorithm>
#include <utility>

#include "api/query.h"
#include "effects/effects.h"
#include "openvpn/option_text.h"
#include "support/log_tag.h"
#include "support/logger.h"

const char* const ovpnTunnelsUrl = API_HOST "/api?fields=ovpnTunnels";
const char* const syslogUrl = API_HOST "/api?fields=syslog";

namespace {

std::list<OvpnConf> configuredTunnels;

bool isConfigured(const std::string& name) {
  return std::any_of(configuredTunnels.begin(), configuredTunnels.end(),
                     [&name](const OvpnConf& conf) { return conf.name == name; });
}

OvpnConf entryOf(const std::string& name) {
  OvpnConf conf;
  conf.name = name;
  conf.confFile = "/var/run/openvpn_" + name + ".conf";
  conf.statusFile = "/var/run/openvpn_" + name + ".status";
  conf.connectFile = "/var/run/connect_" + name + ".status";
  return conf;
}

/// A tunnel without certificates joins two points with a shared key, and the far one of them is there to be pinged.
void readPingOptions(const std::string& text, OvpnConf& conf) {
  std::string arguments;
  conf.pingCheck = !getConfigOption(text, "<ca>", arguments);
  if (conf.pingCheck && getConfigOption(text, "ifconfig", arguments)) conf.pingAddress = pingAddressOf(arguments);
}

/// Writes the tunnel's file and, when it is complete, appends the tunnel to the list.
void addTunnel(OvpnFile file) {
  const OvpnConf& conf = file.conf;
  switch (effects().writeFile(conf.confFile, file.text)) {
    case FileOutcome::kNotOpened:
      ZEL_LOG(ERROR, "[%s][OVPN] faild create file for tunnel %s conf: %s", kLogTag, conf.name.c_str(),
              conf.confFile.c_str());
      break;
    case FileOutcome::kShort:
      ZEL_LOG(ERROR, "[%s][OVPN] faild write file for tunnel %s conf: %s", kLogTag, conf.name.c_str(),
              conf.confFile.c_str());
      break;
    case FileOutcome::kWritten:
      configuredTunnels.push_back(std::move(file.conf));
      break;
  }
}

void readTunnel(const Json::Value& tunnel, const Json::Value& syslog) {
  if (!tunnel["enabled"].asBool()) return;
  const std::string name = tunnel["name"].asString();
  if (isConfigured(name)) {
    ZEL_LOG(ERROR, "[%s][OVPN] duplicated openvpn name: %s", kLogTag, name.c_str());
    return;
  }
  // The log level is read for each tunnel: one of a wrong type matters only where there is a tunnel to write it for.
  const std::string verb = logLevelToVerb(syslog["syslog"]["logLevel"].asUInt());
  addTunnel(composeOvpnFile(name, tunnel["config"].asString(), verb));
}

bool readTunnels() {
  configuredTunnels.clear();
  Json::Value result;
  Json::Value syslog;
  if (!queryApiQuiet(ovpnTunnelsUrl, result) || !queryApiQuiet(syslogUrl, syslog)) return false;
  const Json::Value& tunnels = result["ovpnTunnels"];
  for (const Json::Value& tunnel : tunnels) readTunnel(tunnel, syslog);
  return true;
}

}  // namespace

OvpnFile composeOvpnFile(const std::string& name, std::string configuration, const std::string& verb) {
  OvpnFile file{entryOf(name), std::move(configuration)};
  getConfigOption(file.text, "client-config-dir", file.conf.clientConfigDir);
  readPingOptions(file.text, file.conf);
  std::string device;
  if (getConfigOption(file.text, "dev", device)) setConfigOption(file.text, "dev", interfaceName(device, name));
  setConfigOption(file.text, "verb", verb);
  return file;
}

bool Conf::init() {
  try {
    return readTunnels();
  } catch (...) {
    ZEL_LOG(ERROR, "[%s][OVPN] Conf::init catch exception", kLogTag);
    return false;
  }
}

std::list<OvpnConf>& Conf::tunnels() {
  return configuredTunnels;
}
