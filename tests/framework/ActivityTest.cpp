#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/kel/Activity.h"
#include "tests/framework/ThreadSafePointers.h"
#include "tests/framework/Toys.h"

namespace {

using Kel::runActivities;
using testing::ElementsAre;
using testing::IsEmpty;
using Toy::intf;
using Toy::Recorder;
using Toy::Switch;
using Toy::vlan;

class ActivityTest : public testing::Test {
 protected:
  Kel::Ptr<Recorder> deferred(std::string const& name) {
    return Kel::make<Recorder>(activity_, switch_, journal_, name);
  }
  Kel::Ptr<Recorder> immediate(std::string const& name) {
    return Kel::make<Recorder>(switch_, journal_, name);
  }

  Toy::Journal journal_;
  Kel::Ptr<Kel::ActivityConfig> const activity_ = Kel::make<Kel::ActivityConfig>();
  Kel::Ptr<Switch> switch_ = Kel::make<Switch>();
};

TEST_F(ActivityTest, ChangeIsHeardOnlyWhenTheActivityRuns) {
  auto const r = deferred("r");
  switch_->temperatureIs(1);
  EXPECT_THAT(journal_, IsEmpty());
  EXPECT_TRUE(r->hasPendingNotification());
  EXPECT_EQ(runActivities(), 1u);
  EXPECT_THAT(journal_, ElementsAre("r temperature"));
  EXPECT_FALSE(r->hasPendingNotification());
}

TEST_F(ActivityTest, ReactorNamesItsActivity) {
  EXPECT_EQ(deferred("r")->kelFwkActivity(), activity_.get());
}

TEST_F(ActivityTest, NothingPendingIsNothingToDeliver) {
  auto const r = deferred("r");
  EXPECT_EQ(runActivities(), 0u);
}

TEST_F(ActivityTest, DeliveryClearsWhatWasPending) {
  auto const r = deferred("r");
  switch_->temperatureIs(1);
  runActivities();
  EXPECT_EQ(runActivities(), 0u);
  EXPECT_THAT(journal_, ElementsAre("r temperature"));
}

TEST_F(ActivityTest, DeliversFirstInFirstOutAcrossReactorsAndAttributes) {
  auto const a = deferred("a");
  auto const b = deferred("b");
  switch_->portIs(intf(1));
  switch_->temperatureIs(1);
  switch_->portIs(intf(2));
  EXPECT_EQ(runActivities(), 6u);
  EXPECT_THAT(journal_, ElementsAre("a port eth1", "b port eth1", "a temperature", "b temperature",
                                    "a port eth2", "b port eth2"));
}

TEST_F(ActivityTest, OneNotificationPerCallbackAndKeyInTheOrderOfFirstMutation) {
  auto const r = deferred("r");
  switch_->temperatureIs(1);
  switch_->portIs(intf(1));
  switch_->weightIs(vlan(1), 5);
  switch_->temperatureIs(2);
  switch_->portDel(intf(1));
  switch_->weightIs(vlan(2), 5);
  switch_->weightIs(vlan(1), 6);
  EXPECT_EQ(runActivities(), 4u);
  EXPECT_THAT(journal_, ElementsAre("r temperature", "r port eth1", "r weight 1", "r weight 2"));
}

TEST_F(ActivityTest, SameKeyOfAnotherCallbackIsAnotherNotification) {
  auto const r = deferred("r");
  switch_->portNotify(intf(1));
  switch_->portNotify();
  switch_->weightNotify();
  switch_->filterNotify(Toy::address(1));
  switch_->weightNotify(vlan(1));
  EXPECT_EQ(runActivities(), 5u);
  EXPECT_THAT(journal_, ElementsAre("r port eth1", "r ports", "r weights", "r filter 10.0.0.1",
                                    "r weight 1"));
}

TEST_F(ActivityTest, EachReactorHasItsOwnNotifications) {
  auto const a = deferred("a");
  auto const b = deferred("b");
  switch_->temperatureIs(1);
  a->handleNotification(activity_.get());
  switch_->temperatureIs(2);
  EXPECT_EQ(runActivities(), 2u);
  EXPECT_THAT(journal_, ElementsAre("a temperature", "b temperature", "a temperature"));
}

TEST_F(ActivityTest, ReactorsOfSeveralActivitiesShareTheThreadsQueue) {
  auto const other = Kel::make<Kel::ActivityConfig>();
  auto const a = deferred("a");
  auto const b = Kel::make<Recorder>(other, switch_, journal_, "b");
  switch_->temperatureIs(1);
  EXPECT_EQ(runActivities(), 2u);
  EXPECT_THAT(journal_, ElementsAre("a temperature", "b temperature"));
}

/// Hears of changes at once, and of the notifications when the activity runs.
class TwiceTold : public Switch::NotifieeConst {
 public:
  TwiceTold(Kel::Ptr<Switch const> watched, Toy::Journal& journal)
      : NotifieeConst(Delivery::byActivity), journal_(journal) {
    watch(std::move(watched));
  }

