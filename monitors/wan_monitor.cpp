#include "monitors/wan_monitor.h"

#include <utility>

#include "api/wan_list.h"
#include "monitors/refresh_request.h"
#include "support/log_tag.h"
#include "support/logger.h"
#include "support/native_thread.h"

namespace {

constexpr unsigned int kCheckMilliseconds = 30000;

bool isAnotherWan(const std::string& address, const std::optional<std::string>& builtOn) {
  return !address.empty() && builtOn && address != *builtOn;
}

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

std::optional<std::string> WanMonitor::wanOfTunnels() {
  const ZEL::LockGuard guard(wanOfTunnelsLock_);
  return wanOfTunnels_;
}

void WanMonitor::run() {
  while (!isCanceled()) {
    sleep(kCheckMilliseconds);
    if (isCanceled()) return;
    const auto builtOn = wanOfTunnels();  // first: a run that ends meanwhile may know better
    const auto address = callUnlessCanceled<std::string>(ZEL::kParserStackBytes, queryCurrentWanAddress);
    if (!address) continue;  // canceled, or not asked at all
    if (*address == lastWanIp_ && !isAnotherWan(*address, builtOn)) {
      ZEL_LOG(TRACE, "[%s][WAN_MONITOR] WAN has not changed", kLogTag);
      continue;
    }
    lastWanIp_ = *address;
    requestRefresh(*this, *refreshLock_, *refreshCondition_);
  }
}
