#pragma once

#include <vector>

#include "framework/entities/IgmpContextStatus.h"
#include "framework/kel/Export.h"
#include "platform/igmp/wire/Message.h"

namespace Bridging::IgmpSnooping {

/// What a reporter no longer asks for, so that a querier asks whether somebody else does.
struct QueryNeed {
  bool group = false;                  ///< every source but some: Q(G)
  std::vector<Wirex::IpAddr> sources;  ///< Q(G,A)

  bool empty() const { return !group && sources.empty(); }
};

/// What a group record takes back of what its reporter has asked for.
/// @param membership the reporter's before the record, or null.
KEL_EXPORT QueryNeed queryNeededBy(Igmp::GroupRecord const& record,
                                   IgmpMembership const* membership);

}  // namespace Bridging::IgmpSnooping
