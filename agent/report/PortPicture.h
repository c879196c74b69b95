#pragma once

#include <iosfwd>
#include <string>

#include "agent/report/PortNames.h"
#include "agent/report/ReportData.h"

namespace Agent {

/// Draws a VLAN's ports as SVG, for an overview of one that has many: to how many groups each
/// listens, and of how many its host reports.
/// @param id of the element, unique on the page.
void drawPorts(std::ostream& out, std::string const& id, ReportData const& data,
               ReportedVlan const& vlan, PortColours const& colours);

}  // namespace Agent
