#pragma once

#include <chrono>
#include <cstdint>

#include "platform/igmp/wire/PacketReader.h"
#include "platform/snooping/GroupRange.h"

namespace Bridging::IgmpSnooping {

/// How memberships are learned in one VLAN; the defaults are those of RFC 9776 section 8.
struct SnoopingPolicy {
  using Milliseconds = std::chrono::milliseconds;

  unsigned robustnessVariable = 2;  ///< 1 to 7 (RFC 9776 section 8.1)
  /// How often general queries are sent (RFC 9776 section 8.2).
  Milliseconds queryInterval = std::chrono::seconds(125);
  /// Within which general queries are to be answered (RFC 9776 section 8.3).
  Milliseconds queryMaxResponseTime = std::chrono::seconds(10);
  /// Within which a query after a leave is to be answered (RFC 9776 section 8.8).
  Milliseconds lastMemberQueryInterval = std::chrono::seconds(1);

  /// A leave removes the reporter's membership at once.
  bool fastLeave = false;

  Igmp::ReceivePolicy receive;  ///< what received packets have to have

  /// Groups in which only single sources can be had: reports that ask for every source are
  /// ignored (RFC 4604 section 2.2).
  GroupRange ssmRange;

  /// 0 is no limit. A group or a source that would go beyond is refused; what is known stays, and
  /// what a refused report repeats is renewed.
  std::uint32_t maxGroups = 0;                ///< in the VLAN; PortShares divides them
  std::uint32_t maxInterfaceGroups = 0;       ///< on a port
  std::uint32_t maxInterfaceMemberships = 0;  ///< on a port; further reporters are merged into one
  std::uint32_t maxGroupSources = 0;          ///< of one reporter in one group
  std::uint32_t maxInterfaceSources = 0;      ///< of all reporters on a port

  /// How long a membership lives without a report (RFC 9776 section 8.4).
  Milliseconds groupMembershipInterval() const {
    return robustnessVariable * queryInterval + 2 * queryMaxResponseTime;
  }

  /// How long it lives after a leave that nobody contradicts (RFC 9776 section 8.10).
  Milliseconds lastMemberQueryTime() const { return robustnessVariable * lastMemberQueryInterval; }

  /// RFC 9776 section 8.6.
  Milliseconds startupQueryInterval() const { return queryInterval / 4; }

  /// How long another querier is taken to be there (RFC 9776 section 8.5).
  Milliseconds otherQuerierPresentInterval() const {
    return robustnessVariable * queryInterval + queryMaxResponseTime / 2;
  }

  /// How long the sender of a query is taken to be there (RFC 9776 section 8.5). It counts in its
  /// own variables where it tells them (sections 4.1.6 and 4.1.7); the response time of a specific
  /// query is not that of its general ones.
  Milliseconds otherQuerierPresentInterval(Igmp::Query const& query) const {
    unsigned const robustness = query.robustness != 0 ? query.robustness : robustnessVariable;
    Milliseconds const interval =
        query.queryInterval != query.queryInterval.zero() ? query.queryInterval : queryInterval;
    Milliseconds const responseTime =
        query.isGeneral() ? Milliseconds(query.maxResponseTime) : queryMaxResponseTime;
    return robustness * interval + responseTime / 2;
  }
};

}  // namespace Bridging::IgmpSnooping
