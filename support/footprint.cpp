#include "support/footprint.h"

#include <malloc.h>

#include <cstdlib>

namespace ZEL {

void keepFootprintSmall() {
#ifdef M_ARENA_MAX
  mallopt(M_ARENA_MAX, 1);
#endif
  unsetenv("LD_BIND_NOW");
}

FreeMemoryReturn::~FreeMemoryReturn() {
#ifdef __GLIBC__
  malloc_trim(0);
#endif
}

}  // namespace ZEL
