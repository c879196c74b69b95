#pragma once

#include <string>
#include <vector>

#include "framework/kel/Trace.h"

namespace Agent {

/// Trace levels to switch on.
struct TraceRequest {
  Kel::TraceHandle* handle;
  std::vector<int> levels;
};

/// @param levels as in "0,4-9", or "none". Throws std::invalid_argument.
TraceRequest traceRequestIn(std::string const& handle, std::string const& levels);

/// Throws std::invalid_argument, which names those that there are.
Kel::TraceHandle& traceHandleNamed(std::string const& name);

/// The levels that are on, as traceRequestIn() takes them.
std::string levelsText(Kel::TraceHandle const& handle);

}  // namespace Agent
