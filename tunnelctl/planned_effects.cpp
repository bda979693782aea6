#include "tunnelctl/planned_effects.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "ipsec/configuration_store.h"

namespace {

/// The directory among those that the reset empties which a path leads into, with its slash, or "".
std::string resetDirectoryOf(const std::string& path) {
  for (const std::string* directory : {&caCertsDir(), &certsDir(), &privateKeysDir()}) {
    if (path.compare(0, directory->size() + 1, *directory + "/") == 0) return *directory + "/";
  }
  return "";
}

/// The path without the steps that lead nowhere, so that a file has one: a name may begin with a slash.
std::string withoutIdleSteps(std::string path) {
  for (std::size_t at = 0; (at = path.find("//")) != std::string::npos;) path.erase(at, 1);
  for (std::size_t at = 0; (at = path.find("/./")) != std::string::npos;) path.erase(at, 2);
  return path;
}

bool isWritableDirectory(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && access(path.c_str(), W_OK | X_OK) == 0;
}

}  // namespace

bool PlannedEffects::isReset(const std::string& path) {
  const std::string directory = resetDirectoryOf(path);
  return !directory.empty() && path.size() > directory.size() && path[directory.size()] != '.';
}

bool PlannedEffects::canOpen(const std::string& path) const {
  const std::string folder = path.substr(0, path.rfind('/'));
  if (isReset(path)) return folder + "/" == resetDirectoryOf(path) && isWritableDirectory(folder);
  struct stat status {};
  if (stat(path.c_str(), &status) == 0) return !S_ISDIR(status.st_mode) && access(path.c_str(), W_OK) == 0;
  return errno == ENOENT && isWritableDirectory(folder);
}

FileOutcome PlannedEffects::writeFile(const std::string& path, const std::string& text) {
  const std::string file = withoutIdleSteps(asTaken(path));
  return canOpen(file) ? NotingEffects::writeFile(file, text) : FileOutcome::kNotOpened;
}

FileOutcome PlannedEffects::appendFile(const std::string& path, const std::string& text) {
  const std::string file = withoutIdleSteps(asTaken(path));
  return canOpen(file) ? NotingEffects::appendFile(file, text) : FileOutcome::kNotOpened;
}

void PlannedEffects::setMode(const std::string& path, mode_t mode) {
  NotingEffects::setMode(withoutIdleSteps(asTaken(path)), mode);
}
