#include "tests/fuzz/harness/router.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "tests/fuzz/harness/require.h"

Router router;

namespace {

const ActingAs noting(router.deeds);

}  // namespace

bool operator==(const Message& a, const Message& b) {
  return a.level == b.level && a.text == b.text;
}

FileOutcome Deeds::writeFile(const std::string& path, const std::string& text) {
  if (!canOpen(path)) return FileOutcome::kNotOpened;
  NotingEffects::writeFile(path, fullDisk ? "" : text);
  return fullDisk && !text.empty() ? FileOutcome::kShort : FileOutcome::kWritten;
}

FileOutcome Deeds::appendFile(const std::string& path, const std::string& text) {
  if (!canOpen(path)) return FileOutcome::kNotOpened;
  NotingEffects::appendFile(path, fullDisk ? "" : text);
  return fullDisk && !text.empty() ? FileOutcome::kShort : FileOutcome::kWritten;
}

std::vector<std::string> Deeds::commands() const {
  std::vector<std::string> commands;
  for (const Act& act : acts) {
    if (act.kind == Act::Kind::kRun && act.actor == 0) commands.push_back(act.subject);
  }
  return commands;
}

std::size_t Deeds::count(Act::Kind kind) const {
  return subjects(kind).size();
}

bool Deeds::canOpen(const std::string& path) const {
  return unwritable.empty() || path.find(unwritable) == std::string::npos;
}

void Router::forget() {
  deeds = {};
  deeds.answers["ip tunnel"] = listing;
  deeds.unwritable = unwritable;
  deeds.fullDisk = fullDisk;
  log.clear();
}

bool Router::hasNullBytes() const {
  return std::any_of(answers.begin(), answers.end(), [](const auto& entry) {
    return entry.second.find("\\u0000") != std::string::npos || entry.second.find('\0') != std::string::npos;
  });
}

void require(bool holds, const char* what) {
  if (holds) return;
  fprintf(stderr, "This does not hold: %s.\n", what);
  for (const std::string& command : router.deeds.commands()) fprintf(stderr, "  command [%s]\n", command.c_str());
  for (const auto& [path, text] : router.deeds.files) fprintf(stderr, "  file [%s]\n%s", path.c_str(), text.c_str());
  for (const Message& message : router.log) fprintf(stderr, "  log %d [%s]\n", message.level, message.text.c_str());
  abort();
}