  void onTemperature() override { journal_.emplace_back("temperature"); }
  void onTemperatureAtOnce() override {
    journal_.push_back(Toy::sentence("at once temperature", notifier()->temperature()));
  }
  void onFilter(Wirex::IpAddr /*address*/) override { journal_.emplace_back("filter"); }
  void onFilterAtOnce(Wirex::IpAddr address) override {
    journal_.push_back(Toy::sentence("at once filter", notifier()->filter(address)));
  }

 private:
  Toy::Journal& journal_;
};

TEST_F(ActivityTest, CallbackAtOnceIsRaisedByEachChangeAndByNothingElse) {
  auto const reactor = Kel::make<TwiceTold>(switch_, journal_);
  switch_->filterIs(Toy::address(1));
  switch_->filterIs(Toy::address(1));
  switch_->filterNotify(Toy::address(1));
  switch_->filterDel(Toy::address(1));
  switch_->temperatureIs(40);
  switch_->temperatureIs(40);
  switch_->temperatureNotify();
  EXPECT_THAT(journal_,
              ElementsAre("at once filter 1", "at once filter 0", "at once temperature 40"));
  runActivities();
  EXPECT_THAT(journal_, ElementsAre("at once filter 1", "at once filter 0",
                                    "at once temperature 40", "filter", "temperature"));
}

TEST_F(ActivityTest, CallbackAtOnceReachesEveryActiveReactorAndZombiesToo) {
  auto const zombie = Kel::make<TwiceTold>(switch_, journal_);
  auto const inactive = Kel::make<TwiceTold>(switch_, journal_);
  auto const live = Kel::make<TwiceTold>(switch_, journal_);
  zombie->kelDoZombieReactors(true);
  inactive->hasNotificationActiveIs(false);
  switch_->filterIs(Toy::address(1));
  EXPECT_THAT(journal_, ElementsAre("at once filter 1", "at once filter 1"));
}

TEST_F(ActivityTest, ImmediateReactorsHearAtOnce) {
  auto const a = deferred("a");
  auto const b = immediate("b");
  switch_->temperatureIs(1);
  EXPECT_THAT(journal_, ElementsAre("b temperature"));
  runActivities();
  EXPECT_THAT(journal_, ElementsAre("b temperature", "a temperature"));
}

TEST_F(ActivityTest, HandlerSeesTheStateAtDelivery) {
  auto const r = deferred("r");
  int seen = 0;
  r->reaction = [&] { seen = switch_->temperature(); };
  switch_->temperatureIs(1);
  switch_->temperatureIs(2);
  runActivities();
  EXPECT_EQ(seen, 2);
}

TEST_F(ActivityTest, KeyOutlivesItsEntry) {
  auto const r = deferred("r");
  switch_->portIs(intf(1));
  switch_->portDel(intf(1));
  runActivities();
  EXPECT_THAT(journal_, ElementsAre("r port eth1"));
}

TEST_F(ActivityTest, QueueHoldsNoReactorAlive) {
  auto r = deferred("r");
  switch_->temperatureIs(1);
  EXPECT_EQ(r->references(), 1u);
  r = nullptr;
  EXPECT_EQ(runActivities(), 0u);
  EXPECT_THAT(journal_, IsEmpty());
}

TEST_F(ActivityTest, NotifierStaysWhileItsReactorHasNotificationsPending) {
  auto const r = deferred("r");
  r->reaction = [&r] { EXPECT_EQ(r->notifier()->temperature(), 1); };
  switch_->temperatureIs(1);
  switch_ = nullptr;
  EXPECT_EQ(runActivities(), 1u);
}

TEST_F(ActivityTest, DeletedReactorAmongOthersTakesOnlyItsOwnAlong) {
  auto const a = deferred("a");
  auto b = deferred("b");
  auto const c = deferred("c");
  switch_->temperatureIs(1);
  switch_->portIs(intf(1));
  b = nullptr;
  EXPECT_EQ(runActivities(), 4u);
  EXPECT_THAT(journal_,
              ElementsAre("a temperature", "c temperature", "a port eth1", "c port eth1"));
}

TEST_F(ActivityTest, ZombieIsNotCalledAndMissedNotificationsAreGone) {
  auto const r = deferred("r");
  switch_->temperatureIs(1);
  r->kelDoZombieReactors(true);
  EXPECT_FALSE(r->hasPendingNotification());
  switch_->temperatureIs(2);
  EXPECT_FALSE(r->hasPendingNotification());
  r->kelDoZombieReactors(false);
  EXPECT_EQ(runActivities(), 0u);
  switch_->temperatureIs(3);
  EXPECT_EQ(runActivities(), 1u);
  EXPECT_THAT(journal_, ElementsAre("r temperature"));
}

TEST_F(ActivityTest, InactiveReactorIsNotCalled) {
  auto const r = deferred("r");
  switch_->temperatureIs(1);
  r->hasNotificationActiveIs(false);
  switch_->temperatureIs(2);
  EXPECT_EQ(runActivities(), 0u);
  r->hasNotificationActiveIs(true);
  EXPECT_EQ(runActivities(), 0u);
  switch_->temperatureIs(3);
  EXPECT_EQ(runActivities(), 1u);
  EXPECT_THAT(journal_, ElementsAre("r temperature"));
}

TEST_F(ActivityTest, RepointingCallsOffWhatWasPendingFromTheFormerNotifier) {
  auto const r = deferred("r");
  auto const other = Kel::make<Switch>();
  switch_->portIs(intf(1));
  r->notifierIs(other);
  EXPECT_EQ(runActivities(), 0u);
  other->portIs(intf(1));
  EXPECT_EQ(runActivities(), 1u);
  EXPECT_THAT(journal_, ElementsAre("r port eth1"));
}

TEST_F(ActivityTest, CalledOffNotificationMayBeQueuedAnewAndTakesItsPlaceAtTheEnd) {
  auto const a = deferred("a");
  auto const b = deferred("b");
  switch_->temperatureIs(1);
  a->kelDoZombieReactors(true);
  a->kelDoZombieReactors(false);
  switch_->temperatureIs(2);
  EXPECT_EQ(runActivities(), 2u);
  EXPECT_THAT(journal_, ElementsAre("b temperature", "a temperature"));
}

TEST_F(ActivityTest, WhatHandlersAddIsDeliveredAfterWhatWasThere) {
  auto const a = deferred("a");
  auto const b = deferred("b");
  a->reaction = [this] {
    if (switch_->temperature() == 1) switch_->temperatureIs(2);
  };
  switch_->temperatureIs(1);
  switch_->portIs(intf(1));
  EXPECT_EQ(runActivities(), 5u);
  // The change to 2 finds b's notification of 1 still pending, and a's just taken.
  EXPECT_THAT(journal_, ElementsAre("a temperature", "b temperature", "a port eth1", "b port eth1",
                                    "a temperature"));
}

TEST_F(ActivityTest, RunsUntilNothingIsPending) {
  auto const r = deferred("r");
  r->reaction = [this] {
    if (switch_->temperature() < 100) switch_->temperatureIs(switch_->temperature() + 1);
  };
  switch_->temperatureIs(1);
  EXPECT_EQ(runActivities(), 100u);
  EXPECT_FALSE(r->hasPendingNotification());
}

TEST_F(ActivityTest, HandlerMayDeleteItsOwnReactor) {
  auto r = deferred("r");
  r->atDestruction = [this] { journal_.emplace_back("destroyed"); };
  r->reaction = [this, &r] {
    r = nullptr;
    journal_.emplace_back("still here");
  };
  switch_->temperatureIs(1);
  switch_->portIs(intf(1));
  EXPECT_EQ(runActivities(), 1u);
  EXPECT_THAT(journal_, ElementsAre("r temperature", "still here", "destroyed"));
}

TEST_F(ActivityTest, HandlerMayDeleteASiblingWithNotificationsPending) {
  auto const a = deferred("a");
  auto b = deferred("b");
  a->reaction = [&b] { b = nullptr; };
  switch_->temperatureIs(1);
  EXPECT_EQ(runActivities(), 1u);
  EXPECT_THAT(journal_, ElementsAre("a temperature"));
}

TEST_F(ActivityTest, HandlerMayCallOffItsOwnOtherNotifications) {
  auto const r = deferred("r");
  r->reaction = [&r] { r->kelDoZombieReactors(true); };
  switch_->temperatureIs(1);
  switch_->portIs(intf(1));
  EXPECT_EQ(runActivities(), 1u);
  EXPECT_THAT(journal_, ElementsAre("r temperature"));
}

TEST_F(ActivityTest, HandlerThatThrowsLosesItsOwnNotificationAndNoOther) {
  auto const a = deferred("a");
  auto const b = deferred("b");
  a->reaction = [&a] {
    a->reaction = nullptr;
    throw std::runtime_error("a failed");
  };
  switch_->temperatureIs(1);
  switch_->portIs(intf(1));
  EXPECT_THROW(runActivities(), std::runtime_error);
  EXPECT_THAT(journal_, ElementsAre("a temperature"));
  EXPECT_EQ(runActivities(), 3u);
  EXPECT_THAT(journal_,
              ElementsAre("a temperature", "b temperature", "a port eth1", "b port eth1"));
}

TEST_F(ActivityTest, ThrownAwayNotificationMayBeQueuedAgain) {
  auto const r = deferred("r");
  r->reaction = [] { throw std::runtime_error("r failed"); };
  switch_->temperatureIs(1);
  EXPECT_THROW(runActivities(), std::runtime_error);
  r->reaction = nullptr;
  switch_->temperatureIs(2);
  EXPECT_EQ(runActivities(), 1u);
}

TEST_F(ActivityTest, HandlerMayRunActivitiesItself) {
  auto const a = deferred("a");
  auto const b = deferred("b");
  std::size_t nested = 0;
  a->reaction = [&] {
    a->reaction = nullptr;
    nested = runActivities();
    journal_.emplace_back("nested run over");
  };
  switch_->portIs(intf(1));
  switch_->portIs(intf(2));
  EXPECT_EQ(runActivities(), 1u);
  EXPECT_EQ(nested, 3u);
  EXPECT_THAT(journal_, ElementsAre("a port eth1", "b port eth1", "a port eth2", "b port eth2",
                                    "nested run over"));
}

TEST_F(ActivityTest, NestedRunDeliversWhatTheHandlerHasJustQueued) {
  auto const a = deferred("a");
  a->reaction = [&] {
    a->reaction = nullptr;
    switch_->portNotify(intf(1));
    EXPECT_EQ(runActivities(), 1u);
  };
  switch_->portIs(intf(1));
  EXPECT_EQ(runActivities(), 1u);
  EXPECT_THAT(journal_, ElementsAre("a port eth1", "a port eth1"));
}

TEST_F(ActivityTest, HandleNotificationTakesTheReactorsOldestAndLeavesTheRest) {
  auto const a = deferred("a");
  auto const b = deferred("b");
  switch_->temperatureIs(1);
  switch_->portIs(intf(1));
  b->handleNotification(b->kelFwkActivity());
  EXPECT_THAT(journal_, ElementsAre("b temperature"));
  EXPECT_TRUE(b->hasPendingNotification());
  EXPECT_EQ(runActivities(), 3u);
  EXPECT_THAT(journal_,
              ElementsAre("b temperature", "a temperature", "a port eth1", "b port eth1"));
}

TEST_F(ActivityTest, HandleNotificationWithNothingPendingCallsNothing) {
  auto const r = deferred("r");
  r->handleNotification(activity_.get());
  immediate("i")->handleNotification(nullptr);
  EXPECT_THAT(journal_, IsEmpty());
}

TEST_F(ActivityTest, NotificationThatWasTakenDirectlyMayBeQueuedAgainAtOnce) {
  auto const r = deferred("r");
  switch_->portIs(intf(1));
  r->handleNotification(activity_.get());
  switch_->portNotify(intf(1));
  EXPECT_EQ(runActivities(), 1u);
  EXPECT_THAT(journal_, ElementsAre("r port eth1", "r port eth1"));
}

TEST_F(ActivityTest, HandlerThatIsCalledDirectlyMayDeleteItsReactorAndRunActivities) {
  auto r = deferred("r");
  r->reaction = [&r] {
    r = nullptr;
    runActivities();
  };
  switch_->portIs(intf(1));
  switch_->portIs(intf(2));
  r->handleNotification(activity_.get());
  EXPECT_THAT(journal_, ElementsAre("r port eth1"));
}

TEST_F(ActivityTest, DirectCallOfACallbackHasTheSameZombieTest) {
  auto const r = deferred("r");
  r->onTemperature();
  r->kelDoZombieReactors(true);
  r->onTemperature();
  EXPECT_THAT(journal_, ElementsAre("r temperature"));
}

TEST_F(ActivityTest, ThousandsOfKeysOfOneReactorAreEachToldOnce) {
  constexpr int keys = 20000;
  auto const r = deferred("r");
  for (int round = 0; round < 2; ++round)
    for (int number = 0; number < keys; ++number) switch_->filterNotify(Toy::address(number));
  EXPECT_EQ(runActivities(), static_cast<std::size_t>(keys));
  for (int number = 0; number < keys; ++number)
    ASSERT_EQ(journal_[static_cast<std::size_t>(number)],
              Toy::sentence("r filter", Toy::address(number)));
}

TEST_F(ActivityTest, ThousandsOfKeysOfOneReactorMayBeCalledOff) {
  auto const a = deferred("a");
  auto b = deferred("b");
  for (int number = 0; number < 20000; ++number) switch_->portNotify(intf(number));
  b = nullptr;
  a->kelDoZombieReactors(true);
  a->kelDoZombieReactors(false);
  switch_->portNotify(intf(1));
  EXPECT_EQ(runActivities(), 1u);
  EXPECT_THAT(journal_, ElementsAre("a port eth1"));
}

TEST_F(ActivityTest, ManyReactorsWithOneNotificationEachAreAllTold) {
  std::vector<Kel::Ptr<Recorder>> reactors;
  reactors.reserve(3000);
  for (int number = 0; number < 3000; ++number)
    reactors.push_back(deferred(std::to_string(number)));
  switch_->temperatureIs(1);
  for (std::size_t number = 0; number < reactors.size(); number += 3) reactors[number] = nullptr;
  EXPECT_EQ(runActivities(), 2000u);
  EXPECT_EQ(journal_.front(), "1 temperature");
  EXPECT_EQ(journal_.back(), "2999 temperature");
}

TEST_F(ActivityTest, QueueThatIsRefilledWhileItIsEmptiedKeepsItsOrder) {
  constexpr int keys = 3000;
  for (int const ahead : {1, 62, 63, 64, 200}) {
    journal_.clear();
    auto const r = deferred("r");
    int next = 0;
    for (; next < ahead; ++next) switch_->filterNotify(Toy::address(next));
    r->reaction = [&] {
      if (next < keys) switch_->filterNotify(Toy::address(next++));
    };
    EXPECT_EQ(runActivities(), static_cast<std::size_t>(keys));
    for (int number = 0; number < keys; ++number)
      ASSERT_EQ(journal_[static_cast<std::size_t>(number)],
                Toy::sentence("r filter", Toy::address(number)));
  }
}

TEST_F(ActivityTest, QueueKeepsItsOrderWhenNestedRunsAndExceptionsLeaveItAnywhere) {
  constexpr int keys = 1000;
  auto const r = deferred("r");
  int next = 0;
  r->reaction = [&] {
    std::size_t const heard = journal_.size();
    for (int more = 0; more < 2 && next < keys; ++more) switch_->filterNotify(Toy::address(next++));
    if (heard % 7 == 0) throw std::runtime_error("r failed");
    if (heard % 5 == 0) runActivities();
  };
  switch_->filterNotify(Toy::address(next++));
  while (r->hasPendingNotification()) {
    try {
      runActivities();
    } catch (std::runtime_error const&) {
    }
  }
  ASSERT_EQ(journal_.size(), static_cast<std::size_t>(keys));
  for (int number = 0; number < keys; ++number)
    ASSERT_EQ(journal_[static_cast<std::size_t>(number)],
              Toy::sentence("r filter", Toy::address(number)));
}

TEST_F(ActivityTest, ChainThatWasLongIsCheckedAgainWhenItIsShort) {
  auto const r = deferred("r");
  for (int const count : {20, 1, 9, 8, 2}) {
    for (int round = 0; round < 2; ++round)
      for (int number = 0; number < count; ++number) switch_->filterNotify(Toy::address(number));
    EXPECT_EQ(runActivities(), static_cast<std::size_t>(count));
  }
}

TEST_F(ActivityTest, ReactorOfNestedDeliveriesGoesWhenTheOuterOneIsOver) {
  for (bool const threadSafe : {false, true}) {
    ThreadSafePointers const setting(threadSafe);
    journal_.clear();
    auto r = deferred("r");
    r->atDestruction = [this] { journal_.emplace_back("destroyed"); };
    r->reaction = [this, &r] {
      if (!r) return;
      if (journal_.size() == 1) {
        runActivities();
      } else {
        r = nullptr;
      }
      journal_.emplace_back("over");
    };
    switch_->portNotify(intf(1));
    switch_->portNotify(intf(2));
    EXPECT_EQ(runActivities(), 1u);
    EXPECT_THAT(journal_, ElementsAre("r port eth1", "r port eth2", "over", "over", "destroyed"));
  }
}

TEST_F(ActivityTest, ReactorThatIsLetGoByAHandlerThatThrowsIsDestroyed) {
  for (bool const threadSafe : {false, true}) {
    ThreadSafePointers const setting(threadSafe);
    journal_.clear();
    auto r = deferred("r");
    r->atDestruction = [this] { journal_.emplace_back("destroyed"); };
    r->reaction = [&r] {
      r = nullptr;
      throw std::runtime_error("r failed");
    };
    switch_->portNotify(intf(1));
    EXPECT_THROW(runActivities(), std::runtime_error);
    EXPECT_THAT(journal_, ElementsAre("r port eth1", "destroyed"));
  }
}

TEST_F(ActivityTest, ReactorMayChangeWhatItWatchesInItsDestructor) {
  class Parting : public Recorder {
   public:
    using Recorder::Recorder;
    ~Parting() override { const_cast<Switch&>(*notifier()).temperatureIs(-1); }
  };
  Kel::Ptr<Recorder> parting = Kel::make<Parting>(activity_, switch_, journal_, "parting");
  parting = nullptr;
  EXPECT_EQ(runActivities(), 0u);
  EXPECT_EQ(switch_->temperature(), -1);
}

}  // namespace
