#pragma once

#include <string>
#include <vector>

#include "agent/replay/PortCapture.h"

namespace Agent {

/// A configuration (TOML) of the switch on whose ports captures were taken, with comments that say
/// from which frames each part follows. It is usable as it stands.
/// Throws CaptureError; and std::invalid_argument if a port has a name that no interface can have.
std::string configurationGuessedFrom(std::vector<PortCapture> const& captures);

}  // namespace Agent
