#include "api/json_text.h"

#include "support/log_tag.h"
#include "support/logger.h"
#include "support/text.h"

std::string jsonToText(Json::Value const& value) {
  if (value.isString()) return value.asString();
  if (value.isNumeric()) return ZEL::Text::format(value.asInt());
  ZEL_LOG(WARNING, "[%s] Unable to parse number *%s*", kLogTag, value.toStyledString().c_str());
  return "";
}
