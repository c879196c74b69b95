#pragma once

namespace Agent::Soak {

/// How many pieces of memory the program holds.
long long liveAllocations();

/// How many bytes these take, with what the allocator keeps of each for itself.
long long liveBytes();

/// The most that these were since the program began, or since this was told.
long long mostBytes();
void mostBytesAreLive();

/// While it lives, there is no memory to be had.
class NoMemory {
 public:
  NoMemory();
  NoMemory(NoMemory const&) = delete;
  NoMemory& operator=(NoMemory const&) = delete;
  ~NoMemory();
};

}  // namespace Agent::Soak
