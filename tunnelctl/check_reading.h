// The documents as the program reads them.
#pragma once

#include <json/value.h>

/// A copy in which a number or a flag is a text wherever the program reads it as one. What throws when it is read, or
/// is read as something else, stays as it is.
Json::Value asRead(Json::Value documents);
