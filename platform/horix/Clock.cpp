#include "platform/horix/Clock.h"

#include <algorithm>
#include <thread>

namespace Horix {

Time MonotonicClock::now() const {
  return std::chrono::steady_clock::now().time_since_epoch();
}

void MonotonicClock::waitUntil(Time time) {
  std::this_thread::sleep_until(std::chrono::steady_clock::time_point(time));
}

void VirtualClock::waitUntil(Time time) {
  now_ = std::max(now_, time);
}

}  // namespace Horix
