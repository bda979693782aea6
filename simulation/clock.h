// Virtual time.
#pragma once

#include <cstdint>

namespace simulation {

/// Nanoseconds since the history began.
using Time = std::int64_t;

constexpr Time kMillisecond = 1000000;
constexpr Time kSecond = 1000 * kMillisecond;
constexpr Time kMinute = 60 * kSecond;
constexpr Time kForever = INT64_MAX;

}  // namespace simulation
