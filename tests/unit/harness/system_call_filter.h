// System calls that fail, for the processes of tests.
#pragma once

#include <cstdint>
#include <optional>

/// Has a system call fail with this error from now on, with this first argument where one is given: seccomp(2). It
/// holds for the rest of the calling thread's life and for all that it starts, so this is for a child that was made for
/// it. False when the kernel has no filters.
[[nodiscard]] bool refuseSystemCall(long call, int error, std::optional<std::uint32_t> firstArgument = std::nullopt);
