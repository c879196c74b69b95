#pragma once

#include <memory>

#include "agent/Switch.h"
#include "agent/control/Answer.h"
#include "agent/control/Request.h"
#include "agent/forwarding/Forwarding.h"
#include "agent/text/Dates.h"

namespace Agent {

/// What the control socket says of a switch, in lines of JSON: first {"time":T,"lists":[NAME...]},
/// with the seconds since the epoch, and "date" where that is known; then any number of
/// {NAME:{...}}, which are the elements of the lists in no particular order, and
/// {"more":{NAME:{KEY:[...]}}}, which go on with a list in the last element; last {"end":true}.
/// @param snoopingSwitch outlives the answer.
/// Throws std::invalid_argument if there is no such thing to show.
/// @param forwarding says where groups go, if any is there; outlives the answer too.
std::unique_ptr<Answer> showAnswer(Switch const& snoopingSwitch, Request const& request,
                                   Epoch const& epoch, Forwarding const* forwarding = nullptr);

}  // namespace Agent
