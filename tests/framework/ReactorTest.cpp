#include <stdexcept>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/framework/ThreadSafePointers.h"
#include "tests/framework/Toys.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Toy::intf;
using Toy::Recorder;
using Toy::Switch;

class ReactorTest : public testing::Test {
 protected:
  Kel::Ptr<Recorder> recorder(std::string const& name) {
    return Kel::make<Recorder>(switch_, journal_, name);
  }

  Toy::Journal journal_;
  Kel::Ptr<Switch> switch_ = Kel::make<Switch>();
};

TEST_F(ReactorTest, IsActiveAndNoZombieFromConstruction) {
  auto const r = recorder("r");
  EXPECT_TRUE(r->hasNotificationActive());
  EXPECT_FALSE(r->isZombie());
  EXPECT_TRUE(r->notificationActive());
  EXPECT_FALSE(r->initialized());
}

TEST_F(ReactorTest, HoldsItsNotifier) {
  auto const r = recorder("r");
  EXPECT_EQ(r->notifier(), switch_);
  EXPECT_EQ(switch_->references(), 2u);
  switch_ = nullptr;
  EXPECT_EQ(r->notifier()->temperature(), 0);
}

TEST_F(ReactorTest, IsNotHeldByItsNotifier) {
  EXPECT_EQ(recorder("r")->references(), 1u);
}

TEST_F(ReactorTest, HearsSynchronouslyInTheOrderOfTheMutations) {
  auto const r = recorder("r");
  switch_->temperatureIs(1);
  EXPECT_THAT(journal_, ElementsAre("r temperature"));
  switch_->portIs(intf(1));
  switch_->weightIs(Toy::vlan(5), 1);
  EXPECT_THAT(journal_, ElementsAre("r temperature", "r port eth1", "r weight 5"));
}

TEST_F(ReactorTest, HearsOnlyOfItsOwnNotifier) {
  auto const r = recorder("r");
  auto const other = Kel::make<Switch>();
  other->temperatureIs(1);
  EXPECT_THAT(journal_, IsEmpty());
}

TEST_F(ReactorTest, ReactorsAreCalledInTheOrderOfRegistration) {
  auto const a = recorder("a");
  auto const b = recorder("b");
  auto const c = recorder("c");
  switch_->temperatureIs(1);
  EXPECT_THAT(journal_, ElementsAre("a temperature", "b temperature", "c temperature"));
}

TEST_F(ReactorTest, OrderOfTheOthersStaysWhenOneLeaves) {
  auto const a = recorder("a");
  auto b = recorder("b");
  auto const c = recorder("c");
  b = nullptr;
  auto const d = recorder("d");
  switch_->temperatureIs(1);
  EXPECT_THAT(journal_, ElementsAre("a temperature", "c temperature", "d temperature"));
}

TEST_F(ReactorTest, HearsNothingWhileInactive) {
  auto const r = recorder("r");
  r->hasNotificationActiveIs(false);
  EXPECT_FALSE(r->hasNotificationActive());
  EXPECT_FALSE(r->notificationActive());
  switch_->temperatureIs(1);
  EXPECT_THAT(journal_, IsEmpty());
  r->hasNotificationActiveIs(true);
  switch_->temperatureIs(2);
  EXPECT_THAT(journal_, ElementsAre("r temperature"));
}

TEST_F(ReactorTest, ComesLastWhenItIsActivatedAgain) {
  auto const a = recorder("a");
  auto const b = recorder("b");
  a->hasNotificationActiveIs(false);
  a->hasNotificationActiveIs(true);
  switch_->temperatureIs(1);
  EXPECT_THAT(journal_, ElementsAre("b temperature", "a temperature"));
}

TEST_F(ReactorTest, ActivatingAnActiveReactorRegistersItOnlyOnce) {
  auto const a = recorder("a");
  auto const b = recorder("b");
  a->hasNotificationActiveIs(true);
  switch_->temperatureIs(1);
  EXPECT_THAT(journal_, ElementsAre("a temperature", "b temperature"));
}

