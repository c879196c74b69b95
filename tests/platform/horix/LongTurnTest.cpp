#include <cerrno>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/horix/EventLoop.h"

namespace {

using namespace std::chrono_literals;
using Horix::EventLoop;
using Horix::Time;
using Horix::TimerWheel;
using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::Ge;
using testing::Le;

/// What takes time to handle takes it on a clock that goes on only so.
class LongTurnTest : public testing::Test {
 protected:
  void spend(Time time) { clock->waitUntil(clock->now() + time); }

  void turn() { loop.turn(Time::zero()); }
  Time durationOfATurn() {
    Time const begin = loop.now();
    turn();
    return loop.now() - begin;
  }

  Kel::Ptr<Horix::VirtualClock> clock = Kel::make<Horix::VirtualClock>();
  EventLoop loop{Kel::make<TimerWheel>(clock)};
};

/// Input that waits in a queue, each piece of which takes time.
class Queue final : private EventLoop::Watch {
 public:
  Queue(EventLoop& loop, std::size_t pieces, std::function<void()> handle,
        Order order = Order::inTurn)
      : Queue(loop, newEvent(), pieces, std::move(handle), order) {}
  ~Queue() override { close(event_); }

  std::size_t taken() const { return taken_; }
  std::size_t waiting() const { return waiting_; }

  /// A flood: for each piece that is taken another one comes.
  void refillsIs(bool refills) { refills_ = refills; }

 private:
  Queue(EventLoop& loop, int event, std::size_t pieces, std::function<void()> handle, Order order)
      : Watch(loop, event, order),
        event_(event),
        capacity_(pieces),
        waiting_(pieces),
        handle_(std::move(handle)) {}

  static int newEvent() {
    int const event = eventfd(1, EFD_NONBLOCK | EFD_CLOEXEC);
    if (event < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
    return event;
  }

  void onReady() override {
    std::size_t pieces = 0;
    while (waiting_ > 0 && (pieces == 0 || !shareIsUsed())) {
      if (!refills_) --waiting_;
      ++pieces;
      ++taken_;
      handle_();
    }
    tookInput(pieces, waiting_ > 0 ? capacity_ : 0);
    eventfd_t count = 0;
    if (waiting_ == 0) eventfd_read(event_, &count);
  }

  int event_;
  std::size_t capacity_;
  std::size_t waiting_;
  std::size_t taken_ = 0;
  bool refills_ = false;
  std::function<void()> handle_;
};

class CallingTimer final : public Horix::Timer {
 public:
  explicit CallingTimer(std::function<void()> action) : action_(std::move(action)) {}

 private:
  void onExpiry() override { action_(); }

