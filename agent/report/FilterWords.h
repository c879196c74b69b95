#pragma once

#include <cstddef>
#include <string>

#include "agent/watch/HostRecords.h"

namespace Agent {

/// What a filter asks for, for people who do not know filter modes: "every source", "only
/// 192.0.2.1", "all but 192.0.2.9".
/// @param most characters, if they suffice for one source; "only 192.0.2.1 +2" stands for three.
std::string wordsFor(SourceFilter const& filter, std::size_t most);

}  // namespace Agent
