// The one place where a thread of the process is made.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <functional>

namespace ZEL {

/// What a thread needs that logs, waits or asks the resolver. A thousand of them must fit the address space of a 32-bit
/// router, where the default of 8 MiB each does not.
constexpr std::size_t kThreadStackBytes = 128 * std::size_t{1024};

/// What a thread needs that parses a document as deeply nested as the parser takes (1000 levels).
constexpr std::size_t kParserStackBytes = 2048 * std::size_t{1024};

/// Starts a thread that runs `body` with all signals blocked, so that signals reach the main thread only. When `body`
/// has returned, the memory of the thread's stack goes back to the system. A null `handle` makes it a detached one.
/// False when the system has no thread to give; `body` is then not run. `body` must not throw.
bool spawnThread(std::size_t stackBytes, std::function<void()> body, pthread_t* handle);

}  // namespace ZEL
