#include <functional>
#include <random>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/kel/Notification.h"
#include "tests/framework/Toys.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Toy::intf;
using Toy::Recorder;
using Toy::Switch;

/// What callbacks may do to those who call them.
class ReentrancyTest : public testing::Test {
 protected:
  Kel::Ptr<Recorder> recorder(std::string const& name) {
    return Kel::make<Recorder>(switch_, journal_, name);
  }

  /// Lets go of the switch and of the reactor that holds it.
  std::function<void()> endOfSwitch(Kel::Ptr<Recorder>& reactor) {
    return [this, &reactor] {
      reactor = nullptr;
      switch_ = nullptr;
    };
  }
  Kel::Ptr<Toy::Port> portThatEndsSwitch(Kel::Ptr<Recorder>& reactor) {
    auto port = Kel::make<Toy::Port>(intf(1));
    port->atDestruction = endOfSwitch(reactor);
    return port;
  }

  Toy::Journal journal_;
  Kel::Ptr<Switch> switch_ = Kel::make<Switch>();
};

TEST_F(ReentrancyTest, OnlyReactorMayDeleteItself) {
  auto a = recorder("a");
  a->atDestruction = [this] { journal_.emplace_back("a destroyed"); };
  a->reaction = [this, &a] {
    a = nullptr;
    journal_.emplace_back("a still here");
  };
  switch_->temperatureIs(1);
  switch_->temperatureIs(2);
  EXPECT_THAT(journal_, ElementsAre("a temperature", "a still here", "a destroyed"));
}

TEST_F(ReentrancyTest, ReactorAmongOthersMayDeleteItself) {
  auto const a = recorder("a");
  auto b = recorder("b");
  auto const c = recorder("c");
  b->reaction = [&b] { b = nullptr; };
  switch_->temperatureIs(1);
  switch_->temperatureIs(2);
  EXPECT_THAT(journal_, ElementsAre("a temperature", "b temperature", "c temperature",
                                    "a temperature", "c temperature"));
}

TEST_F(ReentrancyTest, DeletedSiblingHearsNothingMore) {
  auto const a = recorder("a");
  auto b = recorder("b");
  auto const c = recorder("c");
  a->reaction = [&b] { b = nullptr; };
  switch_->temperatureIs(1);
  EXPECT_THAT(journal_, ElementsAre("a temperature", "c temperature"));
}

TEST_F(ReentrancyTest, EarlierSiblingMayBeDeleted) {
  auto a = recorder("a");
  auto const b = recorder("b");
  auto const c = recorder("c");
  b->reaction = [&a] { a = nullptr; };
  switch_->temperatureIs(1);
  switch_->temperatureIs(2);
  EXPECT_THAT(journal_, ElementsAre("a temperature", "b temperature", "c temperature",
                                    "b temperature", "c temperature"));
}

TEST_F(ReentrancyTest, AllReactorsMayBeDeletedByTheFirst) {
  std::vector<Kel::Ptr<Recorder>> all;
  for (char const* const name : {"a", "b", "c"}) all.push_back(recorder(name));
  all.front()->reaction = [&all] { all.clear(); };
  switch_->temperatureIs(1);
  switch_->temperatureIs(2);
  EXPECT_THAT(journal_, ElementsAre("a temperature"));
}

TEST_F(ReentrancyTest, SiblingMadeAZombieHearsNothingMore) {
  auto const a = recorder("a");
  auto const b = recorder("b");
  a->reaction = [&b] { b->kelDoZombieReactors(true); };
  switch_->temperatureIs(1);
  EXPECT_THAT(journal_, ElementsAre("a temperature"));
}

TEST_F(ReentrancyTest, SiblingMadeInactiveHearsNothingMore) {
  auto const a = recorder("a");
  auto const b = recorder("b");
  a->reaction = [&b] { b->hasNotificationActiveIs(false); };
  switch_->temperatureIs(1);
  EXPECT_THAT(journal_, ElementsAre("a temperature"));
}

