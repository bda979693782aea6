// Waiting for what other threads do.
#pragma once

#include <chrono>
#include <functional>
#include <thread>

/// How long a test waits for what must happen before it calls it a failure: longer than any machine is busy.
constexpr std::chrono::seconds kDeadline{40};

/// Milliseconds of a wait that must be ended by something else: who waits for all of them is late, and yet comes back.
constexpr unsigned int kTooLong{2 * std::chrono::milliseconds(kDeadline).count()};

/// True as soon as the condition holds, false when it does not within the deadline.
inline bool eventually(const std::function<bool()>& holds) {
  const auto deadline = std::chrono::steady_clock::now() + kDeadline;
  while (!holds()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

/// Measures how long something takes, on the clock that nobody sets.
inline std::chrono::milliseconds timeOf(const std::function<void()>& body) {
  const auto begin = std::chrono::steady_clock::now();
  body();
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
}
