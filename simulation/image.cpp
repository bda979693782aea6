#include "simulation/image.h"

#include <cstddef>

// The linker defines these; a begin and its end are of one section (image.ld.in).
extern char program_data_begin, program_data_end, program_bss_begin, program_bss_end;
extern void (*program_initialisers_begin)(), (*program_initialisers_end)();

namespace simulation {
namespace {

std::size_t dataSize() {
  // cppcheck-suppress comparePointers
  return static_cast<std::size_t>(&program_data_end - &program_data_begin);
}

std::size_t bssSize() {
  // cppcheck-suppress comparePointers
  return static_cast<std::size_t>(&program_bss_end - &program_bss_begin);
}

/// memcpy(3) that the address sanitizer does not look at: between the globals lies what nobody else may touch.
__attribute__((no_sanitize("address"), noinline)) void copy(char* to, const char* from, std::size_t size) {
  for (; size >= sizeof(long); size -= sizeof(long), to += sizeof(long), from += sizeof(long))
    *reinterpret_cast<volatile long*>(to) = *reinterpret_cast<const long*>(from);
  for (; size > 0; --size) *const_cast<volatile char*>(to++) = *from++;
}

std::vector<char> loaded() {
  std::vector<char> bytes(dataSize() + bssSize());
  copy(bytes.data(), &program_data_begin, dataSize());
  copy(bytes.data() + dataSize(), &program_bss_begin, bssSize());
  return bytes;
}

/// The first image is made before any code of the program has run.
const std::vector<char>& pristine() {
  static const std::vector<char> bytes = loaded();
  return bytes;
}

}  // namespace

Image::Image() : bytes_(pristine()) {}

void Image::load() const {
  copy(&program_data_begin, bytes_.data(), dataSize());
  copy(&program_bss_begin, bytes_.data() + dataSize(), bssSize());
}

void Image::keep() {
  copy(bytes_.data(), &program_data_begin, dataSize());
  copy(bytes_.data() + dataSize(), &program_bss_begin, bssSize());
}

void Image::initialise() {
  for (void (**initialiser)() = &program_initialisers_begin; initialiser != &program_initialisers_end; ++initialiser)
    (*initialiser)();
}

}  // namespace simulation
