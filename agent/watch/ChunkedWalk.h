#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace Agent {

/// A walk in pieces over the members that a collection has when the walk begins. Members may come
/// and go between the pieces; each that stays is visited at least once.
class ChunkedWalk {
 public:
  /// @param members how many there are.
  explicit ChunkedWalk(std::uint32_t members) : left_(members) {}

  /// Visits the keys of up to `steps` members, and takes their number off `steps`. Returns whether
  /// there are more.
  template <class Members, class Visit>
  bool advance(Members const& members, std::size_t& steps, Visit visit) {
    // From the last place to the first: the last member takes the place of one that goes.
    left_ = std::min(left_, members.size());
    for (; left_ > 0 && steps > 0; --steps) visit(members.keyAt(--left_));
    return left_ > 0;
  }

 private:
  std::uint32_t left_;  // members in the places below it are not visited yet
};

/// Removes up to `steps` members, and takes their number off `steps`. Returns whether there are
/// more.
template <class Members>
bool delSome(Members& members, std::size_t& steps) {
  for (; !members.empty() && steps > 0; --steps) members.del(members.keyAt(members.size() - 1));
  return !members.empty();
}

}  // namespace Agent
