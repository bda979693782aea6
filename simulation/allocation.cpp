// The allocation functions of C++: the program's memory runs out when the world says so, its signal handlers must do
// without, and what it has given back does not keep what was in it.

#include <malloc.h>

#include <cstdlib>
#include <cstring>
#include <new>

#include "simulation/process.h"
#include "simulation/rules.h"
#include "simulation/world.h"

namespace {

constexpr int kFreed = 0xDB;

bool runsOut() {
  const simulation::Outside outside;
  const simulation::Thread& self = simulation::scheduler->current();
  if (self.handlers > 0) simulation::violate("a signal handler allocates memory");
  if (self.process->child != 0) return false;
  const simulation::Fault* const fault = simulation::world->faults.find(simulation::FaultKind::kNoMemory);
  if (fault == nullptr || &self != self.process->main) return false;
  if (simulation::world->chance.below(10000) >= static_cast<std::uint64_t>(fault->amount)) return false;
  simulation::ruleMemoryRefused(*self.process);
  return true;
}

void* allocated(std::size_t size) {
  if (simulation::isInside() && runsOut()) throw std::bad_alloc();
  void* const place = malloc(size == 0 ? 1 : size);
  if (place == nullptr) throw std::bad_alloc();
  return place;
}

void released(void* place) noexcept {
  if (place == nullptr) return;
#if !defined(__SANITIZE_ADDRESS__)
  memset(place, kFreed, malloc_usable_size(place));
  asm volatile("" : : "r"(place) : "memory");  // or the compiler sees that nobody will read it
#endif
  free(place);
}

}  // namespace

void* operator new(std::size_t size) {
  return allocated(size);
}
void* operator new[](std::size_t size) {
  return allocated(size);
}
void operator delete(void* place) noexcept {
  released(place);
}
void operator delete[](void* place) noexcept {
  released(place);
}
void operator delete(void* place, std::size_t) noexcept {
  released(place);
}
void operator delete[](void* place, std::size_t) noexcept {
  released(place);
}
