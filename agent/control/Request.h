#pragma once

#include <string>
#include <string_view>

#include "agent/watch/Selection.h"

namespace Agent {

/// What a client of the control socket asks for.
struct Request {
  std::string command;  ///< "show", "explain", "monitor", "clear", "trace", "restart" or "metrics"
  std::string
      what;  ///< list that "show" or "clear" names, kind of changes for "monitor"; may be empty
  Selection of;
  bool text = false;   ///< explain in words
  std::string handle;  ///< trace handle, for "trace"
  std::string levels;
};

/// The line of JSON that a request is, and back.
std::string requestLine(Request const& request);

/// Throws std::invalid_argument.
Request requestIn(std::string_view line);

}  // namespace Agent
