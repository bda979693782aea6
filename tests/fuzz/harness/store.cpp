// The store of the IPsec files as it is, with its files in memory. It is the one place where the program opens a stream
// by itself, and the linker cannot replace a stream, whose functions are compiled into their caller.

#include <fstream>
#include <string>

#include "api/log_tag.h"
#include "ipsec/configuration_store.h"
#include "support/logger.h"
#include "support/system.h"
#include "tests/fuzz/harness/router.h"

namespace std {

class StreamInMemory {
 public:
  StreamInMemory(const string& path, ios::openmode mode) : path_(path), open_(router.canOpen(path)) {
    if (open_ && (mode & ios::trunc) != 0) router.deeds.files[path_].clear();
  }
  bool is_open() const { return open_; }
  void operator<<(const string& text) { router.deeds.files[path_] += text; }

 private:
  string path_;
  bool open_;
};

}  // namespace std

#define ofstream StreamInMemory
#include "ipsec/configuration_store.cpp"
