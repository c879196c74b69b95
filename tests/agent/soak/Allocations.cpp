#include "tests/agent/soak/Allocations.h"

#include <cstdlib>
#include <new>

namespace {

long long live = 0;

}  // namespace

// Those of the whole program, shared libraries included. Not inlined: the compiler could not tell
// any more that they belong together.
[[gnu::noinline]] void* operator new(std::size_t size) {
  void* const memory = std::malloc(size);
  if (!memory) throw std::bad_alloc();
  ++live;
  return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  if (memory) --live;
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  if (memory) --live;
  std::free(memory);
}

namespace Agent::Soak {

long long liveAllocations() {
  return live;
}

}  // namespace Agent::Soak
