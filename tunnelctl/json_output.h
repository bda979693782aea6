// What the companion prints with --json.
#pragma once

#include <json/value.h>

/// Prints the object, with the members "version" (of this output's form, 1) and "command" added: indented, its members
/// in byte order, UTF-8 as it is.
void printJson(const char* command, Json::Value object);
