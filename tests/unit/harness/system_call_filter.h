// System calls that fail, for the processes of tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>

/// Ends the test as skipped, with the reason, where no system call can be made to fail.
#define SKIP_WITHOUT_SYSTEM_CALL_FILTERS()                                                            \
  do {                                                                                                \
    if (const std::string reason = whyNoSystemCallFilters(); !reason.empty()) GTEST_SKIP() << reason; \
  } while (false)

/// Why no system call can be made to fail, or "" when one can.
std::string whyNoSystemCallFilters();

/// Has a system call fail with this error from now on, with this first argument where one is given: seccomp(2). It
/// holds for the rest of the calling thread's life and for all that it starts, so this is for a child that was made for
/// it. False when the kernel has no filters.
[[nodiscard]] bool refuseSystemCall(long call, int error, std::optional<std::uint32_t> firstArgument = std::nullopt);
