// The request for another tunnel management run: the monitors and the SIGHUP handler make it, the daemon loop obeys it.
//
// A monitor takes the lock, sets the flag and signals the condition. The signal handler sets the flag and signals
// without the lock, which both may: the flag is a lock-free atomic, the condition is made for it. The loop holds the
// lock whenever it does not wait, so a monitor's request waits until a run or a supervision pass is over.
#pragma once

#include <atomic>
#include <memory>

#include "support/lock.h"
#include "support/thread.h"

/// Shared handles: every monitor keeps a copy of both, so they live as long as the longest holder.
extern std::shared_ptr<ZEL::Lock> refreshLock;
extern std::shared_ptr<ZEL::Condition> refreshCondition;

/// 1 while a refresh is requested that has not begun, else 0.
extern std::atomic<int> refreshPending;
static_assert(std::atomic<int>::is_always_lock_free, "signal handlers set flags of this type");

/// Requests a refresh from a monitor's thread, with the handles that the monitor holds. A monitor that is cancelled
/// while it waits for the lock makes no request: it is stopped because a refresh is under way, which sees what the
/// monitor saw.
void requestRefresh(ZEL::Thread& monitor, ZEL::Lock& lock, ZEL::Condition& condition);

/// Whether a refresh is requested, or a monitor waits for the lock to request one. For whoever holds the lock for long.
bool isRefreshWanted();
