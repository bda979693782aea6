#include "monitors/name_resolution.h"

#include <arpa/inet.h>
#include <arpa/nameser.h>
#include <netdb.h>
#include <netinet/in.h>
#include <pthread.h>
#include <resolv.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "support/log_tag.h"
#include "support/logger.h"
#include "support/native_thread.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostAtOnce = 64;

std::string dotted(const in_addr& address) {
  std::array<char, INET_ADDRSTRLEN> text{};
  return inet_ntop(AF_INET, &address, text.data(), text.size());
}

/// gethostbyname(3) in its reentrant form, whose buffer is the caller's and must be large enough.
Resolution lookUp(const std::string& host) {
  for (std::vector<char> buffer(1024);; buffer.resize(buffer.size() * 2)) {
    hostent entry{};
    hostent* found = nullptr;
    int error = 0;
    const int status = gethostbyname_r(host.c_str(), &entry, buffer.data(), buffer.size(), &found, &error);
    if (status == ERANGE) continue;
    if (found == nullptr) return {"", error};
    in_addr address{};
    memcpy(&address, found->h_addr_list[0], sizeof address);
    return {dotted(address), 0};
  }
}

#if defined(__GLIBC__) && !defined(__UCLIBC__)

/// A query of one's own, which leaves nothing behind.
class Resolver {
 public:
  Resolver() { ready_ = res_ninit(&state_) == 0; }
  ~Resolver() {
    if (ready_) res_nclose(&state_);
  }
  Resolver(const Resolver&) = delete;
  Resolver& operator=(const Resolver&) = delete;

  /// How long one name server is waited for, or zero when there is no resolver.
  std::chrono::milliseconds timeout() const { return std::chrono::seconds(ready_ ? state_.retrans : 0); }

  /// The category of the answer of the first name server that gives one.
  int category(const std::string& host) {
    state_.pfcode = RES_PRF_REPLY;  // hand over a refusal instead of asking on
    state_.retry = 1;
    std::array<unsigned char, NS_PACKETSZ> answer{};
    const int size =
        res_nsearch(&state_, host.c_str(), ns_c_in, ns_t_a, answer.data(), static_cast<int>(answer.size()));
    return size < 0 ? state_.res_h_errno : TRY_AGAIN;
  }

 private:
  struct __res_state state_ {};
  bool ready_ = false;
};

/// The GNU C library goes on to the next name server when one refuses (REFUSED, NOTIMP), and in the end reports "try
/// again", as for a time-out. Where it came to that without a time-out, a server did answer, and is asked what. Half
/// the time-out tells the two apart, as the library measures it with another clock.
int trueCategory(const std::string& host, Clock::duration spent) {
  Resolver resolver;
  return spent < resolver.timeout() / 2 ? resolver.category(host) : TRY_AGAIN;
}

#else

int trueCategory(const std::string&, Clock::duration) {
  return TRY_AGAIN;
}

#endif

struct FailureMessage {
  int error;
  const char* beforeHost;
  const char* afterHost;
};

constexpr std::array<FailureMessage, 4> kFailureMessages{{
    {HOST_NOT_FOUND, "The host [", "] was not found.\n"},
    {TRY_AGAIN, "The name server is temporarily unavailable.  Unable to resolve [", "]"},
    {NO_RECOVERY, "A non-recoverable name server error occurred.  Unable to resolve [", "]\n"},
    {NO_DATA, "The name [", "] is valid but it has no address.\n"},
}};

bool isDotted(const std::string& host) {
  in_addr address{};
  return inet_pton(AF_INET, host.c_str(), &address) == 1;
}

}  // namespace

Resolution resolveHost(const std::string& host) {
  if (isDotted(host)) return {host, 0};
  const Clock::time_point asked = Clock::now();
  Resolution resolution = lookUp(host);
  if (resolution.error == TRY_AGAIN) resolution.error = trueCategory(host, Clock::now() - asked);
  return resolution;
}

std::map<std::string, Resolution> resolveHosts(const std::vector<std::string>& hosts) {
  std::map<std::string, Resolution> resolutions;
  for (const std::string& host : hosts) resolutions.emplace(host, Resolution{host, 0});

  // Every worker takes the next name until none is left; each result has its place, so nothing else is shared. The
  // calling thread works too, and alone where the system has no other thread to give.
  std::vector<std::map<std::string, Resolution>::value_type*> work;
  for (auto& entry : resolutions) {
    if (!isDotted(entry.first)) work.push_back(&entry);
  }
  std::atomic<std::size_t> next{0};
  const auto resolveRest = [&work, &next] {
    for (std::size_t i = next++; i < work.size(); i = next++) work[i]->second = resolveHost(work[i]->first);
  };

  std::vector<pthread_t> workers;
  for (pthread_t worker{}; workers.size() + 1 < std::min(work.size(), kMostAtOnce); workers.push_back(worker)) {
    if (!ZEL::spawnThread(ZEL::kThreadStackBytes, resolveRest, &worker)) break;
  }
  resolveRest();
  for (const pthread_t worker : workers) pthread_join(worker, nullptr);
  return resolutions;
}

void logResolutionFailure(const std::string& host, const Resolution& resolution) {
  for (const FailureMessage& message : kFailureMessages) {
    if (message.error != resolution.error) continue;
    ZEL_LOG(WARNING, "[%s][FQDN_MONITOR] %s%s%s", kLogTag, message.beforeHost, host.c_str(), message.afterHost);
  }
}
