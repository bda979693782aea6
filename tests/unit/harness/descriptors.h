// The descriptors of this process.
#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

/// How many are open, that of the look itself included.
inline std::size_t openDescriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}
