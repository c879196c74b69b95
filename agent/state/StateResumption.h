#pragma once

#include <cstddef>

#include "agent/Switch.h"
#include "agent/state/StateFile.h"

namespace Agent {

/// What a switch has taken up.
struct Resumed {
  Horix::Time age{};
  std::size_t memberships = 0;
  std::size_t routers = 0;
};

/// Has a switch know what was kept, as far as it still holds: what has ended meanwhile is left out,
/// and what is of VLANs or interfaces that are not configured as they were. Limits hold as for what
/// is heard. For a switch that has not been told of its interfaces yet, so that its hosts begin
/// with what they are to report. Throws UnusableState if all of it is of no use.
Resumed resume(Switch& snoopingSwitch, SealedState const& state, Moment const& now);

}  // namespace Agent
