#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>

#include "agent/report/Feeding.h"
#include "agent/report/PortNames.h"

namespace Agent {

/// Draws flows as SVG: for each, on the left the ports that listen, on the right the ports whose
/// hosts report, and a line from each of the former to each of the latter that it feeds. Where a
/// line would lead back to its own port it ends in a cross, which is the split horizon.
/// @param id of the element, unique on the page.
void drawFlows(std::ostream& out, std::string const& id, std::string const& title,
               std::vector<Flow> const& flows, PortColours const& colours);

}  // namespace Agent
