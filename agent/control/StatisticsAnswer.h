#pragma once

#include <memory>

#include "agent/Switch.h"
#include "agent/config/ConfigurationState.h"
#include "agent/control/Answer.h"
#include "agent/control/Request.h"
#include "agent/text/Dates.h"

namespace Agent {

/// The answer to `show statistics`: the counters of the agent, and those of what is selected.
/// @param configuration null where none was read from a file. Outlives the answer.
std::unique_ptr<Answer> statisticsAnswer(Switch const& snoopingSwitch, Request const& request,
                                         Epoch const& epoch,
                                         ConfigurationState const* configuration = nullptr);

}  // namespace Agent
