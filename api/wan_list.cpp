#include "api/wan_list.h"

#include "api/query.h"
#include "support/log_tag.h"
#include "support/logger.h"

const std::string wanInfoUrl = API_HOST "/api/waninfo/wans";
std::string currentWanIp;

namespace {

bool isCurrent(const Json::Value& wan) {
  if (!wan.isObject()) return false;
  const Json::Value& current = wan["current"];
  return current.isConvertibleTo(Json::booleanValue) && current.asBool();
}

}  // namespace

std::string currentAddress(const Json::Value& wans) {
  if (!wans.isArray()) return "";
  for (const Json::Value& wan : wans) {
    if (!isCurrent(wan)) continue;
    const Json::Value& address = wan["ip"];
    return address.isConvertibleTo(Json::stringValue) ? address.asString() : "";
  }
  return "";
}

std::string queryCurrentWanAddress() {
  Json::Value wans;
  if (!queryApi(wanInfoUrl, wans)) {
    ZEL_LOG(ERROR, "[%s][WAN_MONITOR] Could not obtain WAN information", kLogTag);
    return "";
  }
  return currentAddress(wans);
}
