#pragma once

#include <cstdint>
#include <iosfwd>

#include "framework/kel/Export.h"

namespace Igmp {

/// The version of IGMP that a querier or a host speaks: RFC 1112, RFC 2236, RFC 9776.
enum class IgmpVersion : std::uint8_t { v1 = 1, v2 = 2, v3 = 3 };

/// Prints the number alone.
KEL_EXPORT std::ostream& operator<<(std::ostream& out, IgmpVersion version);

}  // namespace Igmp
