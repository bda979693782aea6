#include "tunnelctl/plan_files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <set>

#include "ipsec/configuration_store.h"
#include "support/text.h"
#include "tunnelctl/folder.h"

namespace {

/// Adds what is below a folder. A link counts as a file where it leads to one, and is not followed to a folder.
void addFilesToReset(const std::string& folder, std::set<std::string>& paths) {
  for (const std::string& name : namesIn(folder)) {
    const std::string path = ZEL::Text::joined({folder, "/", name});
    struct stat file {};
    if (name == "." || name == ".." || lstat(path.c_str(), &file) != 0) continue;
    if (S_ISDIR(file.st_mode)) addFilesToReset(path, paths);
    if (stat(path.c_str(), &file) == 0 && S_ISREG(file.st_mode) && PlannedEffects::isReset(path)) paths.insert(path);
  }
}

bool resets(const Plan& plan) {
  const std::vector<std::string> commands = plan.deeds.subjects(Act::Kind::kRun);
  return std::find(commands.begin(), commands.end(), resetCommand()) != commands.end();
}

/// A file that is not written is one that the reset removes.
FileChange changeOf(const std::string& path, const Plan& plan) {
  FileChange change{path, contentsOf(path), "", true, false};
  if (const auto written = plan.deeds.files.find(path); written != plan.deeds.files.end()) {
    change.after = written->second;
    change.existed = access(path.c_str(), F_OK) == 0;
    change.remains = true;
  }
  return change;
}

}  // namespace

std::vector<FileChange> fileChanges(const Plan& plan) {
  std::set<std::string> paths;
  if (resets(plan)) {
    for (const std::string* directory : {&caCertsDir(), &certsDir(), &privateKeysDir()})
      addFilesToReset(*directory, paths);
  }
  for (const auto& [path, text] : plan.deeds.files) paths.insert(path);
  std::vector<FileChange> changes;
  changes.reserve(paths.size());
  for (const std::string& path : paths) changes.push_back(changeOf(path, plan));
  return changes;
}

bool isDifferent(const FileChange& change) {
  return !change.existed || !change.remains || change.before != change.after;
}
