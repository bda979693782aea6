// Descriptors in place of the kernel's, under the names that --wrap gives (ld(1)): eventfd(2), the system log's socket,
// standard error, and what is opened for reading.

#include <dirent.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>
#include <utility>

#include "simulation/process.h"
#include "simulation/rules.h"
#include "simulation/world.h"

namespace simulation {
namespace {

/// The lowest number of a descriptor that is not one of the standard streams.
constexpr int kFirst = 3;

int opened(Descriptor::Kind kind) {
  if (world->faults.has(FaultKind::kNoDescriptor)) {
    errno = EMFILE;
    return -1;
  }
  auto& descriptors = currentProcess()->descriptors;
  auto free = std::find_if(descriptors.begin(), descriptors.end(),
                           [](const Descriptor& one) { return one.kind == Descriptor::Kind::kClosed; });
  if (free == descriptors.end()) free = descriptors.insert(free, Descriptor());
  *free = Descriptor();
  free->kind = kind;
  return kFirst + static_cast<int>(free - descriptors.begin());
}

Descriptor& descriptorOf(int number, Descriptor::Kind kind) {
  auto& descriptors = currentProcess()->descriptors;
  const auto index = static_cast<std::size_t>(number - kFirst);
  if (number < kFirst || index >= descriptors.size() || descriptors[index].kind != kind)
    violate("descriptor " + std::to_string(number) + " is used, which is none of that kind");
  return descriptors[index];
}

bool isLog(int number) {
  const auto& descriptors = currentProcess()->descriptors;
  const auto index = static_cast<std::size_t>(number - kFirst);
  return number >= kFirst && index < descriptors.size() && descriptors[index].kind == Descriptor::Kind::kLog;
}

/// Waits for the event, or the time, or a signal. The main thread does so in the daemon's loop and nowhere else.
int pollEvent(int number, int milliseconds) {
  Process& process = *currentProcess();
  const Time begin = timeNow();
  const Time deadline = milliseconds < 0 ? kForever : begin + milliseconds * kMillisecond;
  const Descriptor& event = descriptorOf(number, Descriptor::Kind::kEvent);
  ruleIdleBegins(process);
  Scheduler::End why = Scheduler::End::kWoken;
  while (event.counter == 0 && why == Scheduler::End::kWoken)
    why = scheduler->wait(&process.descriptors, deadline, "event");
  ruleIdleEnds(process, begin, event.counter == 0 && why == Scheduler::End::kTime);
  if (event.counter != 0) return 1;
  if (why == Scheduler::End::kTime) return 0;
  takeSignals();
  errno = EINTR;
  return -1;
}

int pollRoomInLog(int milliseconds) {
  if (const Fault* const slow = world->faults.find(FaultKind::kLogSlow)) {
    spend(slow->amount * kMillisecond, "room in the log");
    world->hasRoomInLog = true;
    return 1;
  }
  if (!world->faults.has(FaultKind::kLogDeaf)) return 1;
  spend(milliseconds * kMillisecond, "room in the log");
  return 0;
}

ssize_t sendToLog(int number, const std::string& entry) {
  place();
  const Descriptor& log = descriptorOf(number, Descriptor::Kind::kLog);
  if (!log.connected || log.generation != world->logGeneration || world->faults.has(FaultKind::kLogAway)) {
    errno = ECONNREFUSED;
    return -1;
  }
  const bool hasRoom = std::exchange(world->hasRoomInLog, false) || !world->faults.has(FaultKind::kLogSlow);
  if (!hasRoom || world->faults.has(FaultKind::kLogDeaf)) {
    errno = EAGAIN;
    return -1;
  }
  const std::size_t text = entry.find(": ");
  sayLine(text == std::string::npos ? entry : entry.substr(text + 2));
  return static_cast<ssize_t>(entry.size());
}

}  // namespace
}  // namespace simulation

using namespace simulation;

