// An IPsec tunnel record and the conn section that belongs to it.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "ipsec/connection_section.h"

namespace ipsec_test {

inline const std::string kSample =
    "\n"
    "conn office_192_168_2_0_24\n"
    "\tleft=10.0.0.2\n"
    "\tleftsubnet=192.168.2.0/24\n"
    "\tright=10.0.0.9\n"
    "\trightsubnet=192.168.9.0/24\n"
    "\tauto=start\n"
    "\tdpddelay=60\n"
    "\tdpdtimeout=120\n"
    "\tdpdaction=restart\n"
    "\tcompress=no\n"
    "\taggressive=no\n"
    "\tike=aes128-md5-modp1536,aes128-sha1-modp1536,aes128-md5-modp1024,aes128-sha1-modp1024\n"
    "\tesp=aes128-md5,aes128-sha1\n"
    "\tikelifetime=3h\n"
    "\tkeylife=1h\n"
    "\tkeyingtries=%forever\n"
    "\tkeyexchange=ikev1\n"
    "\tauthby=secret\n";

inline Json::Value networks(const std::vector<std::string>& texts) {
  Json::Value list(Json::arrayValue);
  for (const std::string& text : texts) list.append(text);
  return list;
}

inline Json::Value sampleTunnel() {
  Json::Value tunnel;
  tunnel["name"] = "office";
  tunnel["localIpWithCidr"] = networks({"192.168.2.0/24"});
  tunnel["remoteWanIp"] = "10.0.0.9";
  tunnel["remoteNetworkIp"] = "192.168.9.0";
  tunnel["remoteNetworkMask"] = "24";
  tunnel["compression"] = false;
  tunnel["aggressiveMode"] = false;
  tunnel["type"] = "IKE";
  tunnel["encryptMethod"] = "aes128";
  tunnel["ikelife"] = 3;
  tunnel["keylife"] = 1;
  tunnel["retries"] = 0;
  return tunnel;
}

inline Json::Value sampleWith(const std::string& key, const Json::Value& value) {
  Json::Value tunnel = sampleTunnel();
  tunnel[key] = value;
  return tunnel;
}

inline Json::Value sampleWithout(const std::string& key) {
  Json::Value tunnel = sampleTunnel();
  tunnel.removeMember(key);
  return tunnel;
}

inline std::string sectionOf(const Json::Value& tunnel) {
  return buildConnSection(tunnel, "10.0.0.2", "\tauthby=secret\n");
}

}  // namespace ipsec_test
