#include "support/whole_file.h"

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

namespace ZEL {
namespace {

/// Given, since a daemon's umask of 0 would let every user write what programs of root obey.
constexpr mode_t kReadableByAll = 0644;

}  // namespace

// A stream would take any text into its buffer and fail later; write(2) itself says how much found room.
FileOutcome writeWholeFile(const std::string& path, const std::string& text) {
  const int descriptor = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kReadableByAll);
  if (descriptor < 0) return FileOutcome::kNotOpened;
  const ssize_t size = write(descriptor, text.data(), text.size());
  close(descriptor);
  return size == static_cast<ssize_t>(text.size()) ? FileOutcome::kWritten : FileOutcome::kShort;
}

}  // namespace ZEL
