#include "monitors/fqdn_monitor.h"

#include <utility>

#include "monitors/name_resolution.h"
#include "monitors/refresh_request.h"
#include "support/log_tag.h"
#include "support/logger.h"
#include "support/native_thread.h"

std::vector<std::unique_ptr<FqdnMonitor>> v_apFqdnMonitor;

FqdnMonitor::FqdnMonitor(std::shared_ptr<ZEL::Lock> lock, std::shared_ptr<ZEL::Condition> condition,
                         ZEL::AutoPtr<ZEL::Lock> ownLock, std::string hostName, std::string lastAddress,
                         std::string tunnelName, std::uint32_t checkInterval)
    : Thread("FQDN_MONITOR:" + tunnelName, true),
      refreshLock_(std::move(lock)),
      refreshCondition_(std::move(condition)),
      ownLock_(std::move(ownLock)),
      hostName_(std::move(hostName)),
      lastAddress_(std::move(lastAddress)),
      tunnelName_(std::move(tunnelName)),
      checkInterval_(checkInterval) {}

FqdnMonitor::~FqdnMonitor() {
  stop();
}

std::string FqdnMonitor::lastAddress() const {
  const ZEL::LockGuard guard(*ownLock_);
  return lastAddress_;
}

void FqdnMonitor::run() {
  while (!isCanceled()) {
    sleep(checkInterval_);
    if (!isCanceled()) check();
  }
  ZEL_LOG(TRACE, "[%s][FQDN_MONITOR] tunnel:%s stop ", kLogTag, tunnelName_.c_str());
}

void FqdnMonitor::check() {
  // The host stands where the tunnel is announced and the tunnel behind it; who reads the log knows the line like that.
  ZEL_LOG(TRACE, "[%s][FQDN_MONITOR] tunnel:%s check %s ", kLogTag, hostName_.c_str(), tunnelName_.c_str());
  const auto resolution =
      callUnlessCanceled<Resolution>(ZEL::kThreadStackBytes, [host = hostName_] { return resolveHost(host); });
  if (!resolution) return;
  logResolutionFailure(hostName_, *resolution);
  follow(resolution->address);
}

void FqdnMonitor::follow(const std::string& address) {
  const std::string before = lastAddress();
  if (address == before) {
    ZEL_LOG(TRACE, "[%s][FQDN_MONITOR] FQDN has not changed", kLogTag);
    return;
  }
  ZEL_LOG(INFO, "[%s][FQDN_MONITOR] tunnel:%s The host [%s] has resolved to a new ip address. [%s]=>[%s]\n", kLogTag,
          tunnelName_.c_str(), hostName_.c_str(), before.c_str(), address.c_str());
  {
    const ZEL::LockGuard guard(*ownLock_);
    lastAddress_ = address;
  }
  requestRefresh(*this, *refreshLock_, *refreshCondition_);
}
