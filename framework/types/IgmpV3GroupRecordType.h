#pragma once

#include <cstdint>
#include <iosfwd>

#include "framework/kel/Export.h"

namespace Wirex {

/// The type of an IGMPv3 group record (RFC 9776 section 4.2.12).
enum class IgmpV3GroupRecordType : std::uint8_t {
  modeIsInclude = 1,
  modeIsExclude = 2,
  changeToIncludeMode = 3,
  changeToExcludeMode = 4,
  allowNewSources = 5,
  blockOldSources = 6,
};

KEL_EXPORT std::ostream& operator<<(std::ostream& out, IgmpV3GroupRecordType type);

}  // namespace Wirex
