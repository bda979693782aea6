#include "support/system.h"

#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace ZEL {
namespace {

/// Appends everything that is left in the stream; false when reading fails. A signal handler that returns is no
/// failure.
bool readAll(FILE* stream, std::string& text) {
  std::array<char, 4096> buffer{};
  for (;;) {
    const std::size_t size = fread(buffer.data(), 1, buffer.size(), stream);
    text.append(buffer.data(), size);
    if (feof(stream) != 0) return true;
    if (ferror(stream) == 0) continue;
    if (errno != EINTR) return false;
    clearerr(stream);
  }
}

}  // namespace

int System::run(std::string const& command) {
  return system(command.c_str());
}

int System::cmd(std::string const& command, std::string& output) {
  output.clear();
  FILE* const stream = popen(command.c_str(), "re");
  if (stream == nullptr) return -1;
  const bool complete = readAll(stream, output);
  const int status = pclose(stream);
  if (!complete || status < 0) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int System::readFile(std::string const& path, std::string& contents) {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path.c_str(), "re"), fclose);
  if (!file) return errno;
  std::string text;
  if (!readAll(file.get(), text)) return errno != 0 ? errno : EIO;
  contents = std::move(text);
  return 0;
}

}  // namespace ZEL