TEST_F(ReentrancyTest, EntryBeingNotifiedMayBeDeleted) {
  auto const a = recorder("a");
  auto const b = recorder("b");
  a->reaction = [this] { switch_->portDel(intf(1)); };
  switch_->portIs(intf(1));
  EXPECT_THAT(journal_, ElementsAre("a port eth1",                 // it came
                                    "a port eth1", "b port eth1",  // it went
                                    "b port eth1"));               // it came, told late
  EXPECT_TRUE(switch_->port().empty());
}

TEST_F(ReentrancyTest, KeyOfANotificationOutlivesItsEntry) {
  switch_->portIs(intf(1));
  auto const a = recorder("a");
  auto const b = recorder("b");
  a->reaction = [this] { switch_->portDel(intf(1)); };
  switch_->portNotify(switch_->port().find(intf(1))->name());
  EXPECT_EQ(journal_.back(), "b port eth1");
}

TEST_F(ReentrancyTest, NotifyingEntityMayLoseItsLastReference) {
  auto a = recorder("a");
  switch_->atDestruction = [this] { journal_.emplace_back("switch destroyed"); };
  a->reaction = [this, &a] {
    switch_ = nullptr;
    a = nullptr;
    journal_.emplace_back("switch still here");
  };
  switch_->temperatureIs(1);
  EXPECT_THAT(journal_, ElementsAre("a temperature", "switch still here", "switch destroyed"));
}

TEST_F(ReentrancyTest, NotifyingEntityMayLoseItsLastReferenceAmongSeveralReactors) {
  std::vector<Kel::Ptr<Recorder>> all;
  for (char const* const name : {"a", "b", "c"}) all.push_back(recorder(name));
  switch_->atDestruction = [this] { journal_.emplace_back("switch destroyed"); };
  all[1]->reaction = [this, &all] {
    switch_ = nullptr;
    all.clear();
  };
  switch_->temperatureIs(1);
  EXPECT_THAT(journal_, ElementsAre("a temperature", "b temperature", "switch destroyed"));
}

TEST_F(ReentrancyTest, EntityThatIsLetGoWhileItRemovesAllStillRemovesAll) {
  for (int number = 0; number < 20; ++number) switch_->portIs(intf(number));
  auto const port = switch_->port(intf(19));
  auto a = recorder("a");
  a->reaction = endOfSwitch(a);
  switch_->portDelAll();
  EXPECT_EQ(switch_, nullptr);
  EXPECT_EQ(port->references(), 1u);
}

TEST_F(ReentrancyTest, EntityThatIsLetGoWhileItRemovesAllValuesStillRemovesAll) {
  for (int number = 1; number <= 20; ++number) switch_->weightIs(Toy::vlan(number), number);
  auto a = recorder("a");
  a->reaction = endOfSwitch(a);
  switch_->weightDelAll();
  EXPECT_EQ(switch_, nullptr);
  EXPECT_THAT(journal_, ElementsAre("a weight 1"));
}

TEST_F(ReentrancyTest, EntityThatIsLetGoWhileItEmptiesASetStillEmptiesIt) {
  for (int number = 1; number <= 20; ++number) switch_->filterIs(Toy::address(number));
  auto a = recorder("a");
  a->reaction = endOfSwitch(a);
  switch_->filterDelAll();
  EXPECT_EQ(switch_, nullptr);
  EXPECT_THAT(journal_, ElementsAre("a filter 10.0.0.1"));
}

// An object that a pointer attribute lets go may be all that holds the attribute's own entity.
TEST_F(ReentrancyTest, FormerObjectOfAPointerMayTakeTheEntityAlong) {
  auto a = recorder("a");
  switch_->uplinkIs(portThatEndsSwitch(a));
  switch_->uplinkIs(Kel::make<Toy::Port>(intf(2)));
  EXPECT_EQ(switch_, nullptr);
  EXPECT_THAT(journal_, ElementsAre("a uplink", "a uplink"));
}

TEST_F(ReentrancyTest, FormerObjectOfAPointerThatIsSetToNullMayTakeTheEntityAlong) {
  auto a = recorder("a");
  switch_->mirrorIs(portThatEndsSwitch(a));
  switch_->mirrorIs(nullptr);
  EXPECT_EQ(switch_, nullptr);
  EXPECT_THAT(journal_, ElementsAre("a mirror", "a mirror"));
}

