#pragma once

#include <string>

#include "platform/horix/Clock.h"

namespace Agent {

/// A time in seconds, with microseconds, or nanoseconds where there are any: "12.500000".
std::string timeText(Horix::Time time);

/// A time since the epoch in UTC: "2026-11-22T21:05:09.500000Z".
std::string utcText(Horix::Time sinceEpoch);

}  // namespace Agent
