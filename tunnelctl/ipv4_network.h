// IPv4 addresses and networks as numbers, so that texts which mean the same compare equal. Pure functions; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// An address, in the order of bytes in which it is counted, and how many of its bits are the network's. The other bits
/// are as they were given: it may be an interface's address as well as a network's.
struct Ipv4Network {
  std::uint32_t address = 0;
  int prefix = 0;
};

bool operator==(const Ipv4Network& a, const Ipv4Network& b);

/// Nothing for a text that is no dotted address.
std::optional<std::uint32_t> parseAddress(const std::string& text);

/// Reads "192.0.2.0/24", an address alone, which is a network of its own, and "default". Nothing for any other text.
std::optional<Ipv4Network> parseNetwork(const std::string& text);

/// The same of an address and a mask, which is dotted or a prefix length.
std::optional<Ipv4Network> parseNetwork(const std::string& address, const std::string& mask);

std::string textOf(const Ipv4Network& network);

bool contains(const Ipv4Network& network, std::uint32_t address);