  std::function<void()> action_;
};

// ---- Input is taken before timers are heeded

TEST_F(LongTurnTest, AllInputThatWaitsIsTakenBeforeATimerThatHasRunOutMeanwhile) {
  Queue queue(loop, 100, [&] { spend(1ms); });
  std::size_t takenBefore = 0;
  CallingTimer timer([&] { takenBefore = queue.taken(); });
  loop.timerWheel()->schedule(timer, 1s);
  spend(1h);  // the process stood still
  for (int i = 0; i < 200 && timer.scheduled(); ++i) turn();
  EXPECT_EQ(takenBefore, 100u);
}

TEST_F(LongTurnTest, TimerThatInputPutsOffInTimeDoesNotExpire) {
  bool expired = false;
  CallingTimer membership([&] { expired = true; });
  std::size_t pieces = 0;
  Queue queue(loop, 100, [&] {
    spend(1ms);
    if (++pieces == 100) loop.timerWheel()->schedule(membership, 260s);
  });
  loop.timerWheel()->schedule(membership, 260s);
  spend(300s);
  for (int i = 0; i < 200; ++i) turn();
  EXPECT_EQ(queue.taken(), 100u);
  EXPECT_FALSE(expired);
}

TEST_F(LongTurnTest, FloodDelaysATimerByNoMoreThanWhatCanWaitAtATime) {
  Queue flood(loop, 50, [&] { spend(1ms); });
  flood.refillsIs(true);
  CallingTimer timer([] {});
  loop.timerWheel()->schedule(timer, 10ms);
  spend(10ms);
  while (timer.scheduled() && flood.taken() < 1000) turn();
  EXPECT_THAT(flood.taken(), AllOf(Ge(50u), Le(54u)));
}

TEST_F(LongTurnTest, TimersGoOnUnderALastingFlood) {
  Queue flood(loop, 50, [&] { spend(1ms); });
  flood.refillsIs(true);
  int beats = 0;
  CallingTimer* self = nullptr;
  CallingTimer heartbeat([&] {
    ++beats;
    loop.timerWheel()->schedule(*self, 100ms);
  });
  self = &heartbeat;
  loop.timerWheel()->schedule(heartbeat, 100ms);
  while (loop.now() < 10s) turn();
  EXPECT_GT(beats, 60);
}

TEST_F(LongTurnTest, WatchThatGoesWithInputLeftHoldsUpNoTimer) {
  auto queue = std::make_unique<Queue>(loop, 100, [&] { spend(1ms); });
  Queue const quiet(loop, 0, [] {});
  CallingTimer timer([] {});
  loop.timerWheel()->schedule(timer, 1ms);
  spend(1ms);
  turn();
  ASSERT_TRUE(timer.scheduled());
  queue = nullptr;
  turn();
  turn();
  EXPECT_FALSE(timer.scheduled());
}

// ---- Turns are short

TEST_F(LongTurnTest, InputOfATurnHasABudgetOfTime) {
  Queue queue(loop, 100'000, [&] { spend(10us); });
  while (queue.waiting() > 0) ASSERT_LE(durationOfATurn(), EventLoop::inputBudget + 10us);
}

TEST_F(LongTurnTest, InputThatTakesLittleIsNotCutIntoMorePiecesThanNeeded) {
  Queue const queue(loop, 40, [&] { spend(2us); });
  turn();
  EXPECT_EQ(queue.waiting(), 0u);
}

TEST_F(LongTurnTest, WatchesShareABudgetEvenly) {
  Queue cheap(loop, 100'000, [&] { spend(10us); });
  Queue costly(loop, 100'000, [&] { spend(100us); });
  for (int i = 0; i < 100; ++i) turn();
  EXPECT_GE(costly.taken(), 100u);
  EXPECT_THAT(cheap.taken(), AllOf(Ge(9 * costly.taken()), Le(11 * costly.taken())));
}

TEST_F(LongTurnTest, QuietWatchLeavesItsShareToTheOthers) {
  Queue busy(loop, 100'000, [&] { spend(10us); });
  Queue const quiet(loop, 1, [] {});
  turn();
  EXPECT_EQ(busy.taken(), std::size_t{EventLoop::inputBatch / 10us});
}

TEST_F(LongTurnTest, EachWatchHasItsTurnThoughOnePieceUsesUpAllTime) {
  std::list<std::unique_ptr<Queue>> queues;
  for (int i = 0; i < 10; ++i)
    queues.push_back(std::make_unique<Queue>(loop, 1000, [&] { spend(3ms); }));
  for (int i = 0; i < 50; ++i) ASSERT_LE(durationOfATurn(), EventLoop::inputBudget + 3ms);
  std::vector<std::size_t> taken;
  for (auto const& queue : queues) taken.push_back(queue->taken());
  EXPECT_THAT(taken, Each(Ge(5u)));
}

TEST_F(LongTurnTest, TimersOfATurnHaveABudgetOfTime) {
  Queue const quiet(loop, 0, [] {});
  std::vector<std::unique_ptr<CallingTimer>> timers;
  for (int i = 0; i < 1000; ++i) {
    timers.push_back(std::make_unique<CallingTimer>([&] { spend(100us); }));
    loop.timerWheel()->schedule(*timers.back(), 1s);
  }
  spend(1s);
  int turns = 0;
  for (; timers.back()->scheduled(); ++turns)
    ASSERT_LE(durationOfATurn(), EventLoop::timerBudget + 100us);
  EXPECT_GE(turns, 50);
}

TEST_F(LongTurnTest, InputIsTakenBetweenTheTimersOfOneTime) {
  std::vector<std::string> journal;
  Queue queue(loop, 1, [&] { journal.emplace_back("input"); });
  turn();
  ASSERT_THAT(journal, ElementsAre("input"));
  CallingTimer first([&] { spend(1s); });
  CallingTimer second([&] { journal.emplace_back("second timer"); });
  loop.timerWheel()->schedule(first, 1s);
  loop.timerWheel()->schedule(second, 1s);
  spend(1s);
  turn();
  Queue const late(loop, 1, [&] { journal.emplace_back("late input"); });
  turn();
  EXPECT_THAT(journal, ElementsAre("input", "late input", "second timer"));
}

TEST_F(LongTurnTest, TurnsAreCountedAndTheLongestRemembered) {
  Queue const queue(loop, 2, [&, pieces = 0]() mutable { spend(++pieces == 1 ? 7ms : 3ms); });
  turn();
  turn();
  turn();
  EXPECT_EQ(loop.turns().count, 3u);
  EXPECT_EQ(loop.turns().longest, 7ms);
}

// ---- What follows from input

/// Each piece of input is followed by a hundred times as much at the end of its batch.
class ConsequencesTest : public LongTurnTest {
 protected:
  static constexpr Time input = 20us;
  static constexpr Time consequence = 2ms;
  static constexpr Time ofABatch = (EventLoop::inputBatch / input + 1) * (input + consequence);

  ConsequencesTest() {
    loop.afterBatchIs([this] {
      if (pending > 0) ++batches;
      spend(std::exchange(pending, 0) * consequence);
    });
  }

  std::unique_ptr<Queue> queue(std::size_t pieces) {
    return std::make_unique<Queue>(loop, pieces, [this] {
      spend(input);
      ++pending;
    });
  }

  int pending = 0;
  int batches = 0;
};

TEST_F(ConsequencesTest, BatchEndsBeforeTooMuchFollowsFromIt) {
  auto const busy = queue(1000);
  while (busy->waiting() > 0) ASSERT_LE(durationOfATurn(), EventLoop::inputBudget + ofABatch);
}

TEST_F(ConsequencesTest, WhatFollowsCountsForTheBudgetOfInput) {
  std::list<std::unique_ptr<Queue>> queues;
  for (int i = 0; i < 100; ++i) queues.push_back(queue(10));
  for (int i = 0; i < 200; ++i) ASSERT_LE(durationOfATurn(), EventLoop::inputBudget + ofABatch);
}

TEST_F(ConsequencesTest, InputThatTakesLittleMakesOneBatch) {
  std::list<std::unique_ptr<Queue>> queues;
  for (int i = 0; i < 4; ++i) queues.push_back(queue(1));
  turn();
  EXPECT_EQ(batches, 1);
}

TEST_F(ConsequencesTest, TimersHaveATurnOfTheirOwnAfterInputThatUsedUpItsTime) {
  CallingTimer timer([&] { spend(EventLoop::timerBudget); });
  auto const busy = queue(5);
  loop.timerWheel()->schedule(timer, 1ms);
  spend(1ms);
  turn();
  EXPECT_TRUE(timer.scheduled());
  EXPECT_EQ(durationOfATurn(), EventLoop::timerBudget);
  EXPECT_FALSE(timer.scheduled());
}

TEST_F(ConsequencesTest, InputThatAlwaysUsesUpItsTimeDoesNotHoldTimersUp) {
  auto const flood = queue(5);
  flood->refillsIs(true);
  CallingTimer timer([] {});
  loop.timerWheel()->schedule(timer, 1ms);
  spend(1ms);
  for (int i = 0; i < 3; ++i) turn();
  EXPECT_FALSE(timer.scheduled());
}

// ---- Who awaits an answer

/// Ten others with input, one piece of which uses up a turn.
class FirstTest : public LongTurnTest {
 protected:
  static constexpr auto first = EventLoop::Watch::Order::first;

  FirstTest() {
    for (int i = 0; i < 10; ++i)
      others.push_back(std::make_unique<Queue>(loop, 1000, [&] { spend(EventLoop::inputBudget); }));
  }

  std::size_t takenOfOthers() const {
    std::size_t taken = 0;
    for (auto const& other : others) taken += other->taken();
    return taken;
  }

  std::list<std::unique_ptr<Queue>> others;
};

TEST_F(FirstTest, ComesInEachTurnHoweverMuchInputOthersHave) {
  turn();
  Queue const client(
      loop, 5, [&] { spend(100us); }, first);
  for (int i = 0; i < 5; ++i) turn();
  EXPECT_EQ(client.waiting(), 0u);
}

TEST_F(FirstTest, IsTakenWhenNobodyElseHasInput) {
  others.clear();
  Queue const client(
      loop, 1, [] {}, first);
  turn();
  EXPECT_EQ(client.waiting(), 0u);
}

TEST_F(FirstTest, ComesOnceInATurnThoughThereIsTime) {
  others.clear();
  // Each piece takes all of the share of a call, and little of the time of a turn.
  Queue const client(
      loop, 1000, [&] { spend(EventLoop::inputBatch); }, first);
  Queue const otherClient(
      loop, 1000, [&] { spend(EventLoop::inputBatch); }, first);
  for (int i = 0; i < 20; ++i) turn();
  EXPECT_LE(client.taken(), 20u);
  EXPECT_LE(otherClient.taken(), 20u);
  EXPECT_GE(client.taken() + otherClient.taken(), 20u);
}

TEST_F(FirstTest, LeavesTimeToTheOthers) {
  std::list<std::unique_ptr<Queue>> clients;
  for (int i = 0; i < 100; ++i)
    clients.push_back(std::make_unique<Queue>(
        loop, 1000, [&] { spend(200us); }, first));
  for (int i = 0; i < 50; ++i)
    ASSERT_LE(durationOfATurn(), EventLoop::firstBudget + 2 * EventLoop::inputBudget + 200us);
  EXPECT_GE(takenOfOthers(), 40u);
}

TEST_F(FirstTest, TakesItsTurnAmongThoseThatComeFirst) {
  std::list<std::unique_ptr<Queue>> clients;
  for (int i = 0; i < 20; ++i)
    clients.push_back(std::make_unique<Queue>(
        loop, 1000, [&] { spend(EventLoop::firstBudget); }, first));
  for (int i = 0; i < 40; ++i) turn();
  for (auto const& client : clients) EXPECT_GE(client->taken(), 1u);
}

TEST_F(FirstTest, MayGoWhileOthersOfItsKindHaveInput) {
  std::unique_ptr<Queue> gone;
  Queue const client(
      loop, 2, [&] { gone.reset(); }, first);
  gone = std::make_unique<Queue>(
      loop, 1000, [] {}, first);
  for (int i = 0; i < 3; ++i) turn();
  EXPECT_EQ(client.waiting(), 0u);
  EXPECT_EQ(gone, nullptr);
}

}  // namespace
