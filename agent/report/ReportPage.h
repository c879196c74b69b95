#pragma once

#include <iosfwd>

#include "agent/report/ReportData.h"

namespace Agent {

/// Prints the report as one HTML page that needs nothing else: no script, no other file. The same
/// data give the same bytes.
void printReport(std::ostream& out, ReportData const& data);

}  // namespace Agent
