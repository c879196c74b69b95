#pragma once

#include <memory>

#include "agent/control/Answer.h"
#include "agent/control/Request.h"
#include "agent/forwarding/Forwarding.h"

namespace Agent {

/// What `show forwarding` says, in the lines of showAnswer(): how the bridge is used, how far each
/// VLAN is, and for each group and port what should be beside what the kernel has. The kernel is
/// asked piece by piece.
/// @param forwarding outlives the answer, and so does the switch.
std::unique_ptr<Answer> forwardingAnswer(Switch const& snoopingSwitch, Forwarding const& forwarding,
                                         Request const& request, Horix::Time start);

}  // namespace Agent
