#include "tunnelctl/status.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "effects/effects.h"
#include "support/cancellation.h"
#include "tunnelctl/complaint.h"
#include "tunnelctl/json_output.h"
#include "tunnelctl/options.h"
#include "tunnelctl/status_gathering.h"
#include "tunnelctl/status_output.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr const char* kCommand = "status";

/// What the API, the name servers and each program are given to answer.
constexpr milliseconds kPatience{10000};
constexpr milliseconds kLeastPatience{1000};

/// Between two looks, of --wait and of --watch.
constexpr milliseconds kLookAgain{1000};
constexpr milliseconds kRedraw{2000};

constexpr const char* kClearScreen = "\033[H\033[2J";

enum class Form { kText, kJson, kMetrics };

struct Request {
  Form form = Form::kText;
  bool isWatched = false;
  std::optional<seconds> wait{};
};

Request readRequest(const std::vector<std::string>& words) {
  const Options options(words, {{"wait", true}, {"watch", false}, {"json", false}, {"format", true}}, 0);
  Request request;
  const std::string format = options.value("format").value_or("");
  if (options.has("format") && format != "prometheus")
    throw Complaint("unknown format " + format + "; there is prometheus, and --json");
  if (options.has("format") && options.has("json")) throw Complaint("--json and --format exclude each other");
  if (options.has("json")) request.form = Form::kJson;
  if (options.has("format")) request.form = Form::kMetrics;
  request.isWatched = options.has("watch");
  if (const auto number = options.number("wait", 0, INT32_MAX)) request.wait = seconds(*number);
  if (request.isWatched && (request.wait || request.form != Form::kText))
    throw Complaint("--watch draws a screen, and goes with no other option");
  return request;
}

void print(const Status& status, Form form) {
  switch (form) {
    case Form::kJson:
      printJson(kCommand, statusJson(status));
      break;
    case Form::kMetrics:
      fputs(statusMetrics(status).c_str(), stdout);
      break;
    case Form::kText:
      fputs(statusText(status).c_str(), stdout);
      break;
  }
}

Status look(milliseconds patience = kPatience) {
  return judge(gatherFacts(patience));
}

/// Draws until it is interrupted, which ends the process.
[[noreturn]] void watch() {
  for (;;) {
    const std::string text = statusText(look());
    if (isatty(STDOUT_FILENO) == 1) fputs(kClearScreen, stdout);
    fputs(text.c_str(), stdout);
    fflush(stdout);
    effects().pause(kRedraw);
  }
}

/// Looks until all is up or the time has passed, and prints what it saw last.
int waitUntilUp(seconds time, Form form) {
  const auto end = effects().now() + time;
  for (;;) {
    const auto left = std::chrono::duration_cast<milliseconds>(end - effects().now());
    const Status status = look(std::clamp(left, kLeastPatience, kPatience));
    const bool isUp = exitStatusOf(status) == 0;
    if (isUp || effects().now() + kLookAgain > end) {
      print(status, form);
      return isUp ? 0 : 1;
    }
    effects().pause(kLookAgain);
  }
}

int lookOnce(Form form) {
  const Status status = look();
  print(status, form);
  return exitStatusOf(status);
}

}  // namespace

int performStatus(const std::vector<std::string>& words) {
  const Request request = readRequest(words);
  if (request.isWatched) watch();
  const int exitStatus = request.wait ? waitUntilUp(*request.wait, request.form) : lookOnce(request.form);
  if (ZEL::Cancellation::callsUnderWay() == 0) return exitStatus;
  // A call that was given up may still be inside a library whose globals a return from here would destroy.
  fflush(nullptr);
  _exit(exitStatus);
}
