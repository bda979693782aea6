#include "tests/unit/harness/memory_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

MemoryFile::MemoryFile() : descriptor_(memfd_create("captured", MFD_CLOEXEC)) {
  if (descriptor_ < 0) throw std::system_error(errno, std::generic_category(), "memfd_create");
  // Several processes write here, and only like this does none of them write where another one has just written.
  fcntl(descriptor_, F_SETFL, O_APPEND);
}

MemoryFile::~MemoryFile() {
  close(descriptor_);
}

std::string MemoryFile::text() const {
  std::string text;
  std::array<char, 4096> buffer{};
  for (;;) {
    const ssize_t size = pread(descriptor_, buffer.data(), buffer.size(), static_cast<off_t>(text.size()));
    if (size <= 0) return text;
    text.append(buffer.data(), static_cast<std::size_t>(size));
  }
}
