// Watches the address of one tunnel's remote host name.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "support/auto_ptr.h"
#include "support/lock.h"
#include "support/thread.h"

/// Looks one host name up at an interval and requests a refresh when its address is another one than before. A name
/// that cannot be resolved has the address "".
///
/// A look-up that is under way when the monitor is stopped is abandoned, so stopping never waits for a name server.
class FqdnMonitor : public ZEL::Thread {
 public:
  /// Takes over `ownLock`, which guards the address seen last. `lastAddress` is dotted IPv4 text or "", `checkInterval`
  /// is in milliseconds.
  FqdnMonitor(std::shared_ptr<ZEL::Lock> lock, std::shared_ptr<ZEL::Condition> condition,
              ZEL::AutoPtr<ZEL::Lock> ownLock, std::string hostName, std::string lastAddress, std::string tunnelName,
              std::uint32_t checkInterval);
  ~FqdnMonitor() override;

  void run() override;

  const std::string& hostName() const { return hostName_; }
  const std::string& tunnelName() const { return tunnelName_; }
  std::uint32_t checkInterval() const { return checkInterval_; }

  /// The address seen last; any thread.
  std::string lastAddress() const;

 private:
  void check();
  void follow(const std::string& address);

  std::shared_ptr<ZEL::Lock> refreshLock_;
  std::shared_ptr<ZEL::Condition> refreshCondition_;
  ZEL::AutoPtr<ZEL::Lock> ownLock_;
  const std::string hostName_;
  std::string lastAddress_ GUARDED_BY(*ownLock_);
  const std::string tunnelName_;
  const std::uint32_t checkInterval_;
};

/// The monitors of the last configuration, in record order: the configuration pull appends, the daemon loop starts,
/// stops and empties. Touched by the main thread only.
extern std::vector<std::unique_ptr<FqdnMonitor>> v_apFqdnMonitor;
