// libcurl's easy interface as far as the program uses it, answering from memory under the names that --wrap gives
// (ld(1)).

#include <curl/curl.h>

#include <algorithm>
#include <cstdarg>
#include <string>

#include "tests/fuzz/harness/require.h"
#include "tests/fuzz/harness/router.h"

namespace {

using WriteFunction = std::size_t (*)(const char*, std::size_t, std::size_t, std::string*);

struct Request {
  std::string url;
  WriteFunction write = nullptr;
  std::string* destination = nullptr;
};

CURLcode deliver(const Request& request, const std::string& answer) {
  const std::size_t chunk = router.chunk == 0 ? answer.size() : router.chunk;
  for (std::size_t start = 0; start < answer.size(); start += chunk) {
    const std::size_t size = std::min(chunk, answer.size() - start);
    if (request.write(answer.data() + start, 1, size, request.destination) != size) return CURLE_WRITE_ERROR;
  }
  return CURLE_OK;
}

}  // namespace

extern "C" {

/// A handle that is not given back is a leak, which the sanitizer reports.
CURL* __wrap_curl_easy_init() {
  return new Request;
}

void __wrap_curl_easy_cleanup(CURL* curl) {
  delete static_cast<Request*>(curl);
}

/// The option is an int here, which is what an argument before "..." is passed as.
CURLcode __wrap_curl_easy_setopt(CURL* curl, int option, ...) {
  auto& request = *static_cast<Request*>(curl);
  va_list arguments;
  va_start(arguments, option);
  if (option == CURLOPT_URL) request.url = va_arg(arguments, const char*);
  if (option == CURLOPT_WRITEFUNCTION) request.write = va_arg(arguments, WriteFunction);
  if (option == CURLOPT_WRITEDATA) request.destination = va_arg(arguments, std::string*);
  va_end(arguments);
  return CURLE_OK;
}

CURLcode __wrap_curl_easy_perform(CURL* curl) {
  const auto& request = *static_cast<const Request*>(curl);
  require(request.write != nullptr && request.destination != nullptr, "a request has a place for its answer");
  const auto answer = router.answers.find(request.url);
  return answer == router.answers.end() ? CURLE_COULDNT_CONNECT : deliver(request, answer->second);
}

const char* __wrap_curl_easy_strerror(CURLcode) {
  return "an error";
}

}  // extern "C"
