// Members of JSON values that somebody else wrote, whatever their types. Pure functions; any thread.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <optional>
#include <string>

/// The member of that name, or null where the value has none or is no object.
const Json::Value& memberOf(const Json::Value& value, const char* name);

/// The member if it is a text, else "".
std::string textMember(const Json::Value& value, const char* name);

/// The member if it is a number that counts something.
std::optional<std::uint64_t> countMember(const Json::Value& value, const char* name);

/// The array that a text is, or null.
Json::Value parseArray(const std::string& text);
