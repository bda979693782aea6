#include "tunnelctl/json_member.h"

#include <json/reader.h>

const Json::Value& memberOf(const Json::Value& value, const char* name) {
  static const Json::Value none;
  return value.isObject() ? value[name] : none;
}

std::string textMember(const Json::Value& value, const char* name) {
  const Json::Value& member = memberOf(value, name);
  return member.isString() ? member.asString() : "";
}

std::optional<std::uint64_t> countMember(const Json::Value& value, const char* name) {
  const Json::Value& member = memberOf(value, name);
  if (!member.isUInt64()) return std::nullopt;
  return member.asUInt64();
}

Json::Value parseArray(const std::string& text) {
  Json::Value root;
  Json::Reader reader(Json::Features::strictMode());
  try {
    if (reader.parse(text, root, false) && root.isArray()) return root;
  } catch (const Json::Exception&) {  // nested deeper than the parser follows
  }
  return {};
}
