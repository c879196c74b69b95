#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "platform/horix/TimerWheel.h"

struct epoll_event;

namespace Horix {

/// The single thread's loop: waits for input and timers, and after each batch of either runs the
/// pending activities. It makes no system call while nothing is watched and its clock is virtual,
/// so that replays and tests run on the same loop as live traffic.
///
/// A turn is short whatever there is to do: input and timers have a budget of time each, with what
/// follows from them, and what is left over comes first in the next turn. The watches with input
/// share the budget evenly, but for those of whom somebody awaits an answer: each turn begins with
/// them, so that they need not wait until all others have had their share.
///
/// Input that waits is taken before timers that have run out meanwhile are heeded, so that a
/// process which stood still does not give up on somebody who has spoken. A round lasts until what
/// waited at its beginning has been taken, which may be several turns; then the timers that had
/// run out by its beginning are heeded. What comes later belongs to the next round, so a flood of
/// input delays timers and does not hold them up.
class KEL_EXPORT EventLoop {
 public:
  /// How long the input of a turn may take, and its timers, with the batches that they make. What
  /// has begun is ended, so a turn lasts longer by one piece of input and one timer, and by the
  /// batch that ends each.
  static constexpr Time inputBudget = std::chrono::milliseconds(3);
  static constexpr Time timerBudget = std::chrono::milliseconds(2);
  /// Either makes a batch after this time, because what follows may take much longer.
  static constexpr Time inputBatch = std::chrono::microseconds(100);
  static constexpr Time timerBatch = std::chrono::microseconds(200);
  /// How long those that come first may take of a turn in which others have input left.
  static constexpr Time firstBudget = std::chrono::milliseconds(1);

  /// A file descriptor that the loop watches: derive, override onReady(). The derived
  /// class owns the descriptor and keeps it open for as long as the watch lives. A watch may be
  /// destroyed at any time.
  class KEL_EXPORT Watch {
   public:
    /// When a watch with input is called.
    enum class Order : std::uint8_t {
      inTurn,
      first,  ///< at the beginning of a turn, once: for who asks little and awaits an answer
    };

    Watch(Watch const&) = delete;
    Watch& operator=(Watch const&) = delete;

   protected:
    /// Waits for input. Throws std::system_error.
    Watch(EventLoop& loop, int descriptor, Order order = Order::inTurn);
    virtual ~Watch();

    /// Whether to wait until the descriptor takes output, and whether to wait for input. Errors,
    /// and that the other side has gone, are told in any case.
    void waitsForOutputIs(bool waits);
    void waitsForInputIs(bool waits);

    /// Whether this call of onReady() has had its share of the turn. Who takes input piece by piece
    /// asks after each piece.
    bool shareIsUsed() const { return loop_.now() >= loop_.shareEnd_; }

    /// To be told at the end of an onReady() that may leave input, so that timers wait for it.
    /// @param pieces how many of them the call took.
    /// @param most how many of them can wait at a time; 0 if none is left.
    void tookInput(std::size_t pieces, std::size_t most);

   private:
    friend class EventLoop;

    /// Input, output that was waited for, or an error is there. It is called again as long as
    /// there is, so it need not take everything at once. It may be called when there is nothing,
    /// where somebody else took it.
    virtual void onReady() = 0;

    bool leavesInput() const;

    EventLoop& loop_;
    int descriptor_;
    Order order_;
    bool waitsForInput_ = true;
    bool waitsForOutput_ = false;
    bool leavesInput_ = false;  // of the round
    std::uint64_t round_ = 0;   // of the loop, when this was last told what was taken
    std::size_t takenInRound_ = 0;
    std::uint64_t calledIn_ = 0;  // the turn, of one that comes first
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

  /// How long turns took, without the time they waited.
  struct Turns {
    std::uint64_t count = 0;
    Time longest = Time::zero();
  };
  Turns const& turns() const noexcept { return turns_; }

 private:
  void add(Watch& watch);
  void change(Watch& watch);
  void remove(Watch& watch) noexcept;
  void lookForInput(std::optional<Time> wakeUp);
  int waitForInput(std::optional<Time> wakeUp);
  void beginRound(Time heeded);
  bool deliver();
  void deliverFirst();
  void heedTimers();
  int epollOf(Watch const& watch) const;

  Kel::Ptr<TimerWheel> timerWheel_;
  std::function<void()> afterBatch_;
  int epoll_ = -1;
  int firstEpoll_ = -1;  // of the watches that come first; itself watched by the other
  std::size_t watches_ = 0;
  std::vector<epoll_event> ready_;
  std::span<epoll_event> undelivered_;  // of those, also from the turn before
  Time shareEnd_ = Time::max();

  std::uint64_t round_ = 0;
  std::size_t leaving_ = 0;     // how many watches still have input of this round
  Time heeded_ = Time::zero();  // the timers that had run out by then follow this round
  bool timersAreNext_ = false;  // in a turn of their own, because input has used up the last one
  Turns turns_;
  bool stopped_ = false;
  bool busyPolls_ = false;
};

}  // namespace Horix
