#pragma once

namespace Agent::Soak {

/// How many pieces of memory the program holds.
long long liveAllocations();

}  // namespace Agent::Soak