extern "C" {

int __real_eventfd(unsigned int, int);
int __real_poll(pollfd*, nfds_t, int);
ssize_t __real_read(int, void*, size_t);
ssize_t __real_write(int, const void*, size_t);
int __real_close(int);
int __real_socket(int, int, int);
int __real_connect(int, const sockaddr*, socklen_t);
ssize_t __real_send(int, const void*, size_t, int);
FILE* __real_fopen64(const char*, const char*);
DIR* __real_opendir(const char*);

int __wrap_eventfd(unsigned int initial, int flags) {
  if (!isInside()) return __real_eventfd(initial, flags);
  const Outside outside;
  return opened(Descriptor::Kind::kEvent);
}

int __wrap_poll(pollfd* entries, nfds_t number, int milliseconds) {
  if (!isInside()) return __real_poll(entries, number, milliseconds);
  const Outside outside;
  place();
  entries->revents = entries->events;
  if (entries->fd == STDERR_FILENO) return 1;
  return isLog(entries->fd) ? pollRoomInLog(milliseconds) : pollEvent(entries->fd, milliseconds);
}

ssize_t __wrap_read(int number, void* buffer, size_t size) {
  if (!isInside()) return __real_read(number, buffer, size);
  const Outside outside;
  place();
  Descriptor& event = descriptorOf(number, Descriptor::Kind::kEvent);
  if (event.counter == 0) {
    errno = EAGAIN;
    return -1;
  }
  *static_cast<std::uint64_t*>(buffer) = event.counter;
  event.counter = 0;
  return sizeof event.counter;
}

ssize_t __wrap_write(int number, const void* bytes, size_t size) {
  if (!isInside()) return __real_write(number, bytes, size);
  const Outside outside;
  place();
  if (number == STDERR_FILENO) {
    sayLine(std::string(static_cast<const char*>(bytes), size));
    return static_cast<ssize_t>(size);
  }
  Process& process = *currentProcess();
  descriptorOf(number, Descriptor::Kind::kEvent).counter += *static_cast<const std::uint64_t*>(bytes);
  if (scheduler->current().handlers == 0) ruleRequest(process);
  scheduler->wakeAll(&process.descriptors);
  place();
  return sizeof(std::uint64_t);
}

int __wrap_close(int number) {
  if (!isInside()) return __real_close(number);
  const Outside outside;
  auto& descriptors = currentProcess()->descriptors;
  const auto index = static_cast<std::size_t>(number - kFirst);
  if (number < kFirst || index >= descriptors.size() || descriptors[index].kind == Descriptor::Kind::kClosed)
    violate("descriptor " + std::to_string(number) + " is closed, which is not open");
  descriptors[index] = Descriptor();
  return 0;
}

int __wrap_socket(int family, int type, int protocol) {
  if (!isInside()) return __real_socket(family, type, protocol);
  const Outside outside;
  return opened(Descriptor::Kind::kLog);
}

int __wrap_connect(int number, const sockaddr* address, socklen_t size) {
  if (!isInside()) return __real_connect(number, address, size);
  const Outside outside;
  Descriptor& log = descriptorOf(number, Descriptor::Kind::kLog);
  if (world->faults.has(FaultKind::kLogAway)) {
    errno = ECONNREFUSED;
    return -1;
  }
  log.connected = true;
  log.generation = world->logGeneration;
  return 0;
}

ssize_t __wrap_send(int number, const void* bytes, size_t size, int flags) {
  if (!isInside()) return __real_send(number, bytes, size, flags);
  const Outside outside;
  return sendToLog(number, std::string(static_cast<const char*>(bytes), size));
}

/// fopen(3), under the name that it has where offsets are to have 64 bits.
FILE* __wrap_fopen64(const char* path, const char* mode) {
  if (!isInside()) return __real_fopen64(path, mode);
  const Outside outside;
  place();
  const auto file = world->files.find(path);
  if (file == world->files.end() || world->faults.has(FaultKind::kNoDescriptor)) {
    errno = file == world->files.end() ? ENOENT : EMFILE;
    return nullptr;
  }
  FILE* const stream = tmpfile();
  fwrite(file->second.text.data(), 1, file->second.text.size(), stream);
  rewind(stream);
  return stream;
}

DIR* __wrap_opendir(const char* path) {
  if (!isInside()) return __real_opendir(path);
  const Outside outside;
  if (world->faults.has(FaultKind::kNoDescriptor)) {
    errno = EMFILE;
    return nullptr;
  }
  if (world->directories.count(path) > 0) return __real_opendir("/");
  errno = ENOENT;
  return nullptr;
}

}  // extern "C"
