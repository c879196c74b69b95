#include "tests/agent/soak/Allocations.h"

#include <algorithm>
#include <cstdlib>
#include <malloc.h>
#include <new>

namespace {

constexpr long long ofAllocator = sizeof(std::size_t);

long long live = 0;
long long bytes = 0;
long long most = 0;
bool failing = false;

long long sizeOf(void* memory) {
  return static_cast<long long>(malloc_usable_size(memory)) + ofAllocator;
}

/// Null where there is none.
void* allocated(std::size_t size) {
  void* const memory = failing ? nullptr : std::malloc(size);
  if (!memory) return nullptr;
  ++live;
  bytes += sizeOf(memory);
  most = std::max(most, bytes);
  return memory;
}

void released(void* memory) {
  if (!memory) return;
  --live;
  bytes -= sizeOf(memory);
}

}  // namespace

// Those of the whole program, shared libraries included. Not inlined: the compiler could not tell
// any more that they belong together.
[[gnu::noinline]] void* operator new(std::size_t size) {
  void* const memory = allocated(size);
  if (!memory) throw std::bad_alloc();
  return memory;
}
[[gnu::noinline]] void* operator new(std::size_t size, std::nothrow_t const& /*tag*/) noexcept {
  return allocated(size);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  released(memory);
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  released(memory);
  std::free(memory);
}

namespace Agent::Soak {

long long liveAllocations() {
  return live;
}

long long liveBytes() {
  return bytes;
}

long long mostBytes() {
  return most;
}

void mostBytesAreLive() {
  most = bytes;
}

NoMemory::NoMemory() {
  failing = true;
}
NoMemory::~NoMemory() {
  failing = false;
}

}  // namespace Agent::Soak
