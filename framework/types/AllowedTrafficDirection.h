#pragma once

#include <cstdint>
#include <iosfwd>

#include "framework/kel/Export.h"

namespace Bridging {

/// The directions in which a port may forward, seen from the switch: the switch sends to the port
/// while egress is allowed, and takes frames from it while ingress is.
enum class AllowedTrafficDirection : std::uint8_t { both, ingress, egress, none };

constexpr bool allowsIngress(AllowedTrafficDirection direction) noexcept {
  return direction == AllowedTrafficDirection::both ||
         direction == AllowedTrafficDirection::ingress;
}

constexpr bool allowsEgress(AllowedTrafficDirection direction) noexcept {
  return direction == AllowedTrafficDirection::both || direction == AllowedTrafficDirection::egress;
}

KEL_EXPORT std::ostream& operator<<(std::ostream& out, AllowedTrafficDirection direction);

}  // namespace Bridging
