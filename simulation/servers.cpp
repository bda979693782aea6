// The configuration API and the name server: libcurl's easy interface and the resolver as far as the program uses them,
// under the names that --wrap gives (ld(1)).

#include <arpa/inet.h>
#include <curl/curl.h>
#include <netdb.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <memory>
#include <string>

#include "simulation/process.h"
#include "simulation/rules.h"
#include "simulation/world.h"

namespace simulation {
namespace {

using WriteFunction = std::size_t (*)(const char*, std::size_t, std::size_t, std::string*);

struct Request {
  std::string url;
  WriteFunction write = nullptr;
  std::string* destination = nullptr;
  long patienceSeconds = 0;  ///< with one who says nothing; 0: no end of it
};

constexpr std::array<int, 5> kResolverErrors{HOST_NOT_FOUND, TRY_AGAIN, NO_RECOVERY, NO_DATA, NETDB_INTERNAL};

/// The current thread is inside a library while the scope lasts.
class InLibrary {
 public:
  InLibrary() : watch_(currentProcess()->watch) { ++watch_.insideLibraries; }
  ~InLibrary() { --watch_.insideLibraries; }
  InLibrary(const InLibrary&) = delete;
  InLibrary& operator=(const InLibrary&) = delete;

 private:
  Watch& watch_;
};

/// Hands a part of the answer over to the program.
bool deliver(const Request& request, const char* bytes, std::size_t size) {
  place();
  const Inside inside;
  return request.write(bytes, 1, size, request.destination) == size;
}

CURLcode deliverInTwo(const Request& request, const std::string& body, bool breaksOff) {
  const std::size_t half = body.size() / 2;
  if (!deliver(request, body.data(), half)) return CURLE_WRITE_ERROR;
  spend(world->chance.between(100, 900) * 1000, "the answer's other half");
  if (breaksOff) return CURLE_PARTIAL_FILE;
  return deliver(request, body.data() + half, body.size() - half) ? CURLE_OK : CURLE_WRITE_ERROR;
}

CURLcode waitInSilence(const Request& request) {
  if (request.patienceSeconds == 0) violate("a request waits for a silent API without an end");
  spend(request.patienceSeconds * kSecond, "a silent API");
  return CURLE_OPERATION_TIMEDOUT;
}

std::string bodyFor(const std::string& url) {
  const Faults& faults = world->faults;
  if (faults.has(FaultKind::kApiError)) return R"({"code":500,"result":null})";
  if (faults.has(FaultKind::kApiGarbage)) return "<html>502</html>";
  if (faults.has(FaultKind::kApiWrongType, url)) return world->configuration.wrongAnswer(url);
  return world->configuration.answer(url);
}

CURLcode perform(const Request& request) {
  const Faults& faults = world->faults;
  if (faults.has(FaultKind::kApiGone) || faults.has(FaultKind::kNoDescriptor)) return CURLE_COULDNT_CONNECT;
  spend(world->chance.between(200, 2000) * 1000, "the API");
  if (const Fault* const slow = faults.find(FaultKind::kApiSlow)) spend(slow->amount * kMillisecond, "a slow API");
  if (faults.has(FaultKind::kApiSilent)) return waitInSilence(request);
  return deliverInTwo(request, bodyFor(request.url), faults.has(FaultKind::kApiHalf));
}

/// Where the results lie in the caller's buffer.
struct Results {
  in_addr address;
  std::array<char*, 2> addresses;
};

int resolve(const std::string& host, in_addr& address) {
  const Faults& faults = world->faults;
  spend(world->chance.between(100, 3000) * 1000, "the name server");
  if (const Fault* const slow = faults.find(FaultKind::kNamesSlow))
    spend(slow->amount * kMillisecond, "a slow name server");
  if (const Fault* const failure = faults.find(FaultKind::kNamesFail))
    return kResolverErrors[static_cast<std::size_t>(failure->amount) % kResolverErrors.size()];
  if (faults.has(FaultKind::kNoDescriptor)) return TRY_AGAIN;
  const auto entry = world->configuration.addresses.find(host);
  if (entry == world->configuration.addresses.end() || entry->second.empty()) return HOST_NOT_FOUND;
  inet_pton(AF_INET, entry->second.c_str(), &address);
  return 0;
}

}  // namespace
}  // namespace simulation

using namespace simulation;

extern "C" {

CURL* __wrap_curl_easy_init() {
  const Outside outside;
  return new Request;
}

void __wrap_curl_easy_cleanup(CURL* curl) {
  const Outside outside;
  delete static_cast<Request*>(curl);
}

/// The option is an int here, which is what an argument before "..." is passed as.
CURLcode __wrap_curl_easy_setopt(CURL* curl, int option, ...) {
  const Outside outside;
  auto& request = *static_cast<Request*>(curl);
  va_list arguments;
  va_start(arguments, option);
  if (option == CURLOPT_URL) request.url = va_arg(arguments, const char*);
  if (option == CURLOPT_WRITEFUNCTION) request.write = va_arg(arguments, WriteFunction);
  if (option == CURLOPT_WRITEDATA) request.destination = va_arg(arguments, std::string*);
  if (option == CURLOPT_LOW_SPEED_TIME) request.patienceSeconds = va_arg(arguments, long);
  va_end(arguments);
  return CURLE_OK;
}

CURLcode __wrap_curl_easy_perform(CURL* curl) {
  const Outside outside;
  const InLibrary inLibrary;
  const Request request = *static_cast<const Request*>(curl);
  place();
  say("asks " + request.url.substr(request.url.find("/api")));
  ruleAsks(*currentProcess(), request.url);
  const CURLcode code = perform(request);
  if (code != CURLE_OK) say("has no answer of the API");
  place();
  return code;
}

const char* __wrap_curl_easy_strerror(CURLcode code) {
  if (code == CURLE_COULDNT_CONNECT) return "Couldn't connect to server";
  return code == CURLE_OPERATION_TIMEDOUT ? "Timeout was reached" : "Transferred a partial file";
}

int __wrap_gethostbyname_r(const char* name, hostent* entry, char* buffer, size_t size, hostent** found, int* error) {
  const Outside outside;
  place();
  *found = nullptr;
  in_addr address{};
  const InLibrary inLibrary;
  const LookUp lookUp(*currentProcess(), name);
  *error = resolve(name, address);
  const std::string text = *error == 0 ? world->configuration.addresses[name] : "";
  say(std::string("resolves ") + name + (text.empty() ? ": none" : " to " + text));
  lookUp.finds(text);
  place();
  if (*error != 0) return 0;
  void* place = buffer;
  if (std::align(alignof(Results), sizeof(Results), place, size) == nullptr) return ERANGE;
  auto& results = *new (place) Results;
  results.address = address;
  results.addresses = {reinterpret_cast<char*>(&results.address), nullptr};
  *entry = {};
  entry->h_addr_list = results.addresses.data();
  *found = entry;
  return 0;
}

}  // extern "C"
