#pragma once

#include <cstdint>
#include <iosfwd>

#include "framework/kel/Export.h"
#include "framework/types/VlanId.h"

namespace Bridging {

/// The kinds of VLAN that private VLANs know. A primary VLAN is normal.
enum class VlanType : std::uint8_t { normal, isolated, community };

KEL_EXPORT std::ostream& operator<<(std::ostream& out, VlanType type);

/// The private-VLAN role of a VLAN. The default value means a normal or primary VLAN; any other
/// names the primary VLAN of a secondary one.
class KEL_EXPORT VlanTypeAndPrimaryVlan {
 public:
  constexpr VlanTypeAndPrimaryVlan() noexcept = default;
  constexpr VlanTypeAndPrimaryVlan(VlanType type, VlanId primaryVlan) noexcept
      : type_(type), primaryVlan_(primaryVlan) {}

  constexpr VlanType type() const noexcept { return type_; }

  /// Means nothing in the default value.
  constexpr VlanId primaryVlan() const noexcept { return primaryVlan_; }

  constexpr std::uint32_t hash() const noexcept {
    return static_cast<std::uint32_t>(type_) << 16 | primaryVlan_.hash();
  }

  friend constexpr bool operator==(VlanTypeAndPrimaryVlan,
                                   VlanTypeAndPrimaryVlan) noexcept = default;

 private:
  VlanType type_ = VlanType::normal;
  VlanId primaryVlan_;
};

/// Prints "normal", or the type and the primary VLAN: "isolated 10".
KEL_EXPORT std::ostream& operator<<(std::ostream& out, VlanTypeAndPrimaryVlan role);

}  // namespace Bridging
