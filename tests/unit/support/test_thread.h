// A thread for tests.
#pragma once

#include <functional>
#include <string>
#include <utility>

#include "support/thread.h"

/// A thread whose body a test writes.
class TestThread : public ZEL::Thread {
 public:
  explicit TestThread(std::function<void(TestThread&)> body, const std::string& name = "TEST")
      : Thread(name, true), body_(std::move(body)) {}
  ~TestThread() override { stop(); }

  void run() override { body_(*this); }

  using ZEL::Thread::callUnlessCanceled;

 private:
  const std::function<void(TestThread&)> body_;
};
