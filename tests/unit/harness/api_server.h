// The router's configuration API, for the process of a test.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/// Answers the program's requests while it lives, one after the other, on a thread of its own. Only after
/// `enterPrivateMounts`, once in a process.
class ApiServer {
 public:
  /// The payloads, as JSON text, by what is asked for ("/api?fields=syslog"). What is not here has the status 404.
  using Documents = std::map<std::string, std::string>;

  explicit ApiServer(Documents documents);
  ~ApiServer();
  ApiServer(const ApiServer&) = delete;
  ApiServer& operator=(const ApiServer&) = delete;

  /// Has a document changed from now on; "" takes it away.
  void change(const std::string& target, const std::string& payload);

  /// What was asked for so far, in that order.
  std::vector<std::string> requests() const;

 private:
  void serve();
  std::string answer(const std::string& target);

  const int listener_;
  mutable std::mutex mutex_;  ///< guards what follows
  Documents documents_;
  std::vector<std::string> requests_;
  std::thread thread_;
};
