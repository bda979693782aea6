#include "gre/tunnel_creation.h"

#include "api/json_text.h"
#include "api/wan_list.h"
#include "gre/command.h"
#include "support/log_tag.h"
#include "support/logger.h"
#include "support/text.h"

namespace {

std::string readTtl(const Json::Value& ttl) {
  return ttl.isString() ? ttl.asString() : ZEL::Text::format(ttl.asInt());
}

void addRoute(const GreTunnel& tunnel, const Json::Value& route) {
  if (!route.isMember("ip") || !route.isMember("mask")) return;
  const std::string destination = route["ip"].asString() + "/" + jsonToText(route["mask"]);
  ZEL_LOG(INFO, "[%s] ADDING ROUTE: %s => %s", kLogTag, destination.c_str(), tunnel.name.c_str());
  runCommand(routeCommand(tunnel, destination));
}

}  // namespace

GreTunnel readGreTunnel(const Json::Value& record) {
  return {record["name"].asString(), record["remoteIp"].asString(), record["tunnelIp"].asString(),
          record["tunnelMask"].asString(), readTtl(record["ttl"])};
}

std::string createCommand(const GreTunnel& tunnel, const std::string& localIp) {
  return "ip tunnel add " + tunnel.name + " mode gre remote " + tunnel.remoteIp + " local " + localIp + " ttl " +
         tunnel.ttl;
}

std::string linkUpCommand(const GreTunnel& tunnel) {
  return "ip link set " + tunnel.name + " up";
}

std::string addressCommand(const GreTunnel& tunnel) {
  return "ip addr add " + tunnel.tunnelIp + "/" + tunnel.tunnelMask + " dev " + tunnel.name;
}

std::string routeCommand(const GreTunnel& tunnel, const std::string& destination) {
  return "ip route add " + destination + " dev " + tunnel.name;
}

bool createGreTunnel(const Json::Value& record) {
  const GreTunnel tunnel = readGreTunnel(record);
  ZEL_LOG(INFO, "[%s] CREATING GRE TUNNEL: %s local[%s] remote[%s] ttl[%s]", kLogTag, tunnel.name.c_str(),
          currentWanIp.c_str(), tunnel.remoteIp.c_str(), tunnel.ttl.c_str());
  runCommand(createCommand(tunnel, currentWanIp));
  runCommand(linkUpCommand(tunnel));
  if (!tunnel.tunnelIp.empty() && !tunnel.tunnelMask.empty()) runCommand(addressCommand(tunnel));
  const Json::Value& routes = record["routes"];
  for (Json::ArrayIndex i = 0; i < routes.size(); ++i) addRoute(tunnel, routes[i]);
  return true;
}
