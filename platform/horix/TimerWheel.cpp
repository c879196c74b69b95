#include "platform/horix/TimerWheel.h"

#include <algorithm>
#include <bit>
#include <utility>

namespace Horix {

namespace {

using Ticks = std::chrono::duration<std::int64_t, decltype(TimerWheel::tick)::period>;

/// The last whole tick that a Time can hold.
constexpr Ticks lastTick = std::chrono::floor<Ticks>(Time::max());

constexpr std::uint64_t ticksWithin(Time time) noexcept {
  return static_cast<std::uint64_t>(
      std::chrono::floor<Ticks>(std::max(time, Time::zero())).count());
}

constexpr Time timeOf(std::uint64_t tick) noexcept {
  return Ticks(static_cast<Ticks::rep>(tick));
}

}  // namespace

TimerWheel::TimerWheel(Kel::Ptr<Clock> clock)
    : clock_(std::move(clock)), currentTick_(ticksWithin(clock_->now())) {
  static_assert(lastTick.count() >> (digitBits * levels) == 0,
                "every time that can be told has its slot");
}

TimerWheel::~TimerWheel() {
  for (Level& level : level_) {
    for (TimerLink& head : level.slot) opened_.takeAll(head);
  }
  while (!opened_.alone()) opened_.next().leave();
}

std::uint64_t TimerWheel::ticksUpTo(Time deadline) noexcept {
  Time const future = std::clamp<Time>(deadline, Time::zero(), lastTick);
  return static_cast<std::uint64_t>(std::chrono::ceil<Ticks>(future).count());
}

void TimerWheel::schedule(Timer& timer, Time delay) const {
  Time const current = now();
  scheduleAt(timer, delay < Time::max() - current ? current + delay : Time::max());
}

void TimerWheel::scheduleAt(Timer& timer, Time deadline) const {
  std::uint64_t const before =
      std::exchange(timer.deadline_, std::max(ticksUpTo(deadline), currentTick_ + 1));
  // A timer that has become later may stay where it is until its slot comes up.
  if (timer.scheduled() && timer.deadline_ >= before) return;
  timer.cancel();
  place(timer);
}

void TimerWheel::place(Timer& timer) const noexcept {
  std::uint64_t const difference = timer.deadline_ ^ currentTick_;
  auto const highestBit = static_cast<unsigned>(std::bit_width(difference >> 1));
  unsigned const digit = highestBit / digitBits;
  auto const slot = static_cast<unsigned>(timer.deadline_ >> (digit * digitBits)) % slots;
  Level& level = level_[digit];
  timer.join(level.slot[slot]);
  level.occupied |= std::uint64_t{1} << slot;
}

std::optional<TimerWheel::Position> TimerWheel::nextOccupied() const noexcept {
  for (unsigned digit = 0; digit < levels; ++digit) {
    Level& level = level_[digit];
    for (; level.occupied != 0; level.occupied &= level.occupied - 1) {
      auto const slot = static_cast<unsigned>(std::countr_zero(level.occupied));
      if (level.slot[slot].alone()) continue;
      unsigned const shift = digit * digitBits;
      std::uint64_t const higherDigits = currentTick_ >> (shift + digitBits) << (shift + digitBits);
      return Position{digit, slot, higherDigits | std::uint64_t{slot} << shift};
    }
  }
  return std::nullopt;
}

std::optional<Time> TimerWheel::nextExpiry() const {
  if (!opened_.alone()) return timeOf(currentTick_);
  auto const next = nextOccupied();
  if (!next) return std::nullopt;
  return timeOf(next->begin);
}

bool TimerWheel::advanceTo(Time time, Time pause) {
  if (!expireOpened(pause)) return false;
  std::uint64_t const last = ticksWithin(time);
  for (auto next = nextOccupied(); next && next->begin <= last; next = nextOccupied()) {
    clock_->waitUntil(timeOf(next->begin));
    currentTick_ = next->begin;
    opened_.takeAll(level_[next->level].slot[next->slot]);
    if (!expireOpened(pause)) return false;
  }
  clock_->waitUntil(time);
  currentTick_ = std::max(currentTick_, last);
  return true;
}

bool TimerWheel::expireOpened(Time pause) {
  while (!opened_.alone()) {
    auto& timer = static_cast<Timer&>(opened_.next());
    timer.cancel();
    if (timer.deadline_ > currentTick_) {
      place(timer);
    } else {
      timer.onExpiry();
    }
    if (pause != Time::max() && now() >= pause) return false;
  }
  return true;
}

}  // namespace Horix
