// What the program writes to its log, where a test can look at it.
#pragma once

#include <string>

#include "tests/unit/harness/memory_file.h"

/// While it lives, standard error (the log's channel in unit tests) goes to a file of its own and the print level is
/// the given one; afterwards the level is that of the program's start again. One at a time.
class CapturedLog {
 public:
  explicit CapturedLog(int printLevel);
  ~CapturedLog();
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;

  /// What was written so far. Other threads may go on writing.
  std::string text() const { return file_.text(); }

 private:
  MemoryFile file_;
  int before_;
};
