// Tests that need a process of their own: because it ends, or because it changes what processes cannot change back.
#pragma once

#include <functional>
#include <iosfwd>
#include <string>

/// How a child ended (`status` is that of waitpid(2)) and what it wrote.
struct ChildEnd {
  int status;
  std::string out;
  std::string err;

  bool exitedWith(int code) const;
  bool killedBy(int signal) const;
};

/// Runs `body` in a forked child and waits for its end. A child whose body returns exits with 0, or with 1 when an
/// assertion failed in it; one that throws exits with 2; one that hangs is ended by SIGALRM after a minute or two.
ChildEnd runInChild(const std::function<void()>& body);

/// The same, as a check: the test fails, and shows what the child wrote, unless the child exits with 0.
void checkInChild(const std::function<void()>& body);

std::ostream& operator<<(std::ostream& stream, const ChildEnd& end);
