#include "tunnelctl/plan_files.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <utility>

#include "ipsec/configuration_store.h"
#include "support/system.h"

namespace {

std::string contentsOf(const std::string& path) {
  std::string contents;
  ZEL::System::readFile(path, contents);
  return contents;
}

/// The files below the directories of certificates and keys that a run's reset removes.
std::vector<std::string> filesToReset() {
  std::vector<std::string> files;
  std::error_code ignored;
  for (const std::string* directory : {&caCertsDir(), &certsDir(), &privateKeysDir()}) {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(*directory, ignored)) {
      if (entry.is_regular_file(ignored) && PlannedEffects::isReset(entry.path())) files.push_back(entry.path());
    }
  }
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
  for (const auto& [path, text] : plan.deeds.files) {
    std::error_code ignored;
    changes[path] = {path, contentsOf(path), text, std::filesystem::exists(path, ignored), true};
  }
  std::vector<FileChange> list;
  list.reserve(changes.size());
  for (auto& [path, change] : changes) list.push_back(std::move(change));
  return list;
}

bool isDifferent(const FileChange& change) {
  return !change.existed || !change.remains || change.before != change.after;
}
