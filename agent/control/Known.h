#pragma once

#include "agent/config/Configuration.h"
#include "agent/control/Request.h"

namespace Agent {

/// Throws std::invalid_argument, which says what there is, if a VLAN or an interface is not
/// configured, or a group is no multicast address.
void refuseUnknown(Selection const& selection, Configuration const& configuration);

}  // namespace Agent
