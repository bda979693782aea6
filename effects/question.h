// A command line whose standard output is wanted by a certain time. Main thread only.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>

/// Made by the parent, which then forks the child that becomes the command. Each has an end of the pipe between them.
class Question {
 public:
  Question();
  ~Question();
  Question(const Question&) = delete;
  Question& operator=(const Question&) = delete;

  /// False when the system had no pipe to give; nothing else can be done then.
  bool isOpen() const { return readEnd_ >= 0; }

  /// For the child: becomes the shell that runs the command, in a process group of its own. Returns when that failed.
  void become(const std::string& command) const;

  /// For the parent, once: as Effects::askWithin.
  int answer(pid_t child, std::chrono::milliseconds limit, std::string& output);

 private:
  void closeEnd(int& end);

  int readEnd_ = -1;
  int writeEnd_ = -1;
};
