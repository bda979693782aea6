// The connection to the system log.
#pragma once

#include <string>

namespace ZEL {

/// Sends entries to the system log's socket ("/dev/log", datagrams) as syslog(3) does, in the layout of RFC 3164, with
/// one difference that a daemon needs: a system log that has stopped reading cannot stop the program. An entry that
/// finds no room within a second is lost, and so are the next ones, without waiting, until there is room again. A
/// system log that was restarted is found again.
///
/// The caller sees to it that one thread at a time is in here. There is no destructor: entries are written until the
/// process is gone.
class SystemLog {
 public:
  /// Connects, and sets what every entry carries: the ident, and the option (LOG_PID; the others concern ways of
  /// writing that this one does not have) and facility words of openlog(3), where a facility of 0 is LOG_USER. False,
  /// with everything as before, when nothing listens.
  bool open(std::string const& ident, int option, int facility);

  /// Writes one entry; `priority` is the level of syslog(3), LOG_ERR and so on. Texts beyond 64 KiB are cut.
  void write(int priority, std::string const& text);

 private:
  bool connectAgain();
  bool send(std::string const& entry);
  bool sendWaiting(std::string const& entry);

  int descriptor_ = -1;
  bool blocked_ = false;
  int option_ = 0;
  int facility_ = 0;
  // Never freed, see above.
  std::string& ident_ = *new std::string;
};

}  // namespace ZEL
