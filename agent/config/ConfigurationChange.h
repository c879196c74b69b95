#pragma once

#include <string>

#include "agent/config/Configuration.h"

namespace Agent {

/// What is different between two configurations, on one line: "VLANs 10 and 20 changed, VLAN 30
/// added, interface swp7 removed", or "nothing changed".
std::string describeChange(Configuration const& before, Configuration const& after);

}  // namespace Agent
