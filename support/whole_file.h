// Files that are written whole, in one write.
#pragma once

#include <string>

namespace ZEL {

enum class FileOutcome {
  kWritten,
  kNotOpened,
  kShort,  ///< fewer bytes arrived than the text has, as on a full disk; those stay
};

/// Creates a file, readable by all and writable by its owner only whatever the umask, or truncates it, and writes the
/// text. Any thread.
FileOutcome writeWholeFile(const std::string& path, const std::string& text);

}  // namespace ZEL
