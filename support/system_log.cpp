#include "support/system_log.h"

#include <paths.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <ctime>

namespace ZEL {
namespace {

constexpr std::size_t kLongestText = 64 * std::size_t{1024};
constexpr int kPatienceMilliseconds = 1000;

/// A socket connected to the system log, or -1.
int connectedSocket() {
  const int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (descriptor < 0) return -1;
  sockaddr_un address{AF_UNIX, _PATH_LOG};
  if (connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) return descriptor;
  close(descriptor);
  return -1;
}

/// "Oct 11 22:14:15", the time stamp of RFC 3164, in local time.
std::string timeStamp() {
  const time_t now = time(nullptr);
  tm parts{};
  localtime_r(&now, &parts);
  std::array<char, 32> text{};
  strftime(text.data(), text.size(), "%h %e %T", &parts);
  return text.data();
}

}  // namespace

bool SystemLog::open(std::string const& ident, int option, int facility) {
  if (!connectAgain()) return false;
  ident_ = ident;
  option_ = option;
  facility_ = facility != 0 ? facility : LOG_USER;
  return true;
}

void SystemLog::write(int priority, std::string const& text) {
  std::string entry = "<" + std::to_string(facility_ | priority) + ">" + timeStamp() + " " + ident_;
  if ((option_ & LOG_PID) != 0) entry += "[" + std::to_string(getpid()) + "]";
  entry.append(": ").append(text, 0, kLongestText);
  // A restarted system log has another socket behind the same path.
  if (!sendWaiting(entry) && connectAgain()) sendWaiting(entry);
}

bool SystemLog::connectAgain() {
  const int descriptor = connectedSocket();
  if (descriptor < 0) return false;
  if (descriptor_ >= 0) close(descriptor_);
  descriptor_ = descriptor;
  return true;
}

bool SystemLog::send(std::string const& entry) {
  return ::send(descriptor_, entry.data(), entry.size(), MSG_NOSIGNAL) >= 0;
}

/// False only when nothing listens any more; an entry for which there is no room is given up.
bool SystemLog::sendWaiting(std::string const& entry) {
  bool sent = send(entry);
  if (!sent && errno == EAGAIN && !blocked_) {
    pollfd room{descriptor_, POLLOUT, 0};
    while (poll(&room, 1, kPatienceMilliseconds) < 0 && errno == EINTR) {
    }
    sent = send(entry);
  }
  blocked_ = !sent && errno == EAGAIN;
  return sent || blocked_;
}

}  // namespace ZEL
