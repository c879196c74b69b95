#pragma once

#include <chrono>

#include "framework/kel/Ptr.h"

namespace Horix {

/// Time as a clock tells it: since its start or since the epoch, never negative.
using Time = std::chrono::nanoseconds;

/// What a timer wheel tells time by; it never goes back. The wheel waits for a deadline through
/// its clock, so the same wheel runs in real time or as fast as virtual time can be skipped.
class KEL_EXPORT Clock : public Kel::PtrInterface {
 public:
  virtual Time now() const = 0;

  /// Returns when the clock reads `time` or later, at once if it already does.
  virtual void waitUntil(Time time) = 0;
};

/// CLOCK_MONOTONIC. Waiting puts the thread to sleep.
class KEL_EXPORT MonotonicClock final : public Clock {
 public:
  Time now() const override;
  void waitUntil(Time time) override;
};

/// Stands still until it is told to wait, and then jumps: for replays and tests.
class KEL_EXPORT VirtualClock final : public Clock {
 public:
  explicit VirtualClock(Time start = Time::zero()) noexcept : now_(start) {}

  Time now() const override { return now_; }
  void waitUntil(Time time) override;

 private:
  Time now_;
};

}  // namespace Horix
