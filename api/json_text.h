// Values that the configuration API sends as a text or as a number, at its own choice.
#pragma once

#include <json/value.h>

#include <string>

/// A text as it is, a number as the decimal text of `asInt` (which throws Json::LogicError beyond the range of an int),
/// and of anything else "" after a WARNING that shows the value. Any thread.
std::string jsonToText(Json::Value const& value);