TEST_F(ReentrancyTest, FormerNotifierMayTakeTheReactorAlong) {
  auto a = recorder("a");
  auto const other = Kel::make<Toy::Switch>();
  switch_->atDestruction = [&a] { a = nullptr; };
  switch_ = nullptr;
  a->notifierIs(other);
  EXPECT_EQ(a, nullptr);
  other->temperatureIs(1);
  EXPECT_THAT(journal_, IsEmpty());
}

TEST_F(ReentrancyTest, RemovingAllTellsOnceOfWhatACallbackHasRemovedAlready) {
  for (int number = 0; number < 3; ++number) switch_->weightIs(Toy::vlan(number + 1), 1);
  auto const a = recorder("a");
  a->reaction = [this] { switch_->weightDel(Toy::vlan(3)); };
  switch_->weightDelAll();
  EXPECT_THAT(journal_, ElementsAre("a weight 1", "a weight 3", "a weight 2"));
}

TEST_F(ReentrancyTest, RemovingAllLeavesWhatACallbackAdds) {
  switch_->filterIs(Toy::address(1));
  auto const a = recorder("a");
  a->reaction = [this] { switch_->filterIs(Toy::address(2)); };
  switch_->filterDelAll();
  EXPECT_TRUE(switch_->filter(Toy::address(2)));
  EXPECT_EQ(switch_->filter().size(), 1u);
}

TEST_F(ReentrancyTest, SameAttributeMayBeChangedAgain) {
  auto const a = recorder("a");
  auto const b = recorder("b");
  std::vector<int> readByB;
  a->reaction = [this] { switch_->temperatureIs(100); };
  b->reaction = [&] { readByB.push_back(switch_->temperature()); };
  switch_->temperatureIs(1);
  EXPECT_THAT(journal_, ElementsAre("a temperature",                   // 1
                                    "a temperature", "b temperature",  // 100
                                    "b temperature"));                 // 1, told late
  EXPECT_THAT(readByB, ElementsAre(100, 100));
}

TEST_F(ReentrancyTest, AttributesMayBeChangedManyTimesOver) {
  auto const a = recorder("a");
  auto const b = recorder("b");
  a->reaction = [this] {
    if (switch_->temperature() < 50) switch_->temperatureIs(switch_->temperature() + 1);
  };
  switch_->temperatureIs(1);
  EXPECT_EQ(journal_.size(), 100u);
}

TEST_F(ReentrancyTest, EntryMayBeReplacedWhileItIsNotified) {
  auto const a = recorder("a");
  auto const b = recorder("b");
  auto const replacement = Kel::make<Toy::Port>(intf(1));
  a->reaction = [&] { switch_->portPut(intf(1), replacement); };
  auto const former = switch_->portIs(intf(1));
  EXPECT_NE(former, replacement);
  EXPECT_EQ(switch_->port(intf(1)), replacement);
  EXPECT_EQ(former->references(), 1u);
}

TEST_F(ReentrancyTest, ReactorRegisteredDuringANotificationDoesNotReceiveIt) {
  for (int const already : {1, 2}) {
    journal_.clear();
    auto const a = recorder("a");
    auto const b = already == 2 ? recorder("b") : nullptr;
    Kel::Ptr<Recorder> late;
    a->reaction = [&] {
      if (!late) late = recorder("late");
    };
    switch_->temperatureIs(already * 10);
    EXPECT_THAT(journal_, testing::Not(testing::Contains("late temperature")));
    switch_->temperatureIs(already * 10 + 1);
    EXPECT_EQ(journal_.back(), "late temperature");
  }
}

TEST_F(ReentrancyTest, ReactorRegisteredDuringANotificationReceivesANestedOne) {
  auto const a = recorder("a");
  auto const b = recorder("b");
  Kel::Ptr<Recorder> late;
  a->reaction = [&] {
    if (late) return;
    late = recorder("late");
    switch_->portNotify();
  };
  switch_->temperatureIs(1);
  EXPECT_THAT(journal_,
              ElementsAre("a temperature", "a ports", "b ports", "late ports", "b temperature"));
}

