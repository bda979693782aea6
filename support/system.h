// Commands and files of the system. Commands are for the main thread, reading is for any.
#pragma once

#include <string>

namespace ZEL {

class System {
 public:
  /// Runs a command line through the shell, with the shell's own output going where the program's goes, and returns the
  /// status as system(3) does. The caller waits until the command has ended.
  static int run(std::string const& command);

  /// Runs a command line through the shell and collects its standard output. Returns its exit status (0: success), 128
  /// and the signal's number when a signal ended it, or -1 when it could not be run or not be read to its end.
  static int cmd(std::string const& command, std::string& output);

  /// Reads a whole file. Returns 0, or the errno of what failed; `contents` is set on success only.
  static int readFile(std::string const& path, std::string& contents);
};

}  // namespace ZEL
