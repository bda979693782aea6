#include "tests/unit/harness/captured_log.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include "support/logger.h"

CapturedLog::CapturedLog(int printLevel) : before_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0)) {
  fflush(stderr);
  dup2(file_.descriptor(), STDERR_FILENO);
  ZEL::Logger::setPrintLevel(printLevel, false);
}

CapturedLog::~CapturedLog() {
  ZEL::Logger::setPrintLevel(ZEL::Logger::PrintLevel::ERROR_LEVEL, false);
  fflush(stderr);
  dup2(before_, STDERR_FILENO);
  close(before_);
}
