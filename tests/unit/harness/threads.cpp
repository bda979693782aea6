#include "tests/unit/harness/threads.h"

#include <filesystem>
#include <fstream>

namespace {

/// The first line of a file, or "" when there is none.
std::string firstLine(const std::filesystem::path& path) {
  std::string line;
  std::getline(std::ifstream(path), line);
  return line;
}

}  // namespace

bool threadSleeps(const std::string& name) {
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task")) {
    // The state stands behind the name in parentheses, which may hold anything: proc(5).
    const std::string status = firstLine(thread.path() / "stat");
    const std::string::size_type end = status.rfind(')');
    if (end != std::string::npos && status.compare(end, 3, ") S") == 0 && firstLine(thread.path() / "comm") == name)
      return true;
  }
  return false;
}
