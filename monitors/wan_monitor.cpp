#include "monitors/wan_monitor.h"

#include <utility>

#include "api/wan_list.h"
#include "monitors/refresh_request.h"
#include "support/log_tag.h"
#include "support/logger.h"
#include "support/native_thread.h"

namespace {

constexpr unsigned int kCheckMilliseconds = 30000;

}  // namespace

WanMonitor::WanMonitor(std::shared_ptr<ZEL::Lock> lock, std::shared_ptr<ZEL::Condition> condition,
                       std::string lastWanIp)
    : Thread("WAN_MONITOR", true),
      refreshLock_(std::move(lock)),
      refreshCondition_(std::move(condition)),
      lastWanIp_(std::move(lastWanIp)) {}

WanMonitor::~WanMonitor() {
  stop();
}

void WanMonitor::setWanOfTunnels(std::optional<std::string> address) {
  const ZEL::LockGuard guard(wanOfTunnelsLock_);
  wanOfTunnels_ = std::move(address);
}

bool WanMonitor::isReasonToRefresh(const std::string& address) {
  if (address != lastWanIp_) return true;
  const ZEL::LockGuard guard(wanOfTunnelsLock_);
  return !address.empty() && wanOfTunnels_ && address != *wanOfTunnels_;
}

void WanMonitor::run() {
  while (!isCanceled()) {
    sleep(kCheckMilliseconds);
    if (isCanceled()) return;
    const auto address = callUnlessCanceled<std::string>(ZEL::kParserStackBytes, queryCurrentWanAddress);
    if (!address) continue;  // canceled, or not asked at all
    if (!isReasonToRefresh(*address)) {
      ZEL_LOG(TRACE, "[%s][WAN_MONITOR] WAN has not changed", kLogTag);
      continue;
    }
    lastWanIp_ = *address;
    requestRefresh(*this, *refreshLock_, *refreshCondition_);
  }
}
