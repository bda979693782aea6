// Watches which WAN address is current.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "support/lock.h"
#include "support/thread.h"

/// Asks the configuration API every 30 seconds for the current WAN address and requests a refresh when it is another
/// one than before. That the API cannot be reached counts as an address of "".
///
/// A run asks the API itself, and what it finds may have come and gone between two looks that find the same. So an
/// address that the tunnels are not built on is a reason, too.
///
/// A request that is under way when the monitor is stopped is abandoned, so stopping never waits for the API.
class WanMonitor : public ZEL::Thread {
 public:
  /// `lastWanIp` is the address that counts as seen, "" for none.
  WanMonitor(std::shared_ptr<ZEL::Lock> lock, std::shared_ptr<ZEL::Condition> condition, std::string lastWanIp);
  ~WanMonitor() override;

  void run() override;

  /// Says what the tunnels are built on: an address, "" where the last run found none, or nothing where that is not
  /// known. As long as it is not, only the addresses of the looks are compared. Any thread, at any time.
  void setWanOfTunnels(std::optional<std::string> address);

  /// The address seen last. Before the start and after the stop only.
  const std::string& lastWanIp() const { return lastWanIp_; }

 private:
  std::optional<std::string> wanOfTunnels();

  std::shared_ptr<ZEL::Lock> refreshLock_;
  std::shared_ptr<ZEL::Condition> refreshCondition_;
  std::string lastWanIp_;
  ZEL::Lock wanOfTunnelsLock_;
  std::optional<std::string> wanOfTunnels_ GUARDED_BY(wanOfTunnelsLock_);
};
