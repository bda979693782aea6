#include "support/native_thread.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <memory>
#include <utility>

#include "effects/blocked_signals.h"

namespace ZEL {
namespace {

class Attributes {
 public:
  Attributes(std::size_t stackBytes, bool detached) {
    pthread_attr_init(&attributes_);
    pthread_attr_setstacksize(&attributes_, stackBytes);
    if (detached) pthread_attr_setdetachstate(&attributes_, PTHREAD_CREATE_DETACHED);
  }
  ~Attributes() { pthread_attr_destroy(&attributes_); }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;

  const pthread_attr_t* get() const { return &attributes_; }

 private:
  pthread_attr_t attributes_{};
};

/// What the calls at the very end of a thread need of its stack, with room to spare.
constexpr std::size_t kLastFrames = 1024;

/// Gives back the memory of the calling thread's stack that lies below this frame, and so has one of its own. The GNU C
/// library keeps the stacks of threads that have ended for the next ones, and lets PTHREAD_STACK_MIN bytes of each stay
/// in memory (16 KB); most threads here use far less, sleep, and are many.
__attribute__((noinline)) void giveBackStack() {
  pthread_attr_t attributes;
  if (pthread_getattr_np(pthread_self(), &attributes) != 0) return;
  void* lowest = nullptr;
  std::size_t size = 0;
  pthread_attr_getstack(&attributes, &lowest, &size);
  pthread_attr_destroy(&attributes);

  const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
  const auto used = (reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0)) - kLastFrames) / page * page;
  madvise(lowest, used - reinterpret_cast<std::uintptr_t>(lowest), MADV_DONTNEED);
}

void* runBody(void* argument) {
  {  // the body is released, too, before its stack is given back
    const std::unique_ptr<std::function<void()>> body(static_cast<std::function<void()>*>(argument));
    (*body)();
  }
  giveBackStack();
  return nullptr;
}

}  // namespace

bool spawnThread(std::size_t stackBytes, std::function<void()> body, pthread_t* handle) {
  const Attributes attributes(stackBytes, handle == nullptr);
  auto argument = std::make_unique<std::function<void()>>(std::move(body));
  pthread_t detached{};
  const BlockedSignals blocked;  // the new thread starts with this mask
  if (pthread_create(handle != nullptr ? handle : &detached, attributes.get(), runBody, argument.get()) != 0)
    return false;
  static_cast<void>(argument.release());  // runBody owns it now
  return true;
}

}  // namespace ZEL
