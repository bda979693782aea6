#include "tunnelctl/folder.h"

#include <dirent.h>

#include <memory>

#include "support/system.h"

std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(opendir(folder.c_str()), closedir);
  while (const dirent* const entry = stream ? readdir(stream.get()) : nullptr) names.emplace_back(entry->d_name);
  return names;
}

std::string contentsOf(const std::string& path) {
  std::string contents;
  ZEL::System::readFile(path, contents);
  return contents;
}
