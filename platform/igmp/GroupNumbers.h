#pragma once

#include <cstdint>
#include <vector>

#include "framework/kel/Ptr.h"
#include "framework/kel/Table.h"
#include "framework/types/IpAddr.h"

namespace Igmp {

/// Numbers for groups, which several hosts share: a group that all of them report is looked up
/// once, and each host keeps its records by number. A number is given to another group once nobody
/// uses it.
class GroupNumbers : public Kel::PtrInterface {
 public:
  /// What no group has.
  static constexpr std::uint32_t none = UINT32_MAX;

  /// The group's number, or `none`.
  std::uint32_t find(Wirex::IpAddr group) const noexcept {
    std::uint32_t const at = numbers_.position(group);
    return at == numbers_.absent ? none : numbers_.mappedAt(at);
  }
  /// The same, found without hashing where the group still has its former number.
  std::uint32_t find(Wirex::IpAddr group, std::uint32_t formerNumber) const noexcept {
    bool const still = formerNumber < numbered_.size() && numbered_[formerNumber].uses > 0 &&
                       numbered_[formerNumber].group == group;
    return still ? formerNumber : find(group);
  }

  /// The group of a number that is in use.
  Wirex::IpAddr group(std::uint32_t number) const noexcept { return numbered_[number].group; }

  /// Uses the group's number once more, or one that is free.
  /// @param number the group's, or `none` if it has none
  std::uint32_t use(Wirex::IpAddr group, std::uint32_t number) {
    if (number == none) number = give(group);
    ++numbered_[number].uses;
    return number;
  }

  /// Uses a number once less; after the last time it is free for another group.
  void disuse(std::uint32_t number) {
    if (--numbered_[number].uses > 0) return;
    numbers_.takeAt(numbers_.position(numbered_[number].group));
    free_.push_back(number);
  }

 private:
  struct Numbered {
    Wirex::IpAddr group;
    std::uint32_t uses = 0;
  };

  std::uint32_t give(Wirex::IpAddr group) {
    std::uint32_t number = static_cast<std::uint32_t>(numbered_.size());
    if (free_.empty()) {
      numbered_.emplace_back();
    } else {
      number = free_.back();
      free_.pop_back();
    }
    numbered_[number].group = group;
    numbers_.add(group, number);
    return number;
  }

  Kel::Table<Wirex::IpAddr, std::uint32_t> numbers_;
  std::vector<Numbered> numbered_;
  std::vector<std::uint32_t> free_;
};

}  // namespace Igmp
