// OpenVPN's configuration text, as far as the tunnel manager reads and rewrites it.
//
// The text consists of lines that end in "\n"; the first word of a line is the option, the words behind it are its
// arguments. White space (blank, \t, \n, \v, \f, \r) separates words and nothing else does: comments, quotes and inline
// blocks mean nothing here, and a NUL is a byte of a word. An option is looked for by a word, never by "".
//
// Pure functions; any thread. Their time grows with the text's length and not faster.
#pragma once

#include <string>

/// Looks for the first line of an option. `value` becomes its arguments, joined by single blanks ("" when it has none),
/// and stays empty when the result is false: no line has the option.
bool getConfigOption(const std::string& text, const std::string& option, std::string& value);

/// Rewrites every line of an option as "option value" behind the blanks and tabs that it began with, or appends one at
/// the end when there is none. All other lines keep their bytes; a last line without a line feed gets one.
void setConfigOption(std::string& text, const std::string& option, const std::string& value);

/// The "verb" of openvpn(8) that goes with a log level of the router: "2" for the lowest levels, "7" from 50 on.
std::string logLevelToVerb(unsigned int logLevel);

/// The far end of the tunnel in the arguments of "ifconfig": the second word whatever it is, the only word where there
/// is just one, or "".
std::string pingAddressOf(const std::string& ifconfigArguments);

/// A device that no other tunnel has: the value of "dev" and the tunnel's name, cut to the length that the kernel
/// allows.
std::string interfaceName(const std::string& device, const std::string& tunnelName);
