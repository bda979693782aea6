#include "tunnelctl/ipv4_network.h"

#include <arpa/inet.h>

#include <array>
#include <bitset>

#include "support/text.h"

namespace {

constexpr int kAddressBits = 32;

std::optional<int> parsePrefix(const std::string& text) {
  int prefix = 0;
  if (!ZEL::Text::parse(prefix, text) || prefix < 0 || prefix > kAddressBits) return std::nullopt;
  return prefix;
}

/// A dotted mask counts as the number of its one bits, as the program counts it.
std::optional<int> prefixOf(const std::string& mask) {
  const std::optional<std::uint32_t> dotted = parseAddress(mask);
  if (!dotted) return parsePrefix(mask);
  return static_cast<int>(std::bitset<kAddressBits>(*dotted).count());
}

}  // namespace

bool operator==(const Ipv4Network& a, const Ipv4Network& b) {
  return a.address == b.address && a.prefix == b.prefix;
}

std::optional<std::uint32_t> parseAddress(const std::string& text) {
  in_addr address{};
  if (inet_pton(AF_INET, text.c_str(), &address) != 1) return std::nullopt;
  return ntohl(address.s_addr);
}

std::optional<Ipv4Network> parseNetwork(const std::string& text) {
  if (text == "default") return Ipv4Network{0, 0};
  const std::size_t slash = text.find('/');
  if (slash == std::string::npos) return parseNetwork(text, std::to_string(kAddressBits));
  return parseNetwork(text.substr(0, slash), text.substr(slash + 1));
}

std::optional<Ipv4Network> parseNetwork(const std::string& address, const std::string& mask) {
  const std::optional<std::uint32_t> number = parseAddress(address);
  const std::optional<int> prefix = prefixOf(mask);
  if (!number || !prefix) return std::nullopt;
  return Ipv4Network{*number, *prefix};
}

std::string textOf(const Ipv4Network& network) {
  in_addr address{};
  address.s_addr = htonl(network.address);
  std::array<char, INET_ADDRSTRLEN> text{};
  inet_ntop(AF_INET, &address, text.data(), text.size());
  return text.data() + ("/" + std::to_string(network.prefix));
}

bool contains(const Ipv4Network& network, std::uint32_t address) {
  if (network.prefix == 0) return true;
  const std::uint32_t mask = ~std::uint32_t{0} << static_cast<unsigned>(kAddressBits - network.prefix);
  return (network.address & mask) == (address & mask);
}
