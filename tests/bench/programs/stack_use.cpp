// How much of their stacks the threads of the program need: stack_use NAME...
//
// Makes the calls that the monitors make on threads of their own: a request for the WAN list, whose answer is parsed,
// and a look-up of each NAME. Prints "CALL USED GIVEN" for each, in bytes: how far the deepest touch of the call's
// stack lies from the stack's beginning, and the size that the program gives that thread.

#include <pthread.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

#include "api/wan_list.h"
#include "monitors/name_resolution.h"
#include "support/native_thread.h"

namespace {

constexpr unsigned char kPaint = 0xA5;

/// Larger than any that the program gives, so that a call which needs too much is measured and not ended.
constexpr std::size_t kPaintedBytes = 16 * std::size_t{1024} * 1024;

void* callBody(void* body) {
  (*static_cast<const std::function<void()>*>(body))();
  return nullptr;
}

/// Runs the call on a stack that is filled with a pattern, and looks where the pattern ends. What the C library keeps
/// at the beginning of a stack, the thread's local data, counts as used.
std::size_t stackBytesOf(const std::function<void()>& call) {
  void* const memory = mmap(nullptr, kPaintedBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) exit(EXIT_FAILURE);
  auto* const lowest = static_cast<unsigned char*>(memory);
  std::fill_n(lowest, kPaintedBytes, kPaint);

  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstack(&attributes, memory, kPaintedBytes);
  pthread_t thread{};
  if (pthread_create(&thread, &attributes, callBody, const_cast<std::function<void()>*>(&call)) != 0) {
    exit(EXIT_FAILURE);
  }
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);

  const unsigned char* const end = lowest + kPaintedBytes;
  const auto used = end - std::find_if(lowest, lowest + kPaintedBytes, [](unsigned char c) { return c != kPaint; });
  munmap(memory, kPaintedBytes);
  return static_cast<std::size_t>(used);
}

}  // namespace

int main(int argc, char** argv) {
  std::string address;
  const std::size_t request = stackBytesOf([&address] { address = queryCurrentWanAddress(); });
  printf("request:%s %zu %zu\n", address.c_str(), request, ZEL::kParserStackBytes);
  for (int i = 1; i < argc; ++i) {
    const std::string name = argv[i];
    Resolution resolution;
    const std::size_t used = stackBytesOf([&] { resolution = resolveHost(name); });
    printf("%s:%s %zu %zu\n", name.c_str(), resolution.address.c_str(), used, ZEL::kThreadStackBytes);
  }
  return EXIT_SUCCESS;
}
