#include "platform/snooping/QueryNeed.h"

#include "framework/kel/Table.h"

namespace Bridging::IgmpSnooping {

using Gmp::Igmp::IgmpFilterMode;
using Wirex::IgmpV3GroupRecordType;
using Wirex::IpAddr;

namespace {

std::vector<IpAddr> difference(IgmpMembership::Sources const& sources,
                               Igmp::SourceList const& without) {
  Kel::Table<IpAddr, Kel::Nothing> excluded;
  for (IpAddr const source : without)
    if (!excluded.contains(source)) excluded.add(source, {});
  std::vector<IpAddr> rest;
  for (IpAddr const source : sources)
    if (!excluded.contains(source)) rest.push_back(source);
  return rest;
}

}  // namespace

// The rows are those of RFC 9776 section 6.4.2 that send queries. Learning knows every reporter's
// own state, so it stands in the rows where a router has the state of the whole link: A is what
// the reporter includes, Y what it excludes, and X is empty.
QueryNeed queryNeededBy(Igmp::GroupRecord const& record, IgmpMembership const* membership) {
  QueryNeed need;
  if (!membership) return need;
  bool const includes = membership->filterMode() == IgmpFilterMode::include;
  switch (record.type) {
    // INCLUDE (A)    BLOCK (B)    Send Q(G,A*B)       EXCLUDE (X,Y)  BLOCK (A)    Send Q(G,A-Y)
    // INCLUDE (A)    TO_EX (B)    Send Q(G,A*B)       EXCLUDE (X,Y)  TO_EX (A)    Send Q(G,A-Y)
    case IgmpV3GroupRecordType::blockOldSources:
    case IgmpV3GroupRecordType::changeToExcludeMode:
      for (IpAddr const source : record.sources)
        if (membership->source(source) == includes) need.sources.push_back(source);
      break;
    // INCLUDE (A)    TO_IN (B)    Send Q(G,A-B)       EXCLUDE (X,Y)  TO_IN (A)    Send Q(G)
    case IgmpV3GroupRecordType::changeToIncludeMode:
      need.group = !includes;
      if (includes) need.sources = difference(membership->source(), record.sources);
      break;
    case IgmpV3GroupRecordType::modeIsInclude:
    case IgmpV3GroupRecordType::modeIsExclude:
    case IgmpV3GroupRecordType::allowNewSources:
      break;
  }
  return need;
}

}  // namespace Bridging::IgmpSnooping
