#pragma once

#include <string>
#include <vector>

#include "agent/output/Explanation.h"
#include "agent/output/Snapshot.h"
#include "agent/watch/RecordWatch.h"

namespace Agent {

/// A snapshot as one JSON document that ends in a newline.
/// @param events what changed on the way there, or null to leave the key out.
std::string json(Snapshot const& snapshot, std::vector<RecordEvent> const* events);

/// An explanation as one JSON document that ends in a newline.
std::string json(Explanation const& explanation);

}  // namespace Agent
