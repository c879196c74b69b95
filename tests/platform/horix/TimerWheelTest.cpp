#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "platform/horix/TimerWheel.h"

namespace {

using namespace std::chrono_literals;
using Horix::Time;
using Horix::TimerWheel;

class CallingTimer final : public Horix::Timer {
 public:
  explicit CallingTimer(std::function<void()> action) : action_(std::move(action)) {}

 private:
  void onExpiry() override { action_(); }

  std::function<void()> action_;
};

class TimerWheelTest : public testing::Test {
 protected:
  /// A timer that writes down when it expires.
  CallingTimer recorder() {
    return CallingTimer([this] { expiries.push_back(clock->now()); });
  }

  Kel::Ptr<Horix::VirtualClock> clock = Kel::make<Horix::VirtualClock>();
  Kel::Ptr<TimerWheel> wheel = Kel::make<TimerWheel>(clock);
  std::vector<Time> expiries;
};

using Expiries = std::vector<Time>;

TEST_F(TimerWheelTest, TimerExpiresAtItsDeadlineAndOnce) {
  auto timer = recorder();
  wheel->schedule(timer, 100ms);
  EXPECT_TRUE(timer.scheduled());
  EXPECT_EQ(timer.deadline(), 100ms);

  wheel->advanceTo(99'999'999ns);
  EXPECT_EQ(expiries, Expiries{});
  wheel->advanceTo(100ms);
  EXPECT_EQ(expiries, Expiries{100ms});
  EXPECT_FALSE(timer.scheduled());
  wheel->advanceTo(1h);
  EXPECT_EQ(expiries, Expiries{100ms});
}

TEST_F(TimerWheelTest, DeadlineIsRoundedUpToATick) {
  auto timer = recorder();
  wheel->schedule(timer, 100ms + 1ns);
  wheel->advanceTo(100'999'999ns);
  EXPECT_EQ(expiries, Expiries{});
  wheel->advanceTo(101ms);
  EXPECT_EQ(expiries, Expiries{101ms});
}

TEST_F(TimerWheelTest, DelayCountsFromTheClockNotFromTheLastTurn) {
  clock->waitUntil(5s);  // the wheel has not been turned
  auto timer = recorder();
  wheel->schedule(timer, 10ms);
  EXPECT_EQ(timer.deadline(), 5010ms);
}

TEST_F(TimerWheelTest, WheelStartsAtItsClocksTime) {
  auto const epoch = 1'700'000'000s;
  auto late = Kel::make<TimerWheel>(Kel::make<Horix::VirtualClock>(epoch));
  auto timer = recorder();
  late->schedule(timer, 1s);
  EXPECT_EQ(timer.deadline(), epoch + 1s);
  late->advanceTo(epoch + 999ms);
  EXPECT_TRUE(timer.scheduled());
  late->advanceTo(epoch + 1s);
  EXPECT_FALSE(timer.scheduled());
}

TEST_F(TimerWheelTest, DeadlineThatHasPassedExpiresAtTheNextTick) {
  wheel->advanceTo(10s);
  auto timer = recorder();
  for (Time const passed : {Time(10s), Time(3s), Time(-5s)}) {
    expiries.clear();
    wheel->scheduleAt(timer, passed);
    EXPECT_EQ(expiries, Expiries{}) << "scheduling itself calls nobody";
    Time const nextTick = wheel->now() + TimerWheel::tick;
    wheel->advanceTo(nextTick);
    EXPECT_EQ(expiries, Expiries{nextTick});
    wheel->advanceTo(10s);
    wheel->advanceTo(wheel->now());
  }
}

TEST_F(TimerWheelTest, NegativeDelayIsTheNextTick) {
  wheel->advanceTo(10s);
  auto timer = recorder();
  wheel->schedule(timer, -20s);
  EXPECT_EQ(timer.deadline(), 10s + TimerWheel::tick);
}

TEST_F(TimerWheelTest, AdvanceOverLongTimeShowsEveryTimerItsOwnDeadline) {
  auto a = recorder();
  auto b = recorder();
  auto c = recorder();
  wheel->schedule(c, 25h);
  wheel->schedule(a, 3ms);
  wheel->schedule(b, 260s);
  wheel->advanceTo(30 * 24h);
  EXPECT_EQ(expiries, (Expiries{3ms, 260s, 25h}));
  EXPECT_EQ(clock->now(), Time(30 * 24h));
}

TEST_F(TimerWheelTest, ClockReadsTheTimeAdvancedToAndNeverGoesBack) {
  wheel->advanceTo(7s + 3ns);
  EXPECT_EQ(clock->now(), 7s + 3ns);
  wheel->advanceTo(2s);
  EXPECT_EQ(clock->now(), 7s + 3ns);
}

TEST_F(TimerWheelTest, TimerSeesTheClockPastItsDeadlineWhenTheClockRanAhead) {
  auto timer = recorder();
  wheel->schedule(timer, 1s);
  clock->waitUntil(4s);
  wheel->advanceTo(4s);
  EXPECT_EQ(expiries, Expiries{4s});
}

TEST_F(TimerWheelTest, CancelledTimerDoesNotExpire) {
  auto timer = recorder();
  wheel->schedule(timer, 1s);
  timer.cancel();
  EXPECT_FALSE(timer.scheduled());
  timer.cancel();
  wheel->advanceTo(1h);
  EXPECT_EQ(expiries, Expiries{});
}

TEST_F(TimerWheelTest, DestroyedTimerDoesNotExpire) {
  auto survivor = recorder();
  {
    auto timer = recorder();
    wheel->schedule(timer, 1s);
    wheel->schedule(survivor, 1s);
  }
  wheel->advanceTo(1h);
  EXPECT_EQ(expiries, Expiries{1s});
}

TEST_F(TimerWheelTest, RearmingLaterPostpones) {
  auto timer = recorder();
  wheel->schedule(timer, 260s);
  for (Time now = 125s; now < 1h; now += 125s) {
    wheel->advanceTo(now);
    wheel->schedule(timer, 260s);
  }
  EXPECT_EQ(expiries, Expiries{});
  Time const deadline = timer.deadline();
  wheel->advanceTo(2h);
  EXPECT_EQ(expiries, Expiries{deadline});
}

TEST_F(TimerWheelTest, RearmingEarlierBringsForward) {
  auto timer = recorder();
  wheel->schedule(timer, 260s);
  wheel->schedule(timer, 2s);
  wheel->advanceTo(1h);
  EXPECT_EQ(expiries, Expiries{2s});
}

TEST_F(TimerWheelTest, RearmingLaterThenEarlierTakesTheLast) {
  auto timer = recorder();
  wheel->schedule(timer, 10s);
  wheel->schedule(timer, 500s);
  wheel->schedule(timer, 20s);
  wheel->advanceTo(1h);
  EXPECT_EQ(expiries, Expiries{20s});
}

TEST_F(TimerWheelTest, EveryDelayAroundTheBoundsOfTheLevelsIsExact) {
  std::int64_t span = 1;
  for (int level = 0; level < 7; ++level, span *= 64) {
    for (std::int64_t const ticks : {span - 1, span, span + 1, 63 * span, 64 * span - 1}) {
      for (Time const start : {Time(0s), Time(63ms), Time(4095ms), Time(262'143ms + 500us)}) {
        if (ticks == 0) continue;
        auto const ownClock = Kel::make<Horix::VirtualClock>(start);
        auto const ownWheel = Kel::make<TimerWheel>(ownClock);
        std::optional<Time> expiry;
        CallingTimer timer([&] { expiry = ownClock->now(); });
        ownWheel->schedule(timer, ticks * TimerWheel::tick);
        Time const deadline = timer.deadline();
        EXPECT_GE(deadline, start + ticks * TimerWheel::tick);
        EXPECT_LT(deadline, start + (ticks + 1) * TimerWheel::tick);
        ownWheel->advanceTo(deadline - 1ns);
        EXPECT_EQ(expiry, std::nullopt);
        ownWheel->advanceTo(deadline);
        EXPECT_EQ(expiry, deadline);
      }
    }
  }
}

TEST_F(TimerWheelTest, FarthestDeadlineHasItsPlace) {
  auto forever = recorder();
  auto years = recorder();
  wheel->advanceTo(1s);
  wheel->schedule(forever, Time::max());
  wheel->schedule(years, 200 * 365 * 24h);
  wheel->advanceTo(150 * 365 * 24h);
  EXPECT_EQ(expiries, Expiries{});
  wheel->advanceTo(250 * 365 * 24h);
  EXPECT_EQ(expiries, Expiries{1s + 200 * 365 * 24h});
  EXPECT_TRUE(forever.scheduled());
  wheel->advanceTo(Time::max());
  EXPECT_FALSE(forever.scheduled());
}

TEST_F(TimerWheelTest, TimerThatRearmsItselfRunsPeriodically) {
  int rounds = 0;
  std::optional<CallingTimer> timer;
  timer.emplace([&] {
    expiries.push_back(clock->now());
    if (++rounds < 4) wheel->schedule(*timer, 125s);
  });
  wheel->schedule(*timer, 125s);
  wheel->advanceTo(1h);
  EXPECT_EQ(expiries, (Expiries{125s, 250s, 375s, 500s}));
}

TEST_F(TimerWheelTest, TimerThatRearmsItselfWithoutDelayGetsOneCallPerTick) {
  int calls = 0;
  std::optional<CallingTimer> timer;
  timer.emplace([&] {
    ++calls;
    wheel->schedule(*timer, 0s);
  });
  wheel->schedule(*timer, 0s);
  wheel->advanceTo(20ms);
  EXPECT_EQ(calls, 20);
}

TEST_F(TimerWheelTest, TimerMayCancelPostponeAndDestroyOthersOfItsSlot) {
  auto cancelled = recorder();
  auto postponed = recorder();
  auto broughtForward = recorder();
  auto destroyed = std::make_unique<CallingTimer>([] { FAIL() << "was destroyed"; });
  CallingTimer first([&] {
    cancelled.cancel();
    wheel->schedule(postponed, 5s);
    wheel->schedule(broughtForward, 0s);
    destroyed.reset();
  });
  wheel->schedule(first, 1s);
  wheel->schedule(cancelled, 1s);
  wheel->schedule(postponed, 1s);
  wheel->schedule(*destroyed, 1s);
  wheel->schedule(broughtForward, 1s + 60ms);  // in the same slot of a higher level
  wheel->advanceTo(1min);
  EXPECT_EQ(expiries, (Expiries{1001ms, 6s}));
}

TEST_F(TimerWheelTest, TimerMayDestroyItself) {
  std::unique_ptr<CallingTimer> timer;
  timer = std::make_unique<CallingTimer>([&] { timer.reset(); });
  auto sibling = recorder();
  wheel->schedule(*timer, 1s);
  wheel->schedule(sibling, 1s);
  wheel->advanceTo(2s);
  EXPECT_EQ(timer, nullptr);
  EXPECT_EQ(expiries, Expiries{1s});
}

TEST_F(TimerWheelTest, TimerScheduledByAnotherExpiresInTheSameAdvance) {
  auto second = recorder();
  CallingTimer first([&] { wheel->schedule(second, 30s); });
  wheel->schedule(first, 10s);
  wheel->advanceTo(1min);
  EXPECT_EQ(expiries, Expiries{40s});
}

TEST_F(TimerWheelTest, WhatATimerThrowsLosesNoOtherTimer) {
  CallingTimer throwing([] { throw std::runtime_error("from a timer"); });
  auto sibling = recorder();
  auto later = recorder();
  wheel->schedule(throwing, 1s);
  wheel->schedule(sibling, 1s);
  wheel->schedule(later, 2s);
  EXPECT_THROW(wheel->advanceTo(5s), std::runtime_error);
  EXPECT_FALSE(throwing.scheduled());
  EXPECT_EQ(expiries, Expiries{});
  EXPECT_EQ(wheel->nextExpiry(), Time(1s));
  wheel->advanceTo(5s);
  EXPECT_EQ(expiries, (Expiries{1s, 2s}));
}

TEST_F(TimerWheelTest, NextExpiryIsNothingWithoutTimers) {
  EXPECT_EQ(wheel->nextExpiry(), std::nullopt);
  auto timer = recorder();
  wheel->schedule(timer, 1h);
  timer.cancel();
  EXPECT_EQ(wheel->nextExpiry(), std::nullopt);
}

TEST_F(TimerWheelTest, NextExpiryIsExactWithinTheFirstLevel) {
  auto timer = recorder();
  wheel->schedule(timer, 17ms);
  EXPECT_EQ(wheel->nextExpiry(), Time(17ms));
}

TEST_F(TimerWheelTest, SleepingUntilNextExpiryMeetsADeadlineInAFewTurns) {
  auto timer = recorder();
  wheel->schedule(timer, 29 * 24h + 13h + 7min + 5s + 123ms);
  Time const deadline = timer.deadline();
  int turns = 0;
  while (auto const next = wheel->nextExpiry()) {
    ASSERT_LE(*next, deadline);
    wheel->advanceTo(*next);
    ++turns;
  }
  EXPECT_EQ(expiries, Expiries{deadline});
  EXPECT_LE(turns, 8);
}

TEST_F(TimerWheelTest, WheelThatDiesCancelsItsTimers) {
  auto near = recorder();
  auto far = recorder();
  wheel->schedule(near, 1ms);
  wheel->schedule(far, 24h);
  wheel = nullptr;
  EXPECT_FALSE(near.scheduled());
  EXPECT_FALSE(far.scheduled());
  near.cancel();

  auto other = Kel::make<TimerWheel>(clock);
  other->schedule(near, 1ms);
  other->advanceTo(1s);
  EXPECT_EQ(expiries, Expiries{1ms});
}

TEST_F(TimerWheelTest, WhoHoldsTheWheelConstMayScheduleOnIt) {
  Kel::Ptr<TimerWheel const> user = wheel;
  auto timer = recorder();
  user->schedule(timer, 1s);
  wheel->advanceTo(1s);
  EXPECT_EQ(expiries, Expiries{1s});
}

TEST(MonotonicClockTest, WheelOnRealTimeIsNeverEarly) {
  auto const clock = Kel::make<Horix::MonotonicClock>();
  auto const wheel = Kel::make<TimerWheel>(clock);
  Time const start = wheel->now();
  std::vector<Time> expiries;
  CallingTimer a([&] { expiries.push_back(clock->now()); });
  CallingTimer b([&] { expiries.push_back(clock->now()); });
  wheel->schedule(b, 20ms);
  wheel->schedule(a, 10ms);
  wheel->advanceTo(wheel->now());
  EXPECT_TRUE(expiries.empty());
  wheel->advanceTo(start + 30ms);
  EXPECT_GE(wheel->now(), start + 30ms);
  ASSERT_EQ(expiries.size(), 2u);
  EXPECT_GE(expiries[0], start + 10ms);
  EXPECT_GE(expiries[1], start + 20ms);
}

TEST(MonotonicClockTest, NeverGoesBack) {
  Horix::MonotonicClock clock;
  Time before = clock.now();
  for (int i = 0; i < 1000; ++i) {
    Time const now = clock.now();
    EXPECT_GE(now, before);
    before = now;
  }
}

/// The wheel side by side with a sorted multimap of deadlines, under seeded random operations,
/// which the timers perform in their callbacks too.
class WheelBesideModel {
 public:
  explicit WheelBesideModel(std::uint32_t seed) : random_(seed) {
    for (int i = 0; i < 200; ++i) timers_.push_back(std::make_unique<Modelled>(*this, i));
  }

  void run(int steps) {
    for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
      if (chance(8)) {
        advance(randomDelay() / 16);
      } else {
        operate();
      }
    }
    advance(10 * 365 * 24h);
    EXPECT_TRUE(model_.empty());
    EXPECT_EQ(wheel_->nextExpiry(), std::nullopt);
  }

  int expiries() const { return expiries_; }

 private:
  class Modelled final : public Horix::Timer {
   public:
    Modelled(WheelBesideModel& owner, int number) : owner_(owner), number_(number) {}

   private:
    void onExpiry() override { owner_.expired(number_); }

    WheelBesideModel& owner_;
    int number_;
  };

  using Model = std::multimap<Time, int>;

  bool chance(int oneIn) { return random_() % static_cast<unsigned>(oneIn) == 0; }

  Time randomDelay() {
    // Every magnitude from nanoseconds to half a year is as likely.
    auto const bits = random_() % 54;
    return Time(static_cast<Time::rep>(random64_(random_) & ((std::uint64_t{1} << bits) - 1)));
  }

  void modelErase(int number) {
    auto const found = std::find_if(model_.begin(), model_.end(),
                                    [&](auto const& entry) { return entry.second == number; });
    if (found != model_.end()) model_.erase(found);
  }

  void operate() {
    int const number = static_cast<int>(random_() % timers_.size());
    auto& timer = timers_[static_cast<std::size_t>(number)];
    bool const isScheduled = std::any_of(model_.begin(), model_.end(),
                                         [&](auto const& entry) { return entry.second == number; });
    EXPECT_EQ(timer->scheduled(), isScheduled);
    modelErase(number);
    switch (random_() % 8) {
      case 0:
        timer->cancel();
        break;
      case 1:
        timer = std::make_unique<Modelled>(*this, number);
        break;
      default: {
        Time const delay = randomDelay();
        wheel_->schedule(*timer, delay);
        auto const tick = Time(TimerWheel::tick);
        Time const roundedUp = (clock_->now() + delay + tick - 1ns) / tick * tick;
        Time const nextTick = clock_->now() / tick * tick + tick;
        model_.emplace(std::max(roundedUp, nextTick), number);
        EXPECT_EQ(timer->deadline(), std::max(roundedUp, nextTick));
      }
    }
    checkNextExpiry();
  }

  void checkNextExpiry() {
    auto const next = wheel_->nextExpiry();
    ASSERT_EQ(next.has_value(), !model_.empty());
    if (next) {
      EXPECT_LE(*next, model_.begin()->first);
    }
  }

  void expired(int number) {
    ++expiries_;
    ASSERT_FALSE(model_.empty());
    Time const due = model_.begin()->first;
    EXPECT_EQ(clock_->now(), due);
    auto const sameDeadline = model_.equal_range(due);
    EXPECT_TRUE(std::any_of(sameDeadline.first, sameDeadline.second,
                            [&](auto const& entry) { return entry.second == number; }));
    modelErase(number);
    for (auto operations = random_() % 4; operations > 0; --operations) {
      if (chance(2)) operate();
    }
  }

  void advance(Time delay) {
    Time const target = clock_->now() + delay;
    wheel_->advanceTo(target);
    EXPECT_EQ(clock_->now(), target);
    if (!model_.empty()) {
      EXPECT_GT(model_.begin()->first, target);
    }
    checkNextExpiry();
  }

  std::mt19937 random_;
  std::uniform_int_distribution<std::uint64_t> random64_;
  Kel::Ptr<Horix::VirtualClock> clock_ = Kel::make<Horix::VirtualClock>();
  Kel::Ptr<TimerWheel> wheel_ = Kel::make<TimerWheel>(clock_);
  std::vector<std::unique_ptr<Modelled>> timers_;
  Model model_;
  int expiries_ = 0;
};

class TimerWheelModelTest : public testing::TestWithParam<std::uint32_t> {};

TEST_P(TimerWheelModelTest, AgreesWithASortedMapOfDeadlines) {
  WheelBesideModel comparison(GetParam());
  comparison.run(20'000);
  EXPECT_GT(comparison.expiries(), 2'000);
}

INSTANTIATE_TEST_SUITE_P(Seeds, TimerWheelModelTest, testing::Range(1u, 11u));

}  // namespace
