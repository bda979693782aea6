// A directory for the files of one test.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace ipsec_test {

/// Made empty, removed with everything in it.
class TemporaryDirectory {
 public:
  TemporaryDirectory() : path_((std::filesystem::temp_directory_path() / "ipsec_test.XXXXXX").string()) {
    if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no directory at " + path_);
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& path() const { return path_; }
  std::string path(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

inline std::string contentsOf(const std::string& path) {
  std::ifstream file(path);
  if (!file) throw std::runtime_error("no file at " + path);
  std::ostringstream contents;
  contents << file.rdbuf();
  return contents.str();
}

}  // namespace ipsec_test
