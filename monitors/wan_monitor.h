// Watches which WAN address is current.
#pragma once

#include <memory>
#include <string>

#include "support/lock.h"
#include "support/thread.h"

/// Asks the configuration API every 30 seconds for the current WAN address and requests a refresh when it is another
/// one than before. That the API cannot be reached counts as an address of "".
///
/// A request that is under way when the monitor is stopped is abandoned, so stopping never waits for the API.
class WanMonitor : public ZEL::Thread {
 public:
  /// `lastWanIp` is the address that counts as seen, "" for none.
  WanMonitor(std::shared_ptr<ZEL::Lock> lock, std::shared_ptr<ZEL::Condition> condition, std::string lastWanIp);
  ~WanMonitor() override;

  void run() override;

  /// The address seen last. Before the start and after the stop only.
  const std::string& lastWanIp() const { return lastWanIp_; }

 private:
  std::shared_ptr<ZEL::Lock> refreshLock_;
  std::shared_ptr<ZEL::Condition> refreshCondition_;
  std::string lastWanIp_;
};
