#include "tunnelctl/check_reading.h"

#include "tunnelctl/check_members.h"

namespace {

/// The text that is read, where it differs from the value; else null.
Json::Value textFor(const Json::Value& value, Expected expected) {
  const bool isScalar = value.isNumeric() || value.isBool();
  if (expected == Expected::kText && isScalar) return value.asString();
  const bool isNumber = value.isConvertibleTo(Json::intValue) && isScalar;
  if (expected == Expected::kTextOrNumber && isNumber) return std::to_string(value.asInt());
  if (expected != Expected::kMask || value.isString()) return {};
  if (!value.isNumeric()) return "";
  return isNumber ? std::to_string(value.asInt()) : Json::Value();
}

void readMembers(Json::Value& record, Members members) {
  if (!record.isObject()) return;
  for (const Member& member : members) {
    if (!record.isMember(member.name.data())) continue;
    Json::Value& value = record[member.name.data()];
    const Json::Value text = textFor(value, member.expected);
    if (!text.isNull()) value = text;
  }
}

/// The member of an object, or null where there is none, or no object.
Json::Value& memberOf(Json::Value& object, const char* name, Json::Value& null) {
  return object.isObject() && object.isMember(name) ? object[name] : null;
}

void readEach(Json::Value& list, Members members) {
  for (Json::Value& record : list) readMembers(record, members);
}

}  // namespace

Json::Value asRead(Json::Value documents) {
  Json::Value null;
  readEach(memberOf(documents, "wans", null), membersOfWan());
  Json::Value& greTunnels = memberOf(documents, "greTunnels", null);
  readEach(greTunnels, membersOfGreTunnel());
  for (Json::Value& tunnel : greTunnels) readEach(memberOf(tunnel, "routes", null), membersOfRoute());
  readEach(memberOf(documents, "ipsecTunnels", null), membersOfIpsecTunnel());
  readEach(memberOf(documents, "ovpnTunnels", null), membersOfOvpnTunnel());
  Json::Value& interfaces = memberOf(memberOf(documents, "ni", null), "nis", null);
  readEach(interfaces, membersOfInterface());
  for (Json::Value& interface : interfaces) readMembers(memberOf(interface, "ipv4", null), membersOfIpv4());
  return documents;
}
