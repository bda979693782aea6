// A flow of control with a stack of its own, which runs when it is switched to.
#pragma once

#include <setjmp.h>
#include <ucontext.h>

#include <cstddef>
#include <functional>

namespace simulation {

/// A stack with a page below it that nothing may touch. Stacks that are given back are used again.
class Stack {
 public:
  explicit Stack(std::size_t bytes);
  ~Stack();
  Stack(const Stack&) = delete;
  Stack& operator=(const Stack&) = delete;

  char* lowest() const { return lowest_; }
  std::size_t size() const { return size_; }

 private:
  char* lowest_ = nullptr;
  std::size_t size_;
};

class Fiber {
 public:
  /// The flow that calls this.
  Fiber();
  /// One that will run `entry`, which must not return.
  Fiber(std::size_t stackBytes, void (*entry)());
  ~Fiber();
  Fiber(const Fiber&) = delete;
  Fiber& operator=(const Fiber&) = delete;

  /// Goes on in `to`; returns when somebody switches back. `last` says that nobody will.
  static void switchTo(Fiber& from, Fiber& to, bool last = false);

  char* stackLowest() const { return lowest_; }
  std::size_t stackSize() const { return size_; }

 private:
  static void enter(unsigned int high, unsigned int low);
  void leaveFor(Fiber& to, bool last);

  Stack* stack_ = nullptr;
  char* lowest_ = nullptr;
  std::size_t size_ = 0;
  void (*entry_)() = nullptr;
  ucontext_t context_{};
  jmp_buf place_{};
  bool begun_ = false;
  [[maybe_unused]] void* sanitizerStack_ = nullptr;
};

}  // namespace simulation
