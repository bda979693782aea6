#include "tests/unit/harness/stand_in.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

namespace {

std::string temporaryFolder() {
  std::string name = "/tmp/stand-inXXXXXX";
  if (mkdtemp(name.data()) == nullptr) throw std::system_error(errno, std::generic_category(), "mkdtemp");
  return name;
}

}  // namespace

StandIn::StandIn(const std::string& program, const std::string& output, int status)
    : folder_(temporaryFolder()), pathBefore_(getenv("PATH")) {
  std::ofstream(folder_ + "/output") << output;
  const std::string path = folder_ + "/" + program;
  std::ofstream(path) << "#!/bin/sh\n"
                      << "{ printf '%s' " << program << "; printf '|%s' \"$@\"; echo; } >>" << folder_ << "/calls\n"
                      << "cat " << folder_ << "/output\n"
                      << "exit " << status << "\n";
  chmod(path.c_str(), 0755);
  setenv("PATH", (folder_ + ":" + pathBefore_).c_str(), 1);
}

StandIn::~StandIn() {
  setenv("PATH", pathBefore_.c_str(), 1);
  std::filesystem::remove_all(folder_);
}

std::vector<std::string> StandIn::calls() const {
  std::ifstream file(folder_ + "/calls");
  std::vector<std::string> calls;
  for (std::string line; std::getline(file, line);) calls.push_back(line);
  return calls;
}
