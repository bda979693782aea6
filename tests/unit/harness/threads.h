// What tests ask of threads that sleep until they are stopped.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <limits>
#include <numeric>
#include <string>
#include <vector>

#include "tests/unit/harness/waiting.h"

/// A stack that no thread can have. On 64 bits a quarter of all addresses is more than a processor has, and as much as
/// every C library takes for a size; on 32 bits there may well be that much room, and all but nothing is asked for.
constexpr std::size_t kImpossibleStack = std::numeric_limits<std::size_t>::max() / 16 * (sizeof(void*) > 4 ? 4 : 15);

/// Whether a thread of this process that has that name, of which the kernel keeps 15 bytes, sleeps in a system call.
bool threadSleeps(const std::string& name);

/// Stops the threads one after the other. It is a failure when that takes long, or when not even every fourth stop is
/// prompt: one that waited a moment of its own would cost that moment each time, while a busy machine delays only some.
template <class Threads>
void stopOneAfterTheOther(const Threads& threads) {
  std::vector<std::chrono::milliseconds> spent;
  for (const auto& thread : threads) spent.push_back(timeOf([&thread] { thread->stop(); }));
  std::sort(spent.begin(), spent.end());
  const auto sum = std::accumulate(spent.begin(), spent.end(), std::chrono::milliseconds(0));
  testing::Test::RecordProperty("milliseconds", static_cast<int>(sum.count()));
  EXPECT_LT(sum, kDeadline);
  EXPECT_LT(spent[spent.size() / 4], std::chrono::milliseconds(50));
}
