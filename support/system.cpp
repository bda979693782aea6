#include "support/system.h"

#include <cerrno>
#include <cstdio>
#include <memory>
#include <utility>

#include "effects/effects.h"
#include "effects/read_stream.h"

namespace ZEL {

int System::run(std::string const& command) {
  return effects().run(command);
}

int System::cmd(std::string const& command, std::string& output) {
  return effects().ask(command, output);
}

int System::readFile(std::string const& path, std::string& contents) {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path.c_str(), "re"), fclose);
  if (!file) return errno;
  std::string text;
  if (!readStream(file.get(), text)) return errno != 0 ? errno : EIO;
  contents = std::move(text);
  return 0;
}

}  // namespace ZEL
