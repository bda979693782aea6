#include "effects/read_stream.h"

#include <array>
#include <cerrno>

bool readStream(FILE* stream, std::string& text) {
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
