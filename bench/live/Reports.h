#pragma once

#include <cstdint>
#include <vector>

#include "framework/types/IpAddr.h"
#include "platform/igmp/wire/ByteReader.h"

namespace Bench {

using Frame = std::vector<std::uint8_t>;

/// What the listeners of a port say.
struct Listeners {
  unsigned port = 0;       ///< has its own groups and reporters
  unsigned reporters = 1;  ///< each listens to all of the port's groups
  unsigned groups = 1000;
  unsigned records = 1;  ///< of a report; divides the groups
  unsigned sources = 0;  ///< of a record; without, every source is wanted
};

enum class Saying { current, join, leave };

/// The group of a port that has this number.
Wirex::IpAddr groupOf(unsigned port, unsigned number);

/// One IGMPv3 report for every so many records of each reporter, all groups of a reporter first.
std::vector<Frame> reports(Listeners const& listeners, Saying saying);

/// The query that makes a port a router port, of version 3.
Frame generalQuery();

/// Whether a frame is a report or a leave that speaks of a group.
bool speaksOf(Igmp::Bytes frame, Wirex::IpAddr group);

}  // namespace Bench
