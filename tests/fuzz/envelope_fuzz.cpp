// The answers of the configuration API: what a request makes of any bytes.

#include <json/reader.h>
#include <json/value.h>

#include <string>

#include "api/json_text.h"
#include "api/query.h"
#include "api/wan_list.h"
#include "tests/fuzz/harness/require.h"
#include "tests/fuzz/harness/router.h"

namespace {

constexpr const char* kUrl = API_HOST "/api/waninfo/wans";

/// What a caller gives and gets back where there is no result.
const Json::Value kUntouched("untouched");

/// A well-formed answer of status 200, read without the program.
bool isGood(const std::string& answer, Json::Value& result) {
  try {
    Json::Value root;
    if (!Json::Reader(Json::Features::strictMode()).parse(answer, root) || !root.isObject()) return false;
    const Json::Value& code = root["code"];
    if (!code.isNumeric() && !code.isBool()) return false;
    if (code.asDouble() < 200 || code.asDouble() >= 201) return false;
    result = root["result"];
    return true;
  } catch (const Json::Exception&) {
    return false;
  }
}

void requireRequest(const std::string& answer) {
  Json::Value expected = kUntouched;
  const bool good = isGood(answer, expected);
  Json::Value result = kUntouched;
  require(queryApi(kUrl, result) == good && result == expected, "a request has the result of a good answer only");
  require(router.log.size() == (good ? 0 : 1), "a request that failed, and no other, has one line in the log");

  router.forget();
  result = kUntouched;
  require(queryApiQuiet(kUrl, result) == good && result == expected, "the quiet request has the same result");
  require(router.log.empty(), "the quiet request logs nothing");
}

/// The readers of a result, whatever it is: the WAN list's throws nothing.
void readResult(const Json::Value& result) {
  const std::string address = currentAddress(result);
  require(queryCurrentWanAddress() == address, "the current address is that of the list");
  endsUnlessOfWrongType([&result] { jsonToText(result); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string answer(data, data + size);
  router = {};
  router.answers[kUrl] = answer;
  router.chunk = size % 7;
  requireRequest(answer);
  Json::Value result;
  if (queryApiQuiet(kUrl, result)) readResult(result);
  return 0;
}
