#pragma once

#include <string>

#include "agent/Switch.h"
#include "agent/report/ReportData.h"

namespace Agent {

/// What `show` tells of a switch, for the page.
/// @param subject what the page calls it.
ReportData reportOf(Switch const& snoopingSwitch, std::string subject, History history);

}  // namespace Agent
