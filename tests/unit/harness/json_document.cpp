#include "tests/unit/harness/json_document.h"

#include <json/reader.h>
#include <json/writer.h>

#include <sstream>
#include <stdexcept>

Json::Value jsonOf(const std::string& text) {
  Json::Value value;
  std::string errors;
  std::istringstream stream(text);
  Json::CharReaderBuilder builder;
  builder["failIfExtra"] = true;
  if (!Json::parseFromStream(builder, stream, &value, &errors)) throw std::invalid_argument(errors);
  return value;
}

std::string textOf(const Json::Value& value) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return Json::writeString(builder, value);
}
