#include "tunnelctl/json_output.h"

#include <json/writer.h>

#include <cstdio>

namespace {

constexpr int kFormVersion = 1;

}  // namespace

void printJson(const char* command, Json::Value object) {
  object["version"] = kFormVersion;
  object["command"] = command;
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "  ";
  builder["emitUTF8"] = true;
  puts(Json::writeString(builder, object).c_str());
}
