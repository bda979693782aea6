// A file without a name that collects what is written to a descriptor.
#pragma once

#include <string>

/// Unlike a pipe it never fills, so whoever writes needs no reader, and what is written stays when the writer dies.
class MemoryFile {
 public:
  MemoryFile();
  ~MemoryFile();
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  int descriptor() const { return descriptor_; }

  /// Everything that was written so far.
  std::string text() const;

 private:
  int descriptor_;
};
