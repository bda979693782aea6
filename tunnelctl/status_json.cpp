#include "tunnelctl/status_output.h"

namespace {

Json::Value numberOrNull(bool isKnown, std::int64_t number) {
  return isKnown ? Json::Value(static_cast<Json::Int64>(number)) : Json::Value();
}

Json::Value textOrNull(const std::string& text) {
  return text.empty() ? Json::Value() : Json::Value(text);
}

Json::Value arrayOf(const std::vector<std::string>& texts) {
  Json::Value array(Json::arrayValue);
  for (const std::string& text : texts) array.append(text);
  return array;
}

Json::Value daemonJson(const DaemonStatus& daemon) {
  const bool isThere = daemon.pid != 0;
  Json::Value object;
  object["running"] = daemon.isRunning;
  object["singleRun"] = daemon.isSingleRun;
  object["pid"] = numberOrNull(isThere, daemon.pid);
  object["startedAt"] = numberOrNull(isThere, daemon.startedAt);
  object["printLevel"] = numberOrNull(isThere, daemon.printLevel);
  object["remarks"] = arrayOf(daemon.remarks);
  return object;
}

Json::Value apiJson(const std::string& complaint) {
  Json::Value object;
  object["answers"] = complaint.empty();
  object["complaint"] = textOrNull(complaint);
  return object;
}

Json::Value wanJson(const Status& status) {
  Json::Value object;
  object["current"] = status.wan ? Json::Value(*status.wan) : Json::Value();
  object["inUse"] = arrayOf(status.wansInUse);
  return object;
}

Json::Value serviceJson(const IpsecService& service) {
  Json::Value object;
  object["running"] = service.complaint.empty() ? Json::Value(service.isRunning) : Json::Value();
  object["complaint"] = textOrNull(service.complaint);
  object["connectionsWritten"] = static_cast<Json::UInt64>(service.written);
  object["connectionsLoaded"] =
      service.isRunning ? Json::Value(static_cast<Json::UInt64>(service.loaded)) : Json::Value();
  return object;
}

Json::Value tunnelJson(const TunnelRow& row) {
  Json::Value object;
  object["kind"] = row.kind;
  object["name"] = row.name;
  object["state"] = textOf(row.verdict.state);
  object["reason"] = textOrNull(row.verdict.reason);
  object["local"] = textOrNull(row.local);
  object["remote"] = textOrNull(row.remote);
  object["receivedBytes"] = row.traffic ? Json::Value(static_cast<Json::UInt64>(row.traffic->received)) : Json::Value();
  object["sentBytes"] = row.traffic ? Json::Value(static_cast<Json::UInt64>(row.traffic->sent)) : Json::Value();
  object["lastContact"] = numberOrNull(row.lastContact.has_value(), row.lastContact.value_or(0));
  return object;
}

}  // namespace

Json::Value statusJson(const Status& status) {
  Json::Value object;
  object["time"] = static_cast<Json::Int64>(status.time);
  object["daemon"] = daemonJson(status.daemon);
  object["api"] = apiJson(status.apiComplaint);
  object["wan"] = wanJson(status);
  object["ipsecService"] = serviceJson(status.ipsec);
  object["kernelComplaint"] = textOrNull(status.kernelComplaint);
  object["tunnels"] = Json::Value(Json::arrayValue);
  for (const TunnelRow& row : status.tunnels) object["tunnels"].append(tunnelJson(row));
  object["exitStatus"] = exitStatusOf(status);
  return object;
}
