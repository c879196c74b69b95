#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>

#include "platform/horix/TimerWheel.h"

struct epoll_event;

namespace Horix {

/// The single thread's loop: waits for input and timers, and after each batch of either runs the
/// pending activities. It makes no system call while nothing is watched and its clock is virtual,
/// so that replays and tests run on the same loop as live traffic.
class KEL_EXPORT EventLoop {
 public:
  /// A file descriptor that the loop watches: derive, override onReady(). The descriptor belongs
  /// to who derives, and is open for as long as this lives. It may be destroyed at any time.
  class KEL_EXPORT Watch {
   public:
    Watch(Watch const&) = delete;
    Watch& operator=(Watch const&) = delete;

   protected:
    /// Waits for input. Throws std::system_error.
    Watch(EventLoop& loop, int descriptor);
    virtual ~Watch();

    /// Whether to wait until the descriptor takes output, and whether to wait for input. Errors,
    /// and that the other side has gone, are told in any case.
    void waitsForOutputIs(bool waits);
    void waitsForInputIs(bool waits);

   private:
    friend class EventLoop;

    /// Input, output that was waited for, or an error is there. It is called again as long as
    /// there is, so it need not take everything at once.
    virtual void onReady() = 0;

    EventLoop& loop_;
    int descriptor_;
    bool waitsForInput_ = true;
    bool waitsForOutput_ = false;
  };

  explicit EventLoop(Kel::Ptr<TimerWheel> timerWheel);
  EventLoop(EventLoop const&) = delete;
  EventLoop& operator=(EventLoop const&) = delete;
  ~EventLoop();

  Kel::Ptr<TimerWheel> const& timerWheel() const { return timerWheel_; }
  Time now() const { return timerWheel_->now(); }

  /// Does `action` at the end of each batch, when its activities have run. What `action` changes
  /// is followed by another run of the activities.
  void afterBatchIs(std::function<void()> action) { afterBatch_ = std::move(action); }

  /// Whether to look for input over and over while there is none, instead of sleeping. That takes
  /// a processor whole, and saves what the kernel needs to wake a sleeper up.
  void busyPollsIs(bool busyPolls) { busyPolls_ = busyPolls; }

  /// Ends a batch: for drivers that feed input themselves.
  void endBatch();

  /// Lets time pass up to `time`: each deadline meanwhile is a batch of its own. Input is not
  /// looked at. For virtual clocks, and for tests.
  void advanceTo(Time time);

  /// Waits for input, for the next timer, or until `time`, whichever is first, and deals with it.
  /// Throws std::system_error.
  void turn(std::optional<Time> until = std::nullopt);

  /// Turns until somebody calls stop(), or nothing is left to wait for.
  void run();
  void stop() noexcept { stopped_ = true; }

 private:
  void add(Watch& watch);
  void change(Watch& watch);
  void remove(Watch& watch) noexcept;
  int waitForInput(std::span<epoll_event> ready, std::optional<Time> wakeUp) const;
  void deliver(std::span<epoll_event> ready);

  Kel::Ptr<TimerWheel> timerWheel_;
  std::function<void()> afterBatch_;
  int epoll_ = -1;
  std::size_t watches_ = 0;
  std::span<epoll_event> undelivered_;
  bool stopped_ = false;
  bool busyPolls_ = false;
};

}  // namespace Horix
