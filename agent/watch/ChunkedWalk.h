#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace Agent {

/// What is left of a walk over the members that a collection had when the walk began, made piece by
/// piece while members come and go. Each that stays is visited at least once.
class ChunkedWalk {
 public:
  /// @param members how many there are.
  explicit ChunkedWalk(std::uint32_t members) : left_(members) {}

  /// Visits the keys of as many as `steps`, which it counts down. Returns whether there are more.
  template <class Members, class Visit>
  bool advance(Members const& members, std::size_t& steps, Visit visit) {
    // From the last place to the first: the last member takes the place of one that goes.
    left_ = std::min(left_, members.size());
    for (; left_ > 0 && steps > 0; --steps) visit(members.keyAt(--left_));
    return left_ > 0;
  }

 private:
  std::uint32_t left_;  // those in the places below it
};

/// Removes as many members as `steps`, which it counts down. Returns whether there are more.
template <class Members>
bool delSome(Members& members, std::size_t& steps) {
  for (; !members.empty() && steps > 0; --steps) members.del(members.keyAt(members.size() - 1));
  return !members.empty();
}

}  // namespace Agent
