#pragma once

#include <string>

#include "platform/horix/Clock.h"

namespace Agent {

/// A time in seconds, with microseconds, or nanoseconds where there are any: "12.500000".
std::string timeText(Horix::Time time);

}  // namespace Agent
