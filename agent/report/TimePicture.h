#pragma once

#include <iosfwd>
#include <span>
#include <string>

#include "agent/report/History.h"
#include "agent/report/PortNames.h"

namespace Agent {

/// Draws rows of a history over a time axis as SVG: memberships as full bars, records as hollow
/// ones, each with what it was.
/// @param id of the element, unique on the page.
void drawTimeLine(std::ostream& out, std::string const& id, std::string const& title,
                  History const& history, std::span<HistoryRow const> rows,
                  PortColours const& colours);

/// Draws how many memberships and records there were in the course of time.
void drawCounts(std::ostream& out, std::string const& id, std::string const& title,
                History const& history, std::span<HistoryRow const> rows);

}  // namespace Agent
