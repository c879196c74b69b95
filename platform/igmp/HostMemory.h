#pragma once

#include <cstdint>
#include <vector>

#include "framework/types/IpAddr.h"
#include "platform/horix/Clock.h"
#include "platform/igmp/host/QuerierVersions.h"

namespace Igmp {

/// What a host has told and what it still has to tell. Another host that knows this can go on in
/// its place without anybody on the wire noticing.
struct HostMemory {
  /// A source whose change is still to be told so many times.
  struct PendingSource {
    Wirex::IpAddr address;           ///< the source
    std::uint8_t transmissions = 0;  ///< at least 1

    friend bool operator==(PendingSource const&, PendingSource const&) noexcept = default;
  };

  /// What routers were told of a group unasked, and how much of it is still to be told again.
  struct Told {
    Wirex::IpAddr group;
    bool excludes = false;                        ///< whether routers were told EXCLUDE mode
    std::vector<Wirex::IpAddr> sources{};         ///< ascending
    std::uint8_t transmissions = 0;               ///< of the mode, or of an older version's report
    std::vector<PendingSource> pendingSources{};  ///< sources whose change is to be told again

    friend bool operator==(Told const&, Told const&) = default;
  };

  /// An answer that is owed.
  struct Answer {
    Wirex::IpAddr group;                   ///< 0.0.0.0: for all
    std::vector<Wirex::IpAddr> sources{};  ///< that were asked for; none stand for the whole record
    Horix::Time due{};  ///< when it is to be sent, by the clock of the timer wheel

    friend bool operator==(Answer const&, Answer const&) = default;
  };

  std::vector<Told> told;       ///< by group, what was reported and still stands
  std::vector<Answer> answers;  ///< not yet sent
  std::vector<QuerierVersions::Present> olderQueriers;  ///< on the host's own port

  friend bool operator==(HostMemory const&, HostMemory const&) = default;
};

}  // namespace Igmp
