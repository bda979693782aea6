#include "simulation/timeline.h"

#include <array>
#include <cstdio>

namespace simulation {
namespace {

/// FNV-1a.
std::uint64_t mixed(std::uint64_t digest, const void* bytes, std::size_t size) {
  const auto* byte = static_cast<const unsigned char*>(bytes);
  for (; size > 0; --size) digest = (digest ^ *byte++) * 0x100000001b3U;
  return digest;
}

}  // namespace

void Timeline::note(Time time, const std::string& who, const std::string& what) {
  digest_ = mixed(digest_, &time, sizeof time);
  digest_ = mixed(digest_, who.data(), who.size());
  digest_ = mixed(digest_, what.data(), what.size());
  if (!prints_) return;
  std::array<char, 32> stamp{};
  snprintf(stamp.data(), stamp.size(), "%12.6f  ", static_cast<double>(time) / static_cast<double>(kSecond));
  std::string line = stamp.data() + who;
  line.append(who.size() < 28 ? 28 - who.size() : 1, ' ').append(what);
  for (std::size_t end = 0; (end = line.find('\n', end)) != std::string::npos;) line.replace(end, 1, "\\n");
  puts(line.c_str());
  fflush(stdout);
}

}  // namespace simulation
