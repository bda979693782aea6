// Names of network devices.
#pragma once

#include <string>
#include <string_view>

/// Why the kernel makes no device of that name, or another one: the rest of a sentence that begins with the name; null
/// for a name that it takes.
const char* objectionToDeviceName(std::string_view name);

/// Whether ip(8) takes the name for a word of its own.
bool isIpKeyword(std::string_view name);

/// Whether a device of that name exists which is no GRE tunnel. Asks the kernel.
bool isForeignDevice(const std::string& name);
