// JSON values as a test writes them down.
#pragma once

#include <json/value.h>

#include <string>

/// The value of a text, which may also be a bare value such as `5`. Throws std::invalid_argument when the text is none,
/// since that is a mistake in the test.
Json::Value jsonOf(const std::string& text);

/// The value on one line, members in byte order, to compare and to show.
std::string textOf(const Json::Value& value);