TEST_F(ReactorTest, DeactivatingTwiceIsHarmless) {
  auto const a = recorder("a");
  auto const b = recorder("b");
  a->hasNotificationActiveIs(false);
  a->hasNotificationActiveIs(false);
  switch_->temperatureIs(1);
  EXPECT_THAT(journal_, ElementsAre("b temperature"));
}

TEST_F(ReactorTest, ZombieCallsNoHandler) {
  auto const r = recorder("r");
  r->kelDoZombieReactors(true);
  EXPECT_TRUE(r->isZombie());
  EXPECT_FALSE(r->notificationActive());
  switch_->temperatureIs(1);
  r->onTemperature();
  EXPECT_THAT(journal_, IsEmpty());
}

TEST_F(ReactorTest, RevivedZombieHearsAgainWithoutWhatItMissed) {
  auto const r = recorder("r");
  r->kelDoZombieReactors(true);
  switch_->temperatureIs(1);
  r->kelDoZombieReactors(false);
  EXPECT_THAT(journal_, IsEmpty());
  switch_->temperatureIs(2);
  EXPECT_THAT(journal_, ElementsAre("r temperature"));
}

TEST_F(ReactorTest, ZombieKeepsItsPlaceInTheOrder) {
  auto const a = recorder("a");
  auto const b = recorder("b");
  a->kelDoZombieReactors(true);
  a->kelDoZombieReactors(false);
  switch_->temperatureIs(1);
  EXPECT_THAT(journal_, ElementsAre("a temperature", "b temperature"));
}

TEST_F(ReactorTest, DeletedReactorHearsNothing) {
  auto r = recorder("r");
  r = nullptr;
  switch_->temperatureIs(1);
  EXPECT_THAT(journal_, IsEmpty());
  EXPECT_EQ(switch_->references(), 1u);
}

TEST_F(ReactorTest, RepointedReactorHearsOfTheNewNotifierOnly) {
  auto const r = recorder("r");
  auto const other = Kel::make<Switch>();
  r->notifierIs(other);
  EXPECT_EQ(r->notifier(), other);
  EXPECT_EQ(switch_->references(), 1u);
  switch_->temperatureIs(1);
  EXPECT_THAT(journal_, IsEmpty());
  other->temperatureIs(1);
  EXPECT_THAT(journal_, ElementsAre("r temperature"));
}

TEST_F(ReactorTest, MayWatchNothing) {
  auto const r = recorder("r");
  r->notifierIs(nullptr);
  EXPECT_EQ(r->notifier(), nullptr);
  r->hasNotificationActiveIs(false);
  r->hasNotificationActiveIs(true);
  switch_->temperatureIs(1);
  EXPECT_THAT(journal_, IsEmpty());
  r->notifierIs(switch_);
  switch_->temperatureIs(2);
  EXPECT_THAT(journal_, ElementsAre("r temperature"));
}

TEST_F(ReactorTest, RepointedWhileInactiveBeginsToHearWhenActive) {
  auto const r = recorder("r");
  auto const other = Kel::make<Switch>();
  r->hasNotificationActiveIs(false);
  r->notifierIs(other);
  other->temperatureIs(1);
  EXPECT_THAT(journal_, IsEmpty());
  r->hasNotificationActiveIs(true);
  other->temperatureIs(2);
  EXPECT_THAT(journal_, ElementsAre("r temperature"));
}

TEST_F(ReactorTest, IsImmediateWithoutAnActivity) {
  auto const r = recorder("r");
  EXPECT_EQ(r->kelFwkActivity(), nullptr);
  EXPECT_FALSE(r->hasPendingNotification());
}

TEST_F(ReactorTest, InitializedIsKept) {
  auto const r = recorder("r");
  r->initializedIs(true);
  EXPECT_TRUE(r->initialized());
  r->initializedIs(false);
  EXPECT_FALSE(r->initialized());
}

