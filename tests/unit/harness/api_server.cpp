#include "tests/unit/harness/api_server.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace {

constexpr const char* kFolder = "/var/run/api";
constexpr sockaddr_un kAddress{AF_UNIX, "/var/run/api/http.sock"};

int listeningSocket() {
  const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  mkdir(kFolder, 0755);
  if (bind(descriptor, reinterpret_cast<const sockaddr*>(&kAddress), sizeof kAddress) != 0 ||
      listen(descriptor, SOMAXCONN) != 0)
    throw std::system_error(errno, std::generic_category(), kAddress.sun_path);
  return descriptor;
}

/// What a request asks for: "GET TARGET HTTP/1.1" and so on, up to an empty line. "" when the client has gone.
std::string receiveTarget(int connection) {
  std::string request;
  std::array<char, 4096> buffer{};
  while (request.find("\r\n\r\n") == std::string::npos) {
    const ssize_t size = recv(connection, buffer.data(), buffer.size(), 0);
    if (size <= 0) return "";
    request.append(buffer.data(), static_cast<std::size_t>(size));
  }
  const std::size_t begin = request.find(' ') + 1;
  return request.substr(begin, request.find(' ', begin) - begin);
}

void sendAll(int connection, const std::string& text) {
  for (std::size_t sent = 0; sent < text.size();) {
    const ssize_t size = send(connection, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
    if (size < 0) return;
    sent += static_cast<std::size_t>(size);
  }
}

}  // namespace

ApiServer::ApiServer(Documents documents)
    : listener_(listeningSocket()), documents_(std::move(documents)), thread_([this] { serve(); }) {}

ApiServer::~ApiServer() {
  shutdown(listener_, SHUT_RDWR);  // which ends the accept(2)
  thread_.join();
  close(listener_);
}

void ApiServer::change(const std::string& target, const std::string& payload) {
  const std::lock_guard guard(mutex_);
  documents_[target] = payload;
}

std::vector<std::string> ApiServer::requests() const {
  const std::lock_guard guard(mutex_);
  return requests_;
}

void ApiServer::serve() {
  for (int connection = -1; (connection = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
    const std::string target = receiveTarget(connection);
    if (!target.empty()) {
      const std::string body = answer(target);
      sendAll(connection, "HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: " + std::to_string(body.size()) +
                              "\r\n\r\n" + body);
    }
    close(connection);
  }
}

std::string ApiServer::answer(const std::string& target) {
  const std::lock_guard guard(mutex_);
  requests_.push_back(target);
  const auto document = documents_.find(target);
  if (document == documents_.end() || document->second.empty()) return R"({"code":404})";
  return R"({"code":200,"result":)" + document->second + "}";
}
