#include "framework/types/IgmpV3GroupRecordType.h"

#include <ostream>

namespace Wirex {

std::ostream& operator<<(std::ostream& out, IgmpV3GroupRecordType type) {
  switch (type) {
    case IgmpV3GroupRecordType::modeIsInclude:
      return out << "MODE_IS_INCLUDE";
    case IgmpV3GroupRecordType::modeIsExclude:
      return out << "MODE_IS_EXCLUDE";
    case IgmpV3GroupRecordType::changeToIncludeMode:
      return out << "CHANGE_TO_INCLUDE_MODE";
    case IgmpV3GroupRecordType::changeToExcludeMode:
      return out << "CHANGE_TO_EXCLUDE_MODE";
    case IgmpV3GroupRecordType::allowNewSources:
      return out << "ALLOW_NEW_SOURCES";
    case IgmpV3GroupRecordType::blockOldSources:
      return out << "BLOCK_OLD_SOURCES";
  }
  return out << "record type " << static_cast<unsigned>(type);
}

}  // namespace Wirex
