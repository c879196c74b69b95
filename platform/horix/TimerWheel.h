#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>

#include "framework/kel/Ptr.h"
#include "platform/horix/Clock.h"
#include "platform/horix/Timer.h"

namespace Horix {

/// The timer service: a hierarchical timing wheel (Varghese and Lauck, 1987). Scheduling,
/// re-arming and cancelling cost a few instructions whatever the number of timers.
///
/// Time is counted in ticks. A deadline is rounded up to a whole tick in the future, so no timer
/// is early and none more than a tick late. The event loop owns the wheel and turns it; everyone
/// else holds a `Ptr<TimerWheel const>`: who may use the wheel may not turn it, so scheduling is
/// const. All of it runs on the event loop's thread.
class KEL_EXPORT TimerWheel : public Kel::PtrInterface {
 public:
  static constexpr std::chrono::milliseconds tick{1};

  explicit TimerWheel(Kel::Ptr<Clock> clock);

  /// Cancels the timers that are still scheduled.
  ~TimerWheel() override;

  Time now() const { return clock_->now(); }

  /// Makes `timer` expire `delay` from now, or at the next tick if that is later. A timer that is
  /// scheduled already is re-armed; to re-arm it to a later time is one store.
  void schedule(Timer& timer, Time delay) const;

  /// The same, with the time on the wheel's clock.
  void scheduleAt(Timer& timer, Time deadline) const;

  /// How long the event loop may sleep: no timer is due before this time. It may be earlier than
  /// the first deadline, by a cancelled or re-armed timer or one that is far off; a loop that
  /// sleeps until this time, turns the wheel and asks again comes to a deadline in at most
  /// `levels` turns. Nothing when no timer is scheduled.
  std::optional<Time> nextExpiry() const;

  /// Waits on the clock for one deadline after the other up to `time`, lets the timers of each
  /// expire, and last waits for `time` itself. So on a virtual clock every timer sees its own
  /// deadline on the clock. Not to be called by a timer.
  ///
  /// What a timer throws leaves the wheel as it is: the next turn goes on with the next timer.
  void advanceTo(Time time) { advanceTo(time, Time::max()); }

  /// The same in pieces: stops when the clock reads `pause`, after one timer at least. The next
  /// call goes on where this one stopped. Returns whether it came to the end.
  bool advanceTo(Time time, Time pause);

 private:
  // A tick number is read as digits of base `slots`. A timer stands in the level of the highest
  // digit in which its deadline differs from the current tick, in the slot of that digit. Hence:
  // 1. Everything in a level expires before anything in the level above.
  // 2. In each level only slots above the current tick's digit are in use: no slot wraps around.
  // 3. A timer's slot never begins after its deadline; it begins before it if the timer was
  //    re-armed since, or if the slot spans many ticks. A slot that comes up is emptied: timers
  //    due are called, the others moved to their new places.
  // 4. `occupied` has a bit set for each slot that is not empty; it may have more, because a
  //    timer that leaves does not know its slot.
  static constexpr unsigned digitBits = 6;
  static constexpr unsigned slots = 1U << digitBits;
  static constexpr unsigned levels = 8;

  struct Level {
    std::uint64_t occupied = 0;
    std::array<TimerLink, slots> slot;
  };

  struct Position {
    unsigned level;
    unsigned slot;
    std::uint64_t begin;  // in ticks
  };

  static std::uint64_t ticksUpTo(Time deadline) noexcept;

  void place(Timer& timer) const noexcept;
  std::optional<Position> nextOccupied() const noexcept;
  /// Returns whether all are.
  bool expireOpened(Time pause);

  Kel::Ptr<Clock> clock_;
  std::uint64_t currentTick_;
  mutable std::array<Level, levels> level_;
  mutable TimerLink opened_;  // the slot that is being emptied
};

}  // namespace Horix
