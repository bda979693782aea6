#include "simulation/fiber.h"

#include <cxxabi.h>
#include <pthread.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <map>
#include <new>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
#define SIMULATION_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define SIMULATION_ASAN 1
#endif
#endif

#ifdef SIMULATION_ASAN
#include <sanitizer/asan_interface.h>
#include <sanitizer/common_interface_defs.h>
#endif

extern "C" int __real_pthread_getattr_np(pthread_t thread, pthread_attr_t* attributes);

namespace simulation {
namespace {

constexpr std::size_t kPage = 4096;

#ifdef SIMULATION_ASAN
constexpr std::size_t kStackFactor = 6;  // its frames are that much larger
#else
constexpr std::size_t kStackFactor = 1;
#endif

std::map<std::size_t, std::vector<char*>>& spareStacks() {
  static auto& stacks = *new std::map<std::size_t, std::vector<char*>>;
  return stacks;
}

/// The exceptions that a flow is handling, as the C++ runtime keeps them for each thread (its ABI, 2.2.2).
struct Exceptions {
  void* caught;
  unsigned int uncaught;
};

Exceptions& exceptions() {
  return *reinterpret_cast<Exceptions*>(abi::__cxa_get_globals());
}

}  // namespace

Stack::Stack(std::size_t bytes) : size_(bytes * kStackFactor) {
  std::vector<char*>& spare = spareStacks()[size_];
  if (!spare.empty()) {
    lowest_ = spare.back();
    spare.pop_back();
    return;
  }
  void* const place =
      mmap(nullptr, size_ + kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (place == MAP_FAILED) throw std::bad_alloc();
  mprotect(place, kPage, PROT_NONE);
  lowest_ = static_cast<char*>(place) + kPage;
}

Stack::~Stack() {
#ifdef SIMULATION_ASAN
  __asan_unpoison_memory_region(lowest_, size_);  // whoever was here may have been stopped in the middle
#endif
  spareStacks()[size_].push_back(lowest_);
}

Fiber::Fiber() : begun_(true) {
  pthread_attr_t attributes;
  __real_pthread_getattr_np(pthread_self(), &attributes);
  void* lowest = nullptr;
  pthread_attr_getstack(&attributes, &lowest, &size_);
  pthread_attr_destroy(&attributes);
  lowest_ = static_cast<char*>(lowest);
}

Fiber::Fiber(std::size_t stackBytes, void (*entry)()) : stack_(new Stack(stackBytes)), entry_(entry) {
  lowest_ = stack_->lowest();
  size_ = stack_->size();
  getcontext(&context_);
  context_.uc_stack.ss_sp = lowest_;
  context_.uc_stack.ss_size = size_;
  context_.uc_link = nullptr;
  const auto self = reinterpret_cast<std::uintptr_t>(this);
  makecontext(&context_, reinterpret_cast<void (*)()>(&Fiber::enter), 2, static_cast<unsigned int>(self >> 32U),
              static_cast<unsigned int>(self));
}

Fiber::~Fiber() {
  delete stack_;
}

void Fiber::enter(unsigned int high, unsigned int low) {
#ifdef SIMULATION_ASAN
  __sanitizer_finish_switch_fiber(nullptr, nullptr, nullptr);
#endif
  exceptions() = {};
  // NOLINTNEXTLINE(performance-no-int-to-ptr): makecontext(3) passes nothing wider than int.
  reinterpret_cast<Fiber*>(static_cast<std::uintptr_t>(high) << 32U | low)->entry_();
}

#ifdef SIMULATION_ASAN

void Fiber::leaveFor(Fiber& to, bool last) {
  __sanitizer_start_switch_fiber(last ? nullptr : &sanitizerStack_, to.lowest_, to.size_);
  swapcontext(&context_, &to.context_);
  __sanitizer_finish_switch_fiber(sanitizerStack_, nullptr, nullptr);
}

#else

// After the first time without ucontext, whose functions make a system call each.
void Fiber::leaveFor(Fiber& to, bool) {
  if (_setjmp(place_) != 0) return;
  if (to.begun_) _longjmp(to.place_, 1);
  to.begun_ = true;
  setcontext(&to.context_);
}

#endif

void Fiber::switchTo(Fiber& from, Fiber& to, bool last) {
  const Exceptions handled = exceptions();
  const int savedErrno = errno;
  from.leaveFor(to, last);
  exceptions() = handled;
  errno = savedErrno;
}

}  // namespace simulation
