#pragma once

#include <compare>
#include <cstdint>
#include <iosfwd>

#include "framework/kel/Export.h"

namespace Bridging {

/// An IEEE 802.1Q VLAN number, 1 to 4094. No object of this type ever holds another value.
class KEL_EXPORT VlanId {
 public:
  static constexpr std::uint16_t min = 1;
  static constexpr std::uint16_t max = 4094;

  constexpr VlanId() noexcept = default;

  /// Throws Kel::RangeException outside min..max.
  constexpr explicit VlanId(std::uint16_t value) : value_(value) {
    if (value < min || value > max) refuse();
  }

  /// Tests the value as a 16-bit number, so 65537 is VLAN 1, and throws as the constructor does.
  static VlanId fromInteger(std::int64_t value) {
    return VlanId(static_cast<std::uint16_t>(value));
  }

  constexpr std::uint16_t value() const noexcept { return value_; }
  constexpr std::uint32_t hash() const noexcept { return value_; }

  friend constexpr auto operator<=>(VlanId, VlanId) noexcept = default;

 private:
  [[noreturn]] static void refuse();

  std::uint16_t value_ = min;
};

KEL_EXPORT std::ostream& operator<<(std::ostream& out, VlanId vlan);

}  // namespace Bridging
