// What keeps the process small on routers that have little memory.
#pragma once

namespace ZEL {

/// To be called once, before there is a second thread or a child.
///
/// The threads share one allocator arena: the GNU C library would give them up to eight for each processor, each with
/// 64 MB of addresses (1 MB on 32-bit systems) and pages of its own, which pays only where threads allocate all the
/// time; see M_ARENA_MAX in mallopt(3).
///
/// LD_BIND_NOW, with which the service unit has the loader bind the symbols of this program early (ld.so(8)), is
/// removed from the environment, so that the programs that are run are loaded as ever.
void keepFootprintSmall();

/// At its end, gives the kernel all memory that the allocator holds free. Otherwise the allocator keeps whatever lies
/// below something that is still in use (malloc_trim(3)), and a run's documents are followed by its monitors.
class FreeMemoryReturn {
 public:
  FreeMemoryReturn() = default;
  ~FreeMemoryReturn();
  FreeMemoryReturn(const FreeMemoryReturn&) = delete;
  FreeMemoryReturn& operator=(const FreeMemoryReturn&) = delete;
};

}  // namespace ZEL
