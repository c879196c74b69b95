#pragma once

#include <iosfwd>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "agent/control/Request.h"
#include "agent/output/JsonValues.h"

/// How igmpsnoopctl prints what the agent says.
namespace Agent {

/// Puts an answer's lists together: see showAnswer().
class ShownLists {
 public:
  /// @param line the JSON of one line, "error" and "end" excepted.
  void add(Json line);

  /// The lists as one document, sorted by VLAN, address, interface in natural order, and host.
  Json takeDocument();

 private:
  Json header_;
  std::vector<std::pair<std::string, std::vector<Json>>> lists_;
};

/// A document of "show" as tables of at most 100 columns.
void printShown(std::ostream& out, Request const& request, Json const& document);

/// The levels of trace handles as a table.
void printTraceHandles(std::ostream& out, Json const& document);

/// A text in the place of what a terminal shows.
std::string redrawn(std::string_view text);

/// A line of "monitor" as a line for people; nothing for one that tells no change.
std::string monitorText(Json const& line);

/// The same as an object that says what it is in "event".
Json monitorObject(Json const& line);

}  // namespace Agent
