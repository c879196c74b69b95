#include "platform/horix/Timer.h"

#include "platform/horix/TimerWheel.h"

namespace Horix {

Timer::~Timer() = default;

Time Timer::deadline() const noexcept {
  return TimerWheel::tick * static_cast<Time::rep>(deadline_);
}

}  // namespace Horix
