#include "api/query.h"

#include <curl/curl.h>
#include <json/reader.h>
#include <sys/socket.h>

#include <exception>
#include <memory>
#include <optional>
#include <utility>

#include "support/log_tag.h"
#include "support/logger.h"

namespace {

constexpr const char* kSocketPath = "/var/run/api/http.sock";
constexpr unsigned int kSuccess = 200;

/// A transfer that is slower than a byte a second for this long has failed, and so has a connection that is not
/// accepted.
constexpr long kSilenceSeconds = 60;

/// Why a request failed, as its log line says it behind the tag; nothing when it did not fail.
using Failure = std::optional<std::string>;

/// Empty where the API itself is asked.
AnsweringRequests::Answer answerInstead;

using CurlHandle = std::unique_ptr<CURL, decltype(&curl_easy_cleanup)>;

/// Sets one option; its failure is reported under `name`.
template <class Value>
Failure setOption(CURL* curl, CURLoption option, const char* name, Value value) {
  const CURLcode code = curl_easy_setopt(curl, option, value);
  if (code == CURLE_OK) return std::nullopt;
  return "curl_easy_setopt(" + std::string(name) + ") failed: " + curl_easy_strerror(code);
}

Failure setOptions(CURL* curl, const char* url, std::string& body) {
  Failure failure;
  const auto set = [&](CURLoption option, const char* name, auto value) {
    if (!failure) failure = setOption(curl, option, name, value);
  };
  set(CURLOPT_UNIX_SOCKET_PATH, "CURLOPT_URL", kSocketPath);  // reported under the name of what it belongs to
  set(CURLOPT_URL, "CURLOPT_URL", url);
  set(CURLOPT_HEADER, "CURLOPT_HEADER", 0L);
  set(CURLOPT_FOLLOWLOCATION, "CURLOPT_FOLLOWLOCATION", 0L);
  set(CURLOPT_WRITEFUNCTION, "CURLOPT_WRITEFUNCTION", &appendToString);
  set(CURLOPT_WRITEDATA, "CURLOPT_WRITEDATA", &body);
  return failure;
}

/// As libcurl makes its socket itself, but not for the programs that are run meanwhile: some of them last.
curl_socket_t openSocket(void*, curlsocktype, curl_sockaddr* address) {
  return socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

/// Sets the options without which a request works just as well. A libcurl that was built without one of them is asked
/// all the same, so nothing is made of its refusal.
void setPrecautions(CURL* curl) {
  // Otherwise libcurl ignores SIGPIPE for the whole process while it transfers, and a child started by another thread
  // at that moment would inherit it.
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_OPENSOCKETFUNCTION, &openSocket);
  curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, kSilenceSeconds);
  curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
  curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, kSilenceSeconds);
}

Failure fetchInstead(const char* url, std::string& body) {
  std::optional<std::string> answer = answerInstead(url);
  if (!answer) return "there is no answer.";
  body = std::move(*answer);
  return std::nullopt;
}

Failure fetch(const char* url, std::string& body) {
  if (answerInstead) return fetchInstead(url, body);
  const CurlHandle curl(curl_easy_init(), curl_easy_cleanup);
  if (!curl) return "unable to initialize curl.";
  if (Failure failure = setOptions(curl.get(), url, body)) return failure;
  setPrecautions(curl.get());
  const CURLcode code = curl_easy_perform(curl.get());
  if (code != CURLE_OK) return "curl_easy_perform() failed: " + std::string(curl_easy_strerror(code));
  return std::nullopt;
}

/// False when the text is no strict JSON document, or one that is nested deeper than the parser follows.
bool parse(const std::string& body, Json::Value& root) {
  try {
    return Json::Reader(Json::Features::strictMode()).parse(body, root, true);
  } catch (const Json::Exception&) {
    return false;
  }
}

/// The status of an answer; one that is missing or is no number reads as 0, and so does that of an answer without
/// members.
unsigned int statusOf(const Json::Value& root) {
  if (!root.isObject()) return 0;
  const Json::Value& code = root["code"];
  return code.isConvertibleTo(Json::uintValue) ? code.asUInt() : 0;
}

Failure request(const char* url, Json::Value& result) {
  std::string body;
  if (Failure failure = fetch(url, body)) return failure;
  Json::Value root;
  if (!parse(body, root)) return "api returned bad json";
  const unsigned int status = statusOf(root);
  if (status != kSuccess) return "api returned error code [" + std::to_string(static_cast<int>(status)) + "]";
  result.swap(root["result"]);
  return std::nullopt;
}

}  // namespace

AnsweringRequests::AnsweringRequests(Answer answer) {
  answerInstead = std::move(answer);
}

AnsweringRequests::~AnsweringRequests() {
  answerInstead = nullptr;
}

std::size_t appendToString(char const* data, std::size_t size, std::size_t count, std::string* out) {
  if (out == nullptr) return 0;
  try {
    out->append(data, size * count);
  } catch (const std::exception&) {  // no memory, or longer than a string can be
    return 0;
  }
  return size * count;
}

bool queryApi(std::string const& url, Json::Value& result) {
  const Failure failure = request(url.c_str(), result);
  if (failure) ZEL_LOG(ERROR, "[%s] %s", kLogTag, failure->c_str());
  return !failure;
}

bool queryApiQuiet(char const* url, Json::Value& result) {
  return !request(url, result);
}
