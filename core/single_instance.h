// One running instance, known by a semaphore's name and a PID file.
#pragma once

#include <atomic>

/// Set when the process is to end; the daemon loop looks at it. Set from a signal handler, so lock-free.
extern std::atomic<bool> stopped;

/// Returns when this is the only instance, which the named POSIX semaphore "TUNNEL_MANAGER" marks from then on.
///
/// Otherwise it asks the running instance for a refresh and ends the process: with status 0 when that worked; with
/// status 1 when it did not, after it has removed what it takes for the remains of an instance that is gone, so that
/// the next start finds the way free.
void signalRunningInstance();

/// Writes the PID file; a WARNING when it cannot be written, and the process goes on without one.
void writePidFile();

/// Removes the semaphore's name and the PID file, if this process wrote it, and sets `stopped`. Async-signal-safe, as
/// far as sem_unlink is: in the C libraries of Linux it composes a path and calls unlink(2).
void cleanUp();

/// Closes the semaphore, which a signal handler must not. For the way out of the process.
void closeInstanceSemaphore();
