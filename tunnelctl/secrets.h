// Keys that files hold.
#pragma once

#include <string>
#include <vector>

/// For every line of a file that the program writes, what may be shown of it: the line itself, or "***" in place of a
/// key in it. Keys are pre-shared keys, private keys, and what an OpenVPN configuration holds inline between <secret>,
/// <key>, <pkcs12>, <tls-auth>, <tls-crypt>, <tls-crypt-v2> or <auth-user-pass> and their ends. What a file is is told
/// by its path. Pure.
std::vector<std::string> withoutKeys(const std::string& path, const std::vector<std::string>& lines);
