#pragma once

#include <cstdint>
#include <iosfwd>

#include "framework/kel/Export.h"

namespace Gmp::Igmp {

/// The filter mode of a reporter or an interface (RFC 9776 section 3.1). Code that is given a mode
/// takes every value but 0 for include.
enum class IgmpFilterMode : std::uint8_t { exclude = 0, include = 1 };

KEL_EXPORT std::ostream& operator<<(std::ostream& out, IgmpFilterMode mode);

}  // namespace Gmp::Igmp
