#include "core/single_instance.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "effects/effects.h"
#include "support/log_tag.h"
#include "support/logger.h"
#include "support/system.h"
#include "support/text.h"

const std::string instanceName = "TUNNEL_MANAGER";
const std::string pidFilePath = "/var/run/tunnel_mngr.pid";
sem_t* instanceSemaphore = nullptr;
std::atomic<int> pidWritten{false};
std::atomic<int> stopped{false};

namespace {

/// Sends SIGHUP to the process that the PID file names. A number that names no single process (0 and below, which
/// kill(2) takes for whole groups of them) is no process id.
bool signalProcessOfPidFile() {
  std::string contents;
  if (ZEL::System::readFile(pidFilePath, contents) != 0) {
    ZEL_LOG(WARNING, "[%s] Unable to read PID file [%s]", kLogTag, pidFilePath.c_str());
    return false;
  }
  int pid = 0;
  if (!ZEL::Text::parse(pid, ZEL::Text::trim(contents)) || pid <= 0) {
    ZEL_LOG(WARNING, "[%s] Unable to parse PID file [%s] result [%s]", kLogTag, pidFilePath.c_str(), contents.c_str());
    return false;
  }
  return effects().signalProcess(pid, SIGHUP);
}

}  // namespace

void signalRunningInstance() {
  sem_t* const semaphore = effects().createSemaphore(instanceName.c_str());
  if (semaphore != SEM_FAILED) {
    instanceSemaphore = semaphore;
    return;
  }
  ZEL_LOG(INFO, "[%s] Signaling to process for refresh.", kLogTag);
  if (signalProcessOfPidFile()) exit(0);
  ZEL_LOG(WARNING, "[%s] Unable to signal process. Exiting ...", kLogTag);
  pidWritten = true;  // the file of the instance that is gone is this one's to remove
  if (!stopped) cleanUp();
  exit(1);
}

void writePidFile() {
  if (effects().writeFile(pidFilePath, std::to_string(getpid()) + "\n") == FileOutcome::kNotOpened) {
    ZEL_LOG(WARNING, "[%s] Unable to write pid to file: %s", kLogTag, pidFilePath.c_str());
    return;
  }
  pidWritten = true;
}

void cleanUp() {
  const int savedErrno = errno;
  effects().removeSemaphore(instanceName.c_str());
  if (pidWritten.exchange(false)) effects().removeFile(pidFilePath.c_str());
  stopped = true;
  errno = savedErrno;
}

void closeInstanceSemaphore() {
  if (instanceSemaphore != nullptr) effects().closeSemaphore(instanceSemaphore);
  instanceSemaphore = nullptr;
}