TEST_F(ReentrancyTest, ReactorThatUnregistersAndRegistersAgainIsNotCalledTwice) {
  auto const a = recorder("a");
  auto const b = recorder("b");
  a->reaction = [&a] {
    a->hasNotificationActiveIs(false);
    a->hasNotificationActiveIs(true);
  };
  switch_->temperatureIs(1);
  EXPECT_THAT(journal_, ElementsAre("a temperature", "b temperature"));
  switch_->temperatureIs(2);
  EXPECT_THAT(journal_,
              ElementsAre("a temperature", "b temperature", "b temperature", "a temperature"));
}

TEST_F(ReentrancyTest, SiblingThatRegistersAgainDoesNotReceiveTheNotificationUnderWay) {
  auto const a = recorder("a");
  auto const b = recorder("b");
  a->reaction = [&b] {
    b->hasNotificationActiveIs(false);
    b->hasNotificationActiveIs(true);
  };
  switch_->temperatureIs(1);
  EXPECT_THAT(journal_, ElementsAre("a temperature"));
}

TEST_F(ReentrancyTest, ReactorMayPointItselfAtAnotherEntity) {
  auto const a = recorder("a");
  auto const b = recorder("b");
  auto const other = Kel::make<Switch>();
  a->reaction = [&] { a->notifierIs(other); };
  switch_->temperatureIs(1);
  switch_->temperatureIs(2);
  other->temperatureIs(1);
  EXPECT_THAT(journal_,
              ElementsAre("a temperature", "b temperature", "b temperature", "a temperature"));
}

TEST_F(ReentrancyTest, OuterNotificationGoesOnInItsPlaceAfterANestedOneLostAReactor) {
  auto const a = recorder("a");
  auto b = recorder("b");
  auto const c = recorder("c");
  auto const d = recorder("d");
  a->reaction = [this] {
    if (switch_->temperature() == 1) switch_->temperatureIs(2);
  };
  c->reaction = [&b] { b = nullptr; };
  switch_->temperatureIs(1);
  EXPECT_THAT(journal_, ElementsAre("a temperature",                                    // 1
                                    "a temperature", "b temperature", "c temperature",  // 2
                                    "d temperature", "c temperature", "d temperature"));
}

TEST_F(ReentrancyTest, ExceptionOfAHandlerReachesTheMutator) {
  auto const a = recorder("a");
  auto const b = recorder("b");
  a->reaction = [] { throw std::runtime_error("a failed"); };
  EXPECT_THROW(switch_->temperatureIs(1), std::runtime_error);
  EXPECT_EQ(switch_->temperature(), 1);
  EXPECT_THAT(journal_, ElementsAre("a temperature"));
}

TEST_F(ReentrancyTest, LaterNotificationsReachAllAfterAnException) {
  auto a = recorder("a");
  auto const b = recorder("b");
  auto c = recorder("c");
  b->reaction = [&] {
    a = nullptr;
    throw std::runtime_error("b failed");
  };
  EXPECT_THROW(switch_->temperatureIs(1), std::runtime_error);
  b->reaction = nullptr;
  auto const d = recorder("d");
  journal_.clear();
  switch_->temperatureIs(2);
  EXPECT_THAT(journal_, ElementsAre("b temperature", "c temperature", "d temperature"));
}

TEST_F(ReentrancyTest, ExceptionOfANestedNotificationUnwindsBoth) {
  auto const a = recorder("a");
  auto const b = recorder("b");
  auto c = recorder("c");
  a->reaction = [this] {
    if (switch_->temperature() == 1) switch_->temperatureIs(2);
  };
  b->reaction = [&c] {
    c = nullptr;
    throw std::runtime_error("b failed");
  };
  EXPECT_THROW(switch_->temperatureIs(1), std::runtime_error);
  b->reaction = nullptr;
  journal_.clear();
  switch_->temperatureIs(3);
  EXPECT_THAT(journal_, ElementsAre("a temperature", "b temperature"));
}

TEST_F(ReentrancyTest, EntityThatIsLetGoByAHandlerThatThrowsIsDestroyed) {
  auto a = recorder("a");
  switch_->atDestruction = [this] { journal_.emplace_back("switch destroyed"); };
  a->reaction = [this, &a] {
    switch_ = nullptr;
    a = nullptr;
    throw std::runtime_error("a failed");
  };
  EXPECT_THROW(switch_->temperatureIs(1), std::runtime_error);
  EXPECT_THAT(journal_, ElementsAre("a temperature", "switch destroyed"));
}

