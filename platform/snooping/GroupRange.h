#pragma once

#include <cstdint>

#include "framework/types/IpAddr.h"

namespace Bridging::IgmpSnooping {

/// Addresses that share a prefix, or none at all.
class GroupRange {
 public:
  constexpr GroupRange() = default;

  /// @param length of the prefix, up to 32; what of the address is beyond it is ignored.
  constexpr GroupRange(Wirex::IpAddr address, unsigned length)
      : isEmpty_(false),
        mask_(length == 0 ? 0 : UINT32_MAX << (32 - length)),
        prefix_(address.value() & mask_) {}

  constexpr bool contains(Wirex::IpAddr address) const {
    return !isEmpty_ && (address.value() & mask_) == prefix_;
  }

  friend constexpr bool operator==(GroupRange const&, GroupRange const&) = default;

 private:
  bool isEmpty_ = true;
  std::uint32_t mask_ = 0;
  std::uint32_t prefix_ = 0;
};

}  // namespace Bridging::IgmpSnooping
