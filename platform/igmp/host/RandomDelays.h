#pragma once

#include <algorithm>
#include <cstdint>

#include "platform/horix/TimerWheel.h"

namespace Igmp {

/// Random delays, uniformly distributed (splitmix64). The same seed gives the same delays, so that
/// a replay does what it did before; hosts with different seeds do not speak up together.
class RandomDelays {
 public:
  void seedIs(std::uint64_t seed) noexcept { state_ = seed; }

  /// A delay above zero that, rounded up to a tick by the timer wheel, is at most `limit`.
  Horix::Time within(Horix::Time limit) noexcept {
    auto const span = std::max<std::int64_t>((limit - Horix::TimerWheel::tick).count(), 1);
    return Horix::Time(1 + static_cast<std::int64_t>(next() % static_cast<std::uint64_t>(span)));
  }

 private:
  std::uint64_t next() noexcept {
    std::uint64_t mixed = state_ += 0x9e3779b97f4a7c15;
    mixed = (mixed ^ mixed >> 30) * 0xbf58476d1ce4e5b9;
    mixed = (mixed ^ mixed >> 27) * 0x94d049bb133111eb;
    return mixed ^ mixed >> 31;
  }

  std::uint64_t state_ = 0;
};

}  // namespace Igmp
