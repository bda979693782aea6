// Requests to the router's local configuration API.
//
// The API speaks HTTP over a UNIX socket and answers every GET request with {"code": status, "result": payload}. A
// request has failed when it could not be made, when nothing came for a minute, when the answer is no strict JSON, or
// when its status is not 200; what HTTP itself has for a status does not count.
//
// Any thread may ask, several at once; each request has its own connection.
#pragma once

#include <json/value.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

/// What every URL of the API starts with. The socket decides where a request goes; the host is there to make it a URL.
#define API_HOST "http://localhost"

/// Fetches the payload of a document. True when there is one: `result` then holds it (null when the answer has none).
/// On false `result` is untouched and one ERROR line says why.
bool queryApi(std::string const& url, Json::Value& result);

/// The same without a log line.
bool queryApiQuiet(char const* url, Json::Value& result);

/// Has requests answered by a function instead of the API while the scope lasts: it returns the body of the answer to a
/// URL, or nothing for a request that fails. Made and ended while nobody else asks.
class AnsweringRequests {
 public:
  using Answer = std::function<std::optional<std::string>(const std::string& url)>;

  explicit AnsweringRequests(Answer answer);
  ~AnsweringRequests();
  AnsweringRequests(const AnsweringRequests&) = delete;
  AnsweringRequests& operator=(const AnsweringRequests&) = delete;
};

/// libcurl's write callback: appends the size * count bytes to `out` and returns their number, or returns 0, which
/// fails the transfer, when there is no `out` or no memory. Source: CURLOPT_WRITEFUNCTION(3).
std::size_t appendToString(char const* data, std::size_t size, std::size_t count, std::string* out);
