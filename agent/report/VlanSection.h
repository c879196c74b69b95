#pragma once

#include <iosfwd>

#include "agent/report/PortNames.h"
#include "agent/report/ReportData.h"

namespace Agent {

/// Prints what the page has on one VLAN: in a sentence, as pictures of who feeds which record, and
/// as a time line.
void printVlan(std::ostream& out, ReportData const& data, ReportedVlan const& vlan,
               PortColours const& colours);

}  // namespace Agent
