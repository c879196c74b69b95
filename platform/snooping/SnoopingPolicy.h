#pragma once

#include <chrono>
#include <cstdint>

#include "platform/igmp/wire/PacketReader.h"

namespace Bridging::IgmpSnooping {

/// How memberships are learned in one VLAN; the defaults are those of RFC 9776 section 8.
struct SnoopingPolicy {
  using Milliseconds = std::chrono::milliseconds;

  unsigned robustnessVariable = 2;
  Milliseconds queryInterval = std::chrono::seconds(125);
  Milliseconds queryMaxResponseTime = std::chrono::seconds(10);
  Milliseconds lastMemberQueryInterval = std::chrono::seconds(1);

  /// A leave removes the reporter's membership at once.
  bool fastLeave = false;

  Igmp::ReceivePolicy receive;

  /// Groups in the VLAN, and sources of one reporter in one group; 0 is no limit. What would go
  /// beyond is ignored whole.
  std::uint32_t maxGroups = 0;
  std::uint32_t maxGroupSources = 0;

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