/// An owner whose destructor still takes apart what it owns, as machines do.
class Tidy : public Switch {
 public:
  ~Tidy() override {
    portDelAll();
    temperatureIs(-1);
    portNotify();
  }
};

TEST_F(ReentrancyTest, EntityMayTakeItsMembersOutInItsDestructor) {
  auto tidy = Kel::make<Tidy>();
  auto const port = tidy->portIs(intf(1));
  tidy = nullptr;
  EXPECT_EQ(port->references(), 1u);
}

/// A reactor whose destructor still changes what it watches.
class Parting : public Recorder {
 public:
  Parting(Kel::Ptr<Switch> const& watched, Toy::Journal& journal)
      : Recorder(watched, journal, "parting"), watched_(watched) {}
  ~Parting() override { watched_->temperatureIs(-1); }

 private:
  Kel::Ptr<Switch> watched_;
};

TEST_F(ReentrancyTest, ReactorMayChangeWhatItWatchesInItsDestructor) {
  for (char const* const sibling : {"", "a"}) {
    Kel::Ptr<Recorder> const a = *sibling ? recorder(sibling) : nullptr;
    switch_->temperatureIs(1);
    auto parting = Kel::make<Parting>(switch_, journal_);
    parting = nullptr;
    EXPECT_EQ(switch_->temperature(), -1);
  }
}

/// The slots alone, because what they compact cannot be seen through an entity. A reactor has its
/// place in one entity's slots only, so these are not registered with one.
class NotifieeSlotsTest : public ReentrancyTest {
 protected:
  Kel::Ptr<Recorder> recorder(std::string const& name) {
    auto made = ReentrancyTest::recorder(name);
    made->hasNotificationActiveIs(false);
    return made;
  }

  static std::vector<Kel::Notifiee*> visited(Kel::NotifieeSlots& slots) {
    std::vector<Kel::Notifiee*> visited;
    Kel::NotifieeSlots::Walk walk(slots);
    while (Kel::Notifiee* const notifiee = walk.next()) visited.push_back(notifiee);
    return visited;
  }
};

TEST_F(NotifieeSlotsTest, AreEmptyAgainWhenAllHaveLeftDuringAWalk) {
  auto const a = recorder("a");
  auto const b = recorder("b");
  Kel::NotifieeSlots slots;
  EXPECT_TRUE(slots.empty());
  slots.add(*a);
  slots.add(*b);
  {
    Kel::NotifieeSlots::Walk outer(slots);
    {
      Kel::NotifieeSlots::Walk inner(slots);
      slots.remove(*a);
      slots.remove(*b);
    }
    EXPECT_EQ(outer.next(), nullptr);
    EXPECT_FALSE(slots.empty()) << "compacted under the outer walk";
  }
  EXPECT_TRUE(slots.empty());
}

TEST_F(NotifieeSlotsTest, AreCompactedWhenAnExceptionEndsTheWalk) {
  auto const a = recorder("a");
  auto const b = recorder("b");
  Kel::NotifieeSlots slots;
  slots.add(*a);
  slots.add(*b);
  EXPECT_THROW(
      {
        Kel::NotifieeSlots::Walk walk(slots);
        slots.remove(*a);
        slots.remove(*b);
        throw std::runtime_error("a failed");
      },
      std::runtime_error);
  EXPECT_TRUE(slots.empty());
}

TEST_F(NotifieeSlotsTest, WalkVisitsWhoWasThereAtItsStartAndHasNotLeft) {
  auto const a = recorder("a");
  auto const b = recorder("b");
  auto const c = recorder("c");
  auto const d = recorder("d");
  Kel::NotifieeSlots slots;
  for (Recorder* const each : {a.get(), b.get(), c.get()}) slots.add(*each);
  {
    Kel::NotifieeSlots::Walk walk(slots);
    EXPECT_EQ(walk.next(), a.get());
    slots.remove(*b);
    slots.add(*d);
    EXPECT_EQ(walk.next(), c.get());
    EXPECT_EQ(walk.next(), nullptr);
  }
  Kel::NotifieeSlots::Walk walk(slots);
  EXPECT_EQ(walk.next(), a.get());
  EXPECT_EQ(walk.next(), c.get());
  EXPECT_EQ(walk.next(), d.get());
  EXPECT_EQ(walk.next(), nullptr);
}

