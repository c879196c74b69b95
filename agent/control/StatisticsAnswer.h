#pragma once

#include <memory>

#include "agent/Switch.h"
#include "agent/control/Answer.h"
#include "agent/control/Request.h"

namespace Agent {

/// The answer to `show statistics`: the counters of the agent, and those of what is selected.
std::unique_ptr<Answer> statisticsAnswer(Switch const& snoopingSwitch, Request const& request,
                                         Horix::Time start);

}  // namespace Agent
