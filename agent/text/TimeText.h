#pragma once

#include <chrono>
#include <string>

#include "platform/horix/Clock.h"

namespace Agent {

/// A time in seconds, with microseconds, or nanoseconds where there are any: "12.500000".
std::string timeText(Horix::Time time);

/// A time since the epoch in UTC: "2026-11-22T21:05:09.500000Z".
std::string utcText(Horix::Time sinceEpoch);

/// A time of day where this runs, with its distance from UTC: "2026-11-22 21:05:09 +0000".
std::string dateText(std::chrono::system_clock::time_point time);

}  // namespace Agent
