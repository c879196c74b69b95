#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "agent/Switch.h"
#include "agent/watch/HostRecords.h"
#include "platform/igmp/wire/IgnoreReason.h"

namespace Agent {

/// What one port heard and did not use: how many frames and group records, for each cause that
/// there was.
struct IgnoredInput {
  std::string interface;
  std::vector<std::pair<Igmp::IgnoreReason, std::uint64_t>> counts;
};

/// What an operator sees of a switch at one time.
struct Snapshot {
  Horix::Time time{};
  std::vector<HostRecords> hosts;     ///< by VLAN, then interface in natural order
  std::vector<IgnoredInput> ignored;  ///< by interface in natural order, those that ignored any
};

Snapshot snapshotOf(Switch const& snoopingSwitch);

}  // namespace Agent
