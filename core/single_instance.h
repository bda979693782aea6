// One running instance, known by a semaphore's name and a PID file. Main thread only.
#pragma once

#include <semaphore.h>

#include <atomic>
#include <string>

/// The named POSIX semaphore that the running instance has made, and its handle, null in a process that is none.
extern const std::string instanceName;
extern sem_t* instanceSemaphore;

/// The file with the running instance's process id, and whether `cleanUp` is to remove it.
extern const std::string pidFilePath;
extern std::atomic<int> pidWritten;

/// Set when the process is to end; the daemon loop looks at it. An int like all flags that signal handlers set: a bool
/// has a byte, and not every processor exchanges single bytes without a lock.
extern std::atomic<int> stopped;
static_assert(std::atomic<int>::is_always_lock_free, "signal handlers set flags of this type");

/// Returns when this is the only instance, whose semaphore exists from then on.
///
/// Otherwise it asks the running instance for a refresh and ends the process: with status 0 when that worked; with
/// status 1 when it did not, after it has removed what it takes for the remains of an instance that is gone, so that
/// the next start finds the way free.
void signalRunningInstance();

/// Writes the PID file; a WARNING when it cannot be written, and the process goes on without one.
void writePidFile();

/// Removes the semaphore's name and the PID file, if this process wrote it, and sets `stopped`. Async-signal-safe, as
/// far as `Effects::removeSemaphore` is.
void cleanUp();

/// Closes the semaphore, which a signal handler must not. For the way out of the process.
void closeInstanceSemaphore();
