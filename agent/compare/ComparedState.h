#pragma once

#include <compare>
#include <map>
#include <string>
#include <vector>

#include "agent/output/JsonValues.h"
#include "framework/types/IpAddr.h"

namespace Agent {

/// Where in a state something is said.
struct ComparedPlace {
  std::string list;  ///< "hosts", "groups" or "mrouters", as `show` calls them
  unsigned vlan = 0;
  std::string interface;
  Wirex::IpAddr group;     ///< 0.0.0.0 for a whole host or router port
  Wirex::IpAddr reporter;  ///< of a membership

  /// By list and VLAN, interfaces in natural order.
  friend bool operator<(ComparedPlace const& a, ComparedPlace const& b);
};

/// What a switch knew at some time, in words, without what changes of itself: no times, no counts.
struct ComparedState {
  std::vector<std::string> lists;  ///< those that it has
  std::map<ComparedPlace, std::string> said;
};

/// Takes a state from what `replay -j`, `replay --show -j` or `igmpsnoopctl show -j` print.
/// Throws std::invalid_argument, with a clause that says what is wrong with it.
ComparedState comparedStateIn(Json const& document);

/// The state that a command line names.
/// @param given a file, - for standard input, or ctl:SOCKET for the agent that listens there.
/// Throws std::runtime_error or std::invalid_argument.
ComparedState comparedStateOf(std::string const& given);

}  // namespace Agent
