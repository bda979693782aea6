#include "tunnelctl/json_output.h"

#include <json/writer.h>

#include <iostream>
#include <memory>

namespace {

constexpr int kFormVersion = 1;

}  // namespace

void printJson(const char* command, Json::Value object) {
  object["version"] = kFormVersion;
  object["command"] = command;
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "  ";
  builder["emitUTF8"] = true;
  const std::unique_ptr<Json::StreamWriter> writer(builder.newStreamWriter());
  writer->write(object, &std::cout);
  std::cout << "\n";
}
