// The router as the program finds it and leaves it, in memory: what the program does is noted
// (effects/noting_effects.h), and what it asks is answered by functions that replace its own (web_client.cpp,
// name_server.cpp), so that nothing is run, written, forked, resolved or sent.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "effects/noting_effects.h"

/// One line of the log; every level is printed.
struct Message {
  int level;
  std::string text;
};

bool operator==(const Message& a, const Message& b);

/// What the program did. A file may be one that cannot be opened, and the disk may be full.
class Deeds : public NotingEffects {
 public:
  FileOutcome writeFile(const std::string& path, const std::string& text) override;
  FileOutcome appendFile(const std::string& path, const std::string& text) override;

  /// Run through the shell by the program itself, in their order.
  std::vector<std::string> commands() const;
  std::size_t count(Act::Kind kind) const;

  std::string unwritable;  ///< no file can be opened whose path contains this; "" for none
  bool fullDisk = false;   ///< nothing fits into any file

 private:
  bool canOpen(const std::string& path) const;
};

struct Router {
  std::map<std::string, std::string> answers;  ///< of the configuration API, by URL; where there is none, no API is
  std::size_t chunk = 0;                       ///< bytes in which answers come; 0 for all at once
  Answer listing;                              ///< of `ip tunnel`
  std::string unwritable;                      ///< as in Deeds
  bool fullDisk = false;

  Deeds deeds;
  std::vector<Message> log;

  /// Forgets what was done and logged.
  void forget();

  /// Whether a text of the API may have a null byte. The system takes a command or path up to there only, and then
  /// little of its form can be demanded.
  bool hasNullBytes() const;
};

/// Acts through its deeds from the start to the end of the process.
extern Router router;
