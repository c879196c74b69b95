#pragma once

#include <cstdint>

#include "platform/horix/Clock.h"

namespace Horix {

/// A place in a ring of timers; alone, it is a ring of its own. It leaves its ring when it dies.
class TimerLink {
 public:
  TimerLink() noexcept = default;
  TimerLink(TimerLink const&) = delete;
  TimerLink& operator=(TimerLink const&) = delete;
  ~TimerLink() { leave(); }

  bool alone() const noexcept { return next_ == this; }
  TimerLink& next() const noexcept { return *next_; }

  void leave() noexcept {
    previous_->next_ = next_;
    next_->previous_ = previous_;
    previous_ = next_ = this;
  }

  /// Goes, alone, to the end of the ring that `head` leads.
  void join(TimerLink& head) noexcept {
    previous_ = head.previous_;
    next_ = &head;
    previous_->next_ = this;
    head.previous_ = this;
  }

  /// Takes all that follow `head` to the end of the ring that this leads.
  void takeAll(TimerLink& head) noexcept {
    if (head.alone()) return;
    previous_->next_ = head.next_;
    head.next_->previous_ = previous_;
    previous_ = head.previous_;
    previous_->next_ = this;
    head.previous_ = head.next_ = &head;
  }

 private:
  TimerLink* previous_ = this;
  TimerLink* next_ = this;
};

/// Something to be done at a time: derive, override onExpiry(), and give it to a TimerWheel.
/// Millions may exist, so it is 32 bytes and never allocates. It belongs to its user, who may
/// destroy it at any time, which cancels it; a wheel that dies first cancels its timers. While it
/// is scheduled it belongs to one wheel. Single thread, as everything on the event loop.
class KEL_EXPORT Timer : private TimerLink {
 public:
  virtual ~Timer();

  bool scheduled() const noexcept { return !alone(); }

  /// When it is due, a whole number of ticks; meaningless unless it is scheduled.
  Time deadline() const noexcept;

  /// Does nothing to a timer that is not scheduled.
  void cancel() noexcept { leave(); }

 protected:
  Timer() noexcept = default;

 private:
  friend class TimerWheel;

  /// Called once per schedule, no longer scheduled, with the clock at or past the deadline. May
  /// schedule, cancel and destroy any timer, this one included.
  virtual void onExpiry() = 0;

  std::uint64_t deadline_ = 0;  // in ticks
};

static_assert(sizeof(Timer) <= 32);

}  // namespace Horix
