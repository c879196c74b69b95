#pragma once

#include <string>
#include <vector>

#include "agent/config/Configuration.h"

namespace Agent {

/// A capture, and the port of the switch that is to hear it. A port may have several.
struct PortCapture {
  Wirex::IntfId port;
  std::string fileName;
};

/// Throws std::invalid_argument, with a text of the form "what is wrong; what to do", if a capture
/// is for a port that the configuration lacks.
/// @param configurationName what the text calls the configuration.
void requireConfiguredPorts(std::vector<PortCapture> const& captures,
                            Configuration const& configuration,
                            std::string const& configurationName);

}  // namespace Agent
