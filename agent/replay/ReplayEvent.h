#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "agent/watch/RecordWatch.h"

namespace Agent {

/// Whose membership of the group changed when a record did.
struct EventCause {
  Wirex::IntfId port;
  Wirex::IpAddr reporter;
  /// The packet of the port's capture that said so, from 1 on; nothing if a timer ran out.
  std::optional<std::uint64_t> frame;
};

/// A change of a host's record in a replay.
struct ReplayEvent {
  RecordEvent record;
  Horix::Time date;  ///< since the epoch
  std::vector<EventCause> causes;
};

}  // namespace Agent
