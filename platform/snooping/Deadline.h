#pragma once

#include <cstdint>

#include "platform/horix/TimerWheel.h"

namespace Bridging::IgmpSnooping {

/// A time in ticks of the timer wheel, rounded up and kept in four bytes. It can be told from any
/// time that is within 24 days of it, which no membership lives.
class Deadline {
 public:
  explicit Deadline(Horix::Time time) noexcept
      : ticks_(static_cast<std::uint32_t>(ticks(time + Horix::TimerWheel::tick - Horix::Time(1)))) {
  }

  /// The time, as the one that is within 24 days of the reference.
  Horix::Time near(Horix::Time reference) const noexcept {
    std::int64_t const now = ticks(reference);
    auto const ahead = static_cast<std::int32_t>(ticks_ - static_cast<std::uint32_t>(now));
    return (now + ahead) * Horix::TimerWheel::tick;
  }

  friend bool operator==(Deadline const&, Deadline const&) = default;

 private:
  static std::int64_t ticks(Horix::Time time) noexcept { return time / Horix::TimerWheel::tick; }

  std::uint32_t ticks_;
};

}  // namespace Bridging::IgmpSnooping
