// All documents together, and whatever else a run may meet.

#include "tests/fuzz/harness/documents.h"
#include "tests/fuzz/harness/management_run.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  furnishRouter(data, size, {true, true, true, true, true, true});
  superviseRun();
  return 0;
}
