// Texts that are addresses, masks and host names, and texts that a shell takes apart.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

constexpr int kAddressBits = 32;

/// The bits of four decimal numbers with dots between them, the first of them highest; nothing for any other text.
std::optional<std::uint32_t> parseAddress(std::string_view text);

/// A prefix length, given as such or as a dotted mask; nothing for any other text.
std::optional<int> parseMask(std::string_view text);

/// A decimal number from 0 to the given one, without superfluous zeros.
std::optional<int> parseNumber(std::string_view text, int most);

/// The bits of a mask of that length.
std::uint32_t maskBits(int prefix);

bool isIpv6Address(std::string_view text);

/// Whether the resolver can have an IPv4 address for the text: it is one, or a name of labels (RFC 1123, section 2.1)
/// whose last is no number. Of four numbers or less, gethostbyname(3) makes addresses that nobody means.
bool isHost(std::string_view text);

/// Whether the text has a character that the shell does not leave as it is in an unquoted word, blanks aside. Source:
/// "2.2 Quoting", "2.3 Token Recognition" and "2.6.1 Tilde Expansion" in POSIX's Shell Command Language.
bool hasShellCharacter(std::string_view text);

/// As strcasecmp(3) does.
bool isAlikeInSmallLetters(std::string_view a, std::string_view b);
