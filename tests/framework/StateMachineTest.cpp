#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/kel/Activity.h"
#include "framework/kel/Reactors.h"
#include "tests/framework/Toys.h"

/// A state machine of the kind that this framework is for: it follows a switch and each of its
/// ports through reactors of its own.
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using Toy::intf;
using Toy::Port;
using Toy::Switch;
using Toy::vlan;

class Monitor : public Kel::PtrInterface {
 public:
  static Kel::Ptr<Monitor> MonitorIs(Kel::Ptr<Switch const> const& watched) {
    return Kel::make<Monitor>(vlan(1), watched);
  }

  Monitor(Bridging::VlanId vlanId, Kel::Ptr<Switch const> watched)
      : vlanId_(vlanId), kelSwitch_(Kel::make<KelSwitch>(std::move(watched), this)) {
    handleInitialized();
  }

  Bridging::VlanId vlanId() const { return vlanId_; }
  Kel::Ptr<Switch const> const& watched() const { return kelSwitch_->notifier(); }
  void watchedIs(Kel::Ptr<Switch const> const& watched) {
    kelSwitch_->notifierIs(watched);
    handlePorts();
  }
  void requireConstructedWith(Kel::Ptr<Switch const> const& watched) const {
    Kel::requireEqual("watched", watched, this->watched());
  }

  bool initialized() const { return initialized_; }

  void hasNotificationActiveIs(bool active) override {
    kelSwitch_->hasNotificationActiveIs(active);
    kelPort_.hasNotificationActiveIs(active);
  }
  void kelDoZombieReactors(bool zombie) override {
    kelSwitch_->kelDoZombieReactors(zombie);
    kelPort_.kelDoZombieReactors(zombie);
  }

  Toy::Journal journal;
  Toy::Journal reactorsDeleted;

 private:
  class KelSwitch : public Switch::NotifieeConst {
   public:
    KelSwitch(Kel::Ptr<Switch const> watched, Monitor* monitor) : monitor_(monitor) {
      watch(std::move(watched));
    }
    void onTemperature() override {
      if (notificationActive()) monitor_->handleTemperature();
    }
    void onPort(Wirex::IntfId const& port) override {
      if (notificationActive()) monitor_->handlePort(port);
    }

   private:
    Monitor* monitor_;
  };

  class KelPort : public Port::NotifieeConst {
   public:
    KelPort(Kel::Ptr<Port const> watched, Monitor* monitor) : monitor_(monitor) {
      watch(std::move(watched));
    }
    ~KelPort() override { monitor_->reactorsDeleted.push_back(Toy::sentence(notifier()->name())); }
    void onUp() override {
      if (notificationActive()) monitor_->handleUp(*notifier());
    }

   private:
    Monitor* monitor_;
  };

  void handleInitialized() {
    handlePorts();
    initialized_ = true;
  }

  void handleTemperature() { journal.push_back(Toy::sentence("temperature")); }
  void handlePorts() {
    kelPort_.reconcile(watched()->port(), [this](auto const& name) { followPort(name); });
  }
  void handlePort(Wirex::IntfId const& name) {
    journal.push_back(Toy::sentence("port", name));
    followPort(name);
  }
  void followPort(Wirex::IntfId const& name) {
    if (Kel::Ptr<Port const> const port = watched()->port(name))
      watchPort(port);
    else
      kelPort_.del(name);
  }
  void handleUp(Port const& port) {
    journal.push_back(Toy::sentence(port.name(), port.up() ? "up" : "down"));
  }
  void watchPort(Kel::Ptr<Port const> const& port) {
    kelPort_.watch(port->name(), port, [&] { return Kel::make<KelPort>(port, this); });
  }

  Bridging::VlanId vlanId_;
  bool initialized_ = false;
  Kel::Ptr<KelSwitch> kelSwitch_;
  Kel::Reactors<Wirex::IntfId, KelPort> kelPort_;
};

