#include "tests/unit/harness/private_system.h"

#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>

#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <system_error>
#include <utility>

#include "tests/unit/harness/child_process.h"
#include "tests/unit/harness/waiting.h"

namespace {

constexpr std::uint16_t kDnsPort = 53;
constexpr std::size_t kLargestDatagram = 1 << 17;

/// Takes the result of a system call; throws when it is a failure.
int checked(int result, const char* what) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), what);
  return result;
}

void unshareMounts(int others) {
  checked(unshare(CLONE_NEWNS | others), "unshare");
  checked(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "mount /");
}

void setLoopbackUp() {
  const int descriptor = checked(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket");
  ifreq request{};
  std::string_view("lo").copy(request.ifr_name, sizeof request.ifr_name - 1);
  request.ifr_flags = IFF_UP;
  checked(ioctl(descriptor, SIOCSIFFLAGS, &request), "SIOCSIFFLAGS");
  close(descriptor);
}

int boundSocket(int family, const sockaddr* address, socklen_t size) {
  const int descriptor = checked(socket(family, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket");
  checked(bind(descriptor, address, size), "bind");
  return descriptor;
}

std::optional<std::string> receiveWith(int descriptor, int flags) {
  std::string datagram(kLargestDatagram, '\0');
  const ssize_t size = recv(descriptor, datagram.data(), datagram.size(), flags);
  if (size < 0) return std::nullopt;
  datagram.resize(static_cast<std::size_t>(size));
  return datagram;
}

}  // namespace

std::string whyNoNamespaces() {
  const ChildEnd end = runInChild([] { unshareMounts(CLONE_NEWNET); });
  return end.exitedWith(0) ? "" : "needs mount and network namespaces of its own: " + end.out;
}

void enterPrivateMounts() {
  unshareMounts(0);
  for (const char* folder : {"/dev", "/var/run"}) checked(mount("none", folder, "tmpfs", 0, nullptr), folder);
}

void enterPrivateNetwork() {
  unshareMounts(CLONE_NEWNET);
  setLoopbackUp();
}

void replaceFile(const std::string& path, const std::string& text) {
  std::string name = "/tmp/replacementXXXXXX";
  const int descriptor = checked(mkostemp(name.data(), O_CLOEXEC), "mkostemp");
  checked(static_cast<int>(write(descriptor, text.data(), text.size())), "write");
  checked(fchmod(descriptor, 0644), "fchmod");
  close(descriptor);
  close(open(path.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC, 0644));  // a mount needs a file to lie over
  const int mounted = mount(name.c_str(), path.c_str(), nullptr, MS_BIND, nullptr);
  unlink(name.c_str());  // the mount keeps the file
  checked(mounted, path.c_str());
}

DatagramSocket DatagramSocket::ofSystemLog() {
  unlink(_PATH_LOG);
  sockaddr_un address{AF_UNIX, _PATH_LOG};
  return DatagramSocket(boundSocket(AF_UNIX, reinterpret_cast<const sockaddr*>(&address), sizeof address));
}

DatagramSocket DatagramSocket::ofNameServer() {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(kDnsPort);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return DatagramSocket(boundSocket(AF_INET, reinterpret_cast<const sockaddr*>(&address), sizeof address));
}

DatagramSocket::DatagramSocket(DatagramSocket&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

DatagramSocket::~DatagramSocket() {
  if (descriptor_ >= 0) close(descriptor_);
}

std::optional<std::string> DatagramSocket::receive() const {
  pollfd entry{descriptor_, POLLIN, 0};
  poll(&entry, 1, static_cast<int>(std::chrono::milliseconds(kDeadline).count()));
  return receiveNow();
}

std::optional<std::string> DatagramSocket::receiveNow() const {
  return receiveWith(descriptor_, MSG_DONTWAIT);
}
