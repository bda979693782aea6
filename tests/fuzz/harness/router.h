// The router as the program finds it and leaves it, in memory: the functions through which the program acts are
// replaced (acting.cpp, store.cpp, web_client.cpp, name_server.cpp), so that nothing is run, written, forked, resolved
// or sent.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <map>
#include <string>
#include <vector>

/// One line of the log; every level is printed.
struct Message {
  int level;
  std::string text;
};

bool operator==(const Message& a, const Message& b);

/// What the program did.
struct Deeds {
  std::vector<std::string> commands;         ///< run through the shell, in their order
  std::map<std::string, std::string> files;  ///< contents by path
  std::map<std::string, mode_t> modes;       ///< set by chmod(2), by path
  std::vector<Message> log;
  int children = 0;  ///< forked
  int pauses = 0;    ///< sleep(3)
};

bool operator==(const Deeds& a, const Deeds& b);

struct Router {
  std::map<std::string, std::string> answers;  ///< of the configuration API, by URL; where there is none, no API is
  std::size_t chunk = 0;                       ///< bytes in which answers come; 0 for all at once
  std::string listing;                         ///< what `ip tunnel` prints
  int listingStatus = 0;
  std::string unwritable;  ///< no file can be opened whose path contains this; "" for none
  bool fullDisk = false;   ///< nothing fits into the files that are written whole

  Deeds deeds;

  /// Whether the file can be opened for writing.
  bool canOpen(const std::string& path) const;
};

extern Router router;