/// Owns monitors as members.
class Desk : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<Desk const> {
   public:
    virtual void onMonitor(Bridging::VlanId) {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  Kel::Ptr<Monitor const> monitor(Bridging::VlanId vlanId) const { return monitor_.get(vlanId); }
  Kel::Ptr<Monitor> monitor(Bridging::VlanId vlanId) { return monitor_.get(vlanId); }
  Kel::Ptr<Monitor> monitorIs(Bridging::VlanId vlanId, Kel::Ptr<Switch const> const& watched) {
    return monitor_.is(*this, vlanId, watched);
  }
  void monitorDel(Bridging::VlanId vlanId) { monitor_.del(*this, vlanId); }

 private:
  Kel::Members<Bridging::VlanId, Monitor, &NotifieeConst::onMonitor> monitor_;
};

class StateMachineTest : public testing::Test {
 protected:
  Kel::Ptr<Switch> const switch_ = Kel::make<Switch>();
};

TEST_F(StateMachineTest, HasDoneItsFirstPassWhenItIsMade) {
  switch_->portIs(intf(1));
  auto const monitor = Monitor::MonitorIs(switch_);
  EXPECT_TRUE(monitor->initialized());
  switch_->port(intf(1))->upIs(true);
  EXPECT_THAT(monitor->journal, ElementsAre("eth1 up"));
}

TEST_F(StateMachineTest, FollowsWhatComesLaterThroughTheSameHandlers) {
  auto const monitor = Monitor::MonitorIs(switch_);
  auto const port = switch_->portIs(intf(1));
  port->upIs(true);
  switch_->temperatureIs(40);
  switch_->portDel(intf(1));
  port->upIs(false);
  EXPECT_THAT(monitor->journal, ElementsAre("port eth1", "eth1 up", "temperature", "port eth1"));
  EXPECT_THAT(monitor->reactorsDeleted, ElementsAre("eth1"));
}

TEST_F(StateMachineTest, InactiveHearsNothingThroughAnyOfItsReactors) {
  switch_->portIs(intf(1));
  switch_->portIs(intf(2));
  auto const monitor = Monitor::MonitorIs(switch_);
  monitor->hasNotificationActiveIs(false);
  switch_->temperatureIs(40);
  switch_->port(intf(1))->upIs(true);
  switch_->port(intf(2))->upIs(true);
  EXPECT_THAT(monitor->journal, IsEmpty());
  monitor->hasNotificationActiveIs(true);
  switch_->temperatureIs(41);
  switch_->port(intf(2))->upIs(false);
  EXPECT_THAT(monitor->journal, ElementsAre("temperature", "eth2 down"));
}

TEST_F(StateMachineTest, ZombieHearsNothingThroughAnyOfItsReactorsUntilRevived) {
  switch_->portIs(intf(1));
  auto const monitor = Monitor::MonitorIs(switch_);
  monitor->kelDoZombieReactors(true);
  switch_->temperatureIs(40);
  switch_->port(intf(1))->upIs(true);
  EXPECT_THAT(monitor->journal, IsEmpty());
  monitor->kelDoZombieReactors(false);
  switch_->temperatureIs(41);
  switch_->port(intf(1))->upIs(false);
  EXPECT_THAT(monitor->journal, ElementsAre("temperature", "eth1 down"));
}

TEST_F(StateMachineTest, RemovedMachineHearsNothingMoreThoughStillReferenced) {
  switch_->portIs(intf(1));
  auto const desk = Kel::make<Desk>();
  auto const monitor = desk->monitorIs(vlan(10), switch_);
  desk->monitorDel(vlan(10));
  switch_->temperatureIs(40);
  switch_->port(intf(1))->upIs(true);
  EXPECT_EQ(monitor->references(), 1u);
  EXPECT_THAT(monitor->journal, IsEmpty());
}

TEST_F(StateMachineTest, IsFoundOrMadeByKeyAndArguments) {
  auto const desk = Kel::make<Desk>();
  auto const monitor = desk->monitorIs(vlan(10), switch_);
  EXPECT_EQ(monitor->vlanId(), vlan(10));
  EXPECT_EQ(desk->monitorIs(vlan(10), switch_), monitor);
  EXPECT_THROW(desk->monitorIs(vlan(10), Kel::make<Switch>()), Kel::NameInUseException);
  EXPECT_EQ(desk->monitor(vlan(10)), monitor);
}

TEST_F(StateMachineTest, ReinstantiationWithAnotherPointerShowsBothPointers) {
  auto const desk = Kel::make<Desk>();
  desk->monitorIs(vlan(10), switch_);
  auto const other = Kel::make<Switch>();
  EXPECT_THAT(
      [&] { desk->monitorIs(vlan(10), other); },
      testing::ThrowsMessage<Kel::NameInUseException>(Toy::sentence(
          "Reinstantiating the pointer interface where constructor parameter attribute _watched "
          "has a different value of",
          other, "than the current value of", switch_, "not allowed")));
}

TEST_F(StateMachineTest, ReactorIsKeptAndRepointedWhenItsObjectIsReplaced) {
  auto const former = switch_->portIs(intf(1));
  auto const monitor = Monitor::MonitorIs(switch_);
  auto const replacement = Kel::make<Port>(intf(1));
  switch_->portPut(intf(1), replacement);
  EXPECT_THAT(monitor->reactorsDeleted, IsEmpty());
  monitor->journal.clear();
  former->upIs(true);
  EXPECT_THAT(monitor->journal, IsEmpty());
  replacement->upIs(true);
  EXPECT_THAT(monitor->journal, ElementsAre("eth1 up"));
}

TEST_F(StateMachineTest, ReconciledReactorsAreThoseOfTheNewMembers) {
  for (int const number : {1, 2, 3}) switch_->portIs(intf(number));
  auto const monitor = Monitor::MonitorIs(switch_);
  auto const replacement = Kel::make<Switch>();
  for (int const number : {2, 3, 4}) replacement->portIs(intf(number));
  monitor->watchedIs(replacement);
  EXPECT_THAT(monitor->reactorsDeleted, ElementsAre("eth1"));
  for (int const number : {1, 2, 3}) switch_->port(intf(number))->upIs(true);
  EXPECT_THAT(monitor->journal, IsEmpty());
  for (int const number : {2, 3, 4}) replacement->port(intf(number))->upIs(true);
  EXPECT_THAT(monitor->journal, UnorderedElementsAre("eth2 up", "eth3 up", "eth4 up"));
}

TEST_F(StateMachineTest, ReconcilingTakesANullMemberForNone) {
  switch_->portIs(intf(1));
  auto const monitor = Monitor::MonitorIs(switch_);
  auto const replacement = Kel::make<Switch>();
  replacement->portPut(intf(1), nullptr);
  monitor->watchedIs(replacement);
  EXPECT_THAT(monitor->reactorsDeleted, ElementsAre("eth1"));
}

TEST_F(StateMachineTest, ReconcilingTwiceChangesNothing) {
  switch_->portIs(intf(1));
  auto const monitor = Monitor::MonitorIs(switch_);
  auto const before = Kel::mutationCount();
  monitor->watchedIs(switch_);
  EXPECT_EQ(Kel::mutationCount(), before + 1);  // the machine's own re-pointing
  EXPECT_THAT(monitor->reactorsDeleted, IsEmpty());
}

}  // namespace
