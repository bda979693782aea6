#include "tunnelctl/check_addresses.h"

#include <arpa/inet.h>
#include <strings.h>

#include <algorithm>
#include <array>
#include <charconv>

namespace {

constexpr std::size_t kLongestLabel = 63;
constexpr std::size_t kLongestHost = 253;
constexpr std::string_view kLabelCharacters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_";
constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kShellCharacters = "|&;<>()$`\\\"'*?[\n";

/// inet_pton(3) for a text that does not end in a NUL, and has none.
bool parse(int family, std::string_view text, void* address) {
  std::array<char, INET6_ADDRSTRLEN + 1> copy{};
  if (text.size() >= copy.size() || text.find('\0') != std::string_view::npos) return false;
  std::copy(text.begin(), text.end(), copy.begin());
  return inet_pton(family, copy.data(), address) == 1;
}

bool isLabel(std::string_view text) {
  return !text.empty() && text.size() <= kLongestLabel &&
         text.find_first_not_of(kLabelCharacters) == std::string_view::npos;
}

/// Without the dot that stands for the root.
std::string_view withoutRoot(std::string_view host) {
  return host.size() > 1 && host.back() == '.' ? host.substr(0, host.size() - 1) : host;
}

}  // namespace

std::optional<std::uint32_t> parseAddress(std::string_view text) {
  in_addr address{};
  if (!parse(AF_INET, text, &address)) return std::nullopt;
  return ntohl(address.s_addr);
}

std::optional<int> parseNumber(std::string_view text, int most) {
  int number = 0;
  const auto [end, error] = std::from_chars(text.begin(), text.end(), number);
  const bool isPlain = error == std::errc() && end == text.end() && number >= 0 && (text[0] != '0' || text.size() == 1);
  return isPlain && text[0] != '-' && number <= most ? std::optional<int>(number) : std::nullopt;
}

std::optional<int> parseMask(std::string_view text) {
  const std::optional<std::uint32_t> bits = parseAddress(text);
  if (!bits) return parseNumber(text, kAddressBits);
  for (int prefix = 0; prefix <= kAddressBits; ++prefix) {
    if (*bits == maskBits(prefix)) return prefix;
  }
  return std::nullopt;
}

std::uint32_t maskBits(int prefix) {
  return prefix == 0 ? 0 : ~std::uint32_t{0} << static_cast<unsigned int>(kAddressBits - prefix);
}

bool isIpv6Address(std::string_view text) {
  in6_addr address{};
  return parse(AF_INET6, text, &address);
}

bool isHost(std::string_view text) {
  if (parseAddress(text)) return true;
  if (text.size() > kLongestHost) return false;
  std::string_view rest = withoutRoot(text);
  for (std::size_t dot = rest.find('.'); dot != std::string_view::npos; dot = rest.find('.')) {
    if (!isLabel(rest.substr(0, dot))) return false;
    rest.remove_prefix(dot + 1);
  }
  return isLabel(rest) && rest.find_first_not_of(kDigits) != std::string_view::npos;
}

bool hasShellCharacter(std::string_view text) {
  if (text.find_first_of(kShellCharacters) != std::string_view::npos) return true;
  return !text.empty() && (text[0] == '~' || text[0] == '#');
}

bool isAlikeInSmallLetters(std::string_view a, std::string_view b) {
  return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}
