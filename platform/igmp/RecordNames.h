#pragma once

#include "framework/types/IgmpV3GroupRecordType.h"

namespace Igmp {

/// A record type's short name in RFC 9776 section 4.2.12 and its tables.
constexpr char const* nameOf(Wirex::IgmpV3GroupRecordType type) {
  using enum Wirex::IgmpV3GroupRecordType;
  switch (type) {
    case modeIsInclude:
      return "IS_IN";
    case modeIsExclude:
      return "IS_EX";
    case changeToIncludeMode:
      return "TO_IN";
    case changeToExcludeMode:
      return "TO_EX";
    case allowNewSources:
      return "ALLOW";
    case blockOldSources:
      return "BLOCK";
  }
  return "record of no known type";
}

}  // namespace Igmp
