#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "agent/config/Configuration.h"

namespace Agent {

/// How much memory a running agent comes to take at most, whatever is heard and asked: when every
/// limit of a configuration is reached at once, in the form that takes most. In bytes.
struct MemoryBound {
  /// What is learned and reported, on the heap, with what a heap loses that was used for something
  /// else before.
  std::uint64_t learned = 0;
  /// That, what hosts last sent, the file of the next start, the program itself, its interfaces and
  /// its clients.
  std::uint64_t total = 0;
  /// Why there is no bound, as words: the limits that are 0. Empty if there is one.
  std::vector<std::string> unlimited;
};

MemoryBound memoryBound(Configuration const& configuration);

/// The total as words: "at most 61 MB of memory", or why it has no bound.
std::string words(MemoryBound const& bound);

}  // namespace Agent
