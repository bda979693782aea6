#include "monitors/name_resolution.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <utility>

#include "support/log_tag.h"
#include "support/logger.h"
#include "support/native_thread.h"

namespace {

constexpr std::size_t kMostAtOnce = 64;

/// Empty where the system is asked.
ResolvingNames::Resolver resolveInstead;

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

/// Threads that are waited for before what they share goes, also where an exception ends the scope.
class Workers {
 public:
  Workers() { workers_.reserve(kMostAtOnce); }  // so that keeping one that runs cannot fail
  ~Workers() {
    for (const pthread_t worker : workers_) pthread_join(worker, nullptr);
  }
  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;

  std::size_t number() const { return workers_.size(); }

  /// False where the system has no thread to give.
  bool add(const std::function<void()>& body) {
    pthread_t worker{};
    if (!ZEL::spawnThread(ZEL::kThreadStackBytes, body, &worker)) return false;
    workers_.push_back(worker);
    return true;
  }

 private:
  std::vector<pthread_t> workers_;
};

bool readDotted(const std::string& host, in_addr& address) {
  return inet_pton(AF_INET, host.c_str(), &address) == 1;
}

}  // namespace

Resolution resolveHost(const std::string& host) {
  in_addr address{};
  if (readDotted(host, address)) return {dotted(address), 0};
  return resolveInstead ? resolveInstead(host) : lookUp(host);
}

ResolvingNames::ResolvingNames(Resolver resolver) {
  resolveInstead = std::move(resolver);
}

ResolvingNames::~ResolvingNames() {
  resolveInstead = nullptr;
}

std::map<std::string, Resolution> resolveHosts(const std::vector<std::string>& hosts) {
  std::map<std::string, Resolution> resolutions;
  for (const std::string& host : hosts) resolutions.emplace(host, Resolution{});

  // Every worker takes the next name until none is left; each result has its place, so nothing else is shared. The
  // calling thread works too, and alone where the system has no other thread to give.
  std::vector<std::map<std::string, Resolution>::value_type*> work;
  for (auto& entry : resolutions) {
    if (in_addr address{}; readDotted(entry.first, address)) {
      entry.second.address = dotted(address);
    } else {
      work.push_back(&entry);
    }
  }
  std::atomic<std::size_t> next{0};
  const auto resolveRest = [&work, &next] {
    for (std::size_t i = next++; i < work.size(); i = next++) work[i]->second = resolveHost(work[i]->first);
  };

  {
    Workers workers;
    while (workers.number() + 1 < std::min(work.size(), kMostAtOnce) && workers.add(resolveRest)) {
    }
    resolveRest();
  }
  return resolutions;
}

void logResolutionFailure(const std::string& host, const Resolution& resolution) {
  for (const FailureMessage& message : kFailureMessages) {
    if (message.error != resolution.error) continue;
    ZEL_LOG(WARNING, "[%s][FQDN_MONITOR] %s%s%s", kLogTag, message.beforeHost, host.c_str(), message.afterHost);
  }
}
