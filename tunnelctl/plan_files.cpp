#include "tunnelctl/plan_files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <utility>

#include "ipsec/configuration_store.h"
#include "support/system.h"
#include "support/text.h"
#include "tunnelctl/folder.h"

namespace {

std::string contentsOf(const std::string& path) {
  std::string contents;
  ZEL::System::readFile(path, contents);
  return contents;
}

/// Adds what is below a folder. A link counts as a file where it leads to one, and is not followed to a folder.
void addFilesToReset(const std::string& folder, std::vector<std::string>& files) {
  for (const std::string& name : namesIn(folder)) {
    const std::string path = ZEL::Text::joined({folder, "/", name});
    struct stat file {};
    if (name == "." || name == ".." || lstat(path.c_str(), &file) != 0) continue;
    if (S_ISDIR(file.st_mode)) addFilesToReset(path, files);
    if (stat(path.c_str(), &file) == 0 && S_ISREG(file.st_mode) && PlannedEffects::isReset(path)) files.push_back(path);
  }
}

/// The files below the directories of certificates and keys that a run's reset removes.
std::vector<std::string> filesToReset() {
  std::vector<std::string> files;
  for (const std::string* directory : {&caCertsDir(), &certsDir(), &privateKeysDir()})
    addFilesToReset(*directory, files);
  return files;
}

bool resets(const Plan& plan) {
  const std::vector<std::string> commands = plan.deeds.subjects(Act::Kind::kRun);
  return std::find(commands.begin(), commands.end(), resetCommand()) != commands.end();
}

}  // namespace

std::vector<FileChange> fileChanges(const Plan& plan) {
  std::map<std::string, FileChange> changes;
  for (const std::string& path : resets(plan) ? filesToReset() : std::vector<std::string>())
    changes[path] = {path, contentsOf(path), "", true, false};
  for (const auto& [path, text] : plan.deeds.files)
    changes[path] = {path, contentsOf(path), text, access(path.c_str(), F_OK) == 0, true};
  std::vector<FileChange> list;
  list.reserve(changes.size());
  for (auto& [path, change] : changes) list.push_back(std::move(change));
  return list;
}

bool isDifferent(const FileChange& change) {
  return !change.existed || !change.remains || change.before != change.after;
}