TEST_F(NotifieeSlotsTest, KeepTheOrderOfRegistrationWhoeverLeaves) {
  std::mt19937 random(11);
  auto const below = [&random](std::size_t count) { return random() % count; };
  std::vector<Kel::Ptr<Recorder>> idle;
  for (int number = 0; number < 3000; ++number) idle.push_back(recorder("r"));
  std::vector<Kel::Ptr<Recorder>> registered;
  Kel::NotifieeSlots slots;

  auto const add = [&] {
    slots.add(*idle.back());
    registered.push_back(idle.back());
    idle.pop_back();
  };
  auto const removeAt = [&](std::size_t at) {
    slots.remove(*registered[at]);
    idle.push_back(registered[at]);
    registered.erase(registered.begin() + static_cast<std::ptrdiff_t>(at));
  };
  auto const expectOrder = [&] {
    if (registered.size() < 2) return;  // walks are for many
    std::vector<Kel::Notifiee*> expected;
    for (auto const& each : registered) expected.push_back(each.get());
    ASSERT_EQ(visited(slots), expected);
  };

  while (!idle.empty()) add();
  expectOrder();
  for (int round = 0; round < 300; ++round) {
    bool const grows = below(2) == 0;
    for (std::size_t left = below(200); left > 0; --left) {
      if (grows && !idle.empty()) add();
      if (!grows && registered.size() > 2) removeAt(round % 3 == 0 ? 0 : below(registered.size()));
    }
    if (round % 4 == 0) {
      Kel::NotifieeSlots::Walk const walk(slots);  // under which nothing may move
      for (std::size_t left = below(100); left > 0 && registered.size() > 2; --left)
        removeAt(below(registered.size()));
      if (!idle.empty()) add();
    }
    expectOrder();
  }
  while (!registered.empty()) {
    removeAt(0);
    if (registered.size() % 500 == 0) expectOrder();
  }
  EXPECT_TRUE(slots.empty());
}

/// Reactors that do any of the above at random: nothing dangles, and whoever is deleted, inactive
/// or a zombie hears nothing.
TEST_F(ReentrancyTest, AnyMixtureOfReactionsIsSafe) {
  std::mt19937 random(7);
  auto const below = [&random](std::size_t count) { return random() % count; };
  std::vector<Kel::Ptr<Recorder>> crowd(8);
  std::size_t heard = 0;
  int depth = 0;

  std::function<void()> react;
  auto const newcomer = [&] {
    auto made = recorder("r");
    made->reaction = [&, self = made.get()] {
      ++heard;
      EXPECT_TRUE(self->notificationActive());
      react();
    };
    return made;
  };
  auto const change = [&] {
    if (below(2) == 0)
      switch_->temperatureIs(static_cast<int>(random() % 1000));
    else if (below(2) == 0)
      switch_->portIs(intf(static_cast<int>(below(5))));
    else
      switch_->portDel(intf(static_cast<int>(below(5))));
  };
  react = [&] {
    Kel::Ptr<Recorder>& other = crowd[below(crowd.size())];
    switch (below(8)) {
      case 0:
        other = nullptr;
        break;
      case 1:
        other = newcomer();
        break;
      case 2:
        if (other) other->hasNotificationActiveIs(below(2) == 0);
        break;
      case 3:
        if (other) other->kelDoZombieReactors(below(2) == 0);
        break;
      case 4:
        if (other) other->notifierIs(switch_);
        break;
      case 5:
        if (below(50) == 0) switch_ = Kel::make<Switch>();
        break;
      case 6:
        if (below(10) == 0) throw std::runtime_error("failed");
        break;
      default:
        if (depth >= 4) break;
        ++depth;
        try {
          change();
        } catch (std::runtime_error const&) {
        }
        --depth;
    }
  };

  for (int step = 0; step < 20000; ++step) {
    crowd[below(crowd.size())] = newcomer();
    try {
      change();
    } catch (std::runtime_error const&) {
    }
    journal_.clear();
  }
  EXPECT_GT(heard, 20000u);
}

}  // namespace
