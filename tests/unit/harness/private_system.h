// A child process's own view of the system: its own mounts and its own network. All of it is for the body of
// `runInChild`, and goes away with the child, but for what `replaceFile` says. What the system refuses is thrown as
// std::system_error.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>

/// Ends the test as skipped, with the reason, where processes may have no namespaces of their own.
#define SKIP_WITHOUT_NAMESPACES()                                                              \
  do {                                                                                         \
    if (const std::string reason = whyNoNamespaces(); !reason.empty()) GTEST_SKIP() << reason; \
  } while (false)

/// Why processes may have no namespaces of their own, or "" when they may.
std::string whyNoNamespaces();

/// Mounts that nobody else sees, and nothing in "/dev" and "/var/run": no system log and no API listens, no instance
/// has left its marks.
void enterPrivateMounts();

/// A network with nothing but the loopback interface, which is up, and mounts that nobody else sees.
void enterPrivateNetwork();

/// Lets a file have another text. Only after one of the above. Where there is no such file, the real system keeps an
/// empty one, which the text needs to lie over.
void replaceFile(const std::string& path, const std::string& text);

/// A bound datagram socket. Closed when it goes out of scope.
class DatagramSocket {
 public:
  /// What listens where the system log does; only after `enterPrivateMounts`.
  static DatagramSocket ofSystemLog();
  /// What listens where a name server at 127.0.0.1 does; only after `enterPrivateNetwork`.
  static DatagramSocket ofNameServer();

  DatagramSocket(DatagramSocket&& other) noexcept;
  DatagramSocket& operator=(DatagramSocket&&) = delete;
  DatagramSocket(const DatagramSocket&) = delete;
  DatagramSocket& operator=(const DatagramSocket&) = delete;
  ~DatagramSocket();

  /// The next datagram, for which it waits up to the tests' deadline, or nothing.
  std::optional<std::string> receive() const;
  /// The next datagram if there is one already.
  std::optional<std::string> receiveNow() const;

 private:
  explicit DatagramSocket(int descriptor) : descriptor_(descriptor) {}

  int descriptor_;
};
