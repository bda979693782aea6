// What a process of the program can write besides its heap: its globals.
//
// The program is linked once and there are many processes, one at a time being loaded. A process that is not has its
// globals in its Image; image.ld.in is what gives them places that can be copied as a whole.
#pragma once

#include <vector>

namespace simulation {

class Image {
 public:
  /// The globals as they are before any code of the program has run.
  Image();

  /// Has the program's globals be these.
  void load() const;
  /// Keeps what the program's globals are now.
  void keep();

  /// Runs the initialisers of the globals that are loaded.
  static void initialise();

 private:
  std::vector<char> bytes_;
};

}  // namespace simulation
