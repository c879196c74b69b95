#pragma once

#include <string>

#include "agent/output/Explanation.h"
#include "agent/output/Snapshot.h"

namespace Agent {

/// A snapshot as one JSON document that ends in a newline.
std::string json(Snapshot const& snapshot);

/// An explanation as one JSON document that ends in a newline.
std::string json(Explanation const& explanation);

}  // namespace Agent
