#include "tests/fuzz/harness/router.h"

#include <cstdio>
#include <cstdlib>
#include <tuple>

#include "tests/fuzz/harness/require.h"

Router router;

bool operator==(const Message& a, const Message& b) {
  return a.level == b.level && a.text == b.text;
}

bool operator==(const Deeds& a, const Deeds& b) {
  return std::tie(a.commands, a.files, a.modes, a.log, a.children, a.pauses) ==
         std::tie(b.commands, b.files, b.modes, b.log, b.children, b.pauses);
}

bool Router::canOpen(const std::string& path) const {
  return unwritable.empty() || path.find(unwritable) == std::string::npos;
}

void require(bool holds, const char* what) {
  if (holds) return;
  fprintf(stderr, "This does not hold: %s.\n", what);
  for (const std::string& command : router.deeds.commands) fprintf(stderr, "  command [%s]\n", command.c_str());
  for (const auto& [path, text] : router.deeds.files) fprintf(stderr, "  file [%s]\n%s", path.c_str(), text.c_str());
  for (const Message& message : router.deeds.log)
    fprintf(stderr, "  log %d [%s]\n", message.level, message.text.c_str());
  abort();
}