/// A call keeps its reactor and its notifier alive without counting, unless pointers are
/// thread-safe; alone or among others, reactors are called in different ways.
class CallTest : public ReactorTest, public testing::WithParamInterface<std::tuple<bool, bool>> {
 protected:
  CallTest() : setting_(std::get<0>(GetParam())) {
    called_ = recorder("called");
    if (std::get<1>(GetParam())) sibling_ = recorder("sibling");
    called_->atDestruction = [this] { journal_.emplace_back("destroyed"); };
    switch_->atDestruction = [this] { journal_.emplace_back("switch destroyed"); };
  }

  ThreadSafePointers setting_;
  Kel::Ptr<Recorder> called_;
  Kel::Ptr<Recorder> sibling_;
};

INSTANTIATE_TEST_SUITE_P(ThreadSafeAndAmongOthers, CallTest,
                         testing::Combine(testing::Bool(), testing::Bool()));

TEST_P(CallTest, ReactorOfNestedCallsGoesWhenTheOuterOneIsOver) {
  sibling_ = nullptr;
  called_->reaction = [this] {
    if (switch_->temperature() == 1)
      switch_->temperatureIs(2);
    else
      called_ = nullptr;
    journal_.emplace_back("over");
  };
  switch_->temperatureIs(1);
  EXPECT_THAT(journal_,
              ElementsAre("called temperature", "called temperature", "over", "over", "destroyed"));
}

TEST_P(CallTest, ReactorThatIsTakenUpAgainDuringTheCallStays) {
  Kel::Ptr<Recorder> taken;
  called_->reaction = [this, &taken] {
    Recorder* const self = called_.get();
    called_ = nullptr;
    taken = Kel::Ptr<Recorder>(self);
    taken = nullptr;
    taken = Kel::Ptr<Recorder>(self);
  };
  switch_->temperatureIs(1);
  EXPECT_EQ(journal_.back(), sibling_ ? "sibling temperature" : "called temperature");
  EXPECT_EQ(taken->references(), 1u);
}

TEST_P(CallTest, ReactorThatIsLetGoByAHandlerThatThrowsIsDestroyed) {
  called_->reaction = [this] {
    called_ = nullptr;
    throw std::runtime_error("failed");
  };
  EXPECT_THROW(switch_->temperatureIs(1), std::runtime_error);
  EXPECT_THAT(journal_, ElementsAre("called temperature", "destroyed"));
}

TEST_P(CallTest, NotifierGoesLast) {
  called_->reaction = [this] {
    switch_ = nullptr;
    sibling_ = nullptr;
    called_ = nullptr;
    journal_.emplace_back("over");
  };
  switch_->temperatureIs(1);
  EXPECT_THAT(journal_, ElementsAre("called temperature", "over", "destroyed", "switch destroyed"));
}

TEST_P(CallTest, OthersThatAHandlerLetsGoAreDestroyedAtOnce) {
  auto other = Kel::make<Switch>();
  other->atDestruction = [this] { journal_.emplace_back("other destroyed"); };
  called_->reaction = [this, &other] {
    other = nullptr;
    journal_.emplace_back("over");
  };
  switch_->temperatureIs(1);
  EXPECT_EQ(journal_[1], "other destroyed");
  EXPECT_EQ(journal_[2], "over");
}

TEST_F(ReactorTest, ManyComeAndGo) {
  std::vector<Kel::Ptr<Recorder>> recorders;
  recorders.reserve(100);
  for (int number = 0; number < 100; ++number)
    recorders.push_back(recorder(std::to_string(number)));
  switch_->temperatureIs(1);
  EXPECT_EQ(journal_.size(), 100u);
  for (std::size_t number = 0; number < 100; number += 2) recorders[number] = nullptr;
  journal_.clear();
  switch_->temperatureIs(2);
  EXPECT_EQ(journal_.size(), 50u);
  EXPECT_EQ(journal_.front(), "1 temperature");
  EXPECT_EQ(journal_.back(), "99 temperature");
  recorders.clear();
  switch_->temperatureIs(3);
  EXPECT_EQ(journal_.size(), 50u);
}

}  // namespace
