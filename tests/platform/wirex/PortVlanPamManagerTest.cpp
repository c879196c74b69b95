#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/kel/Exception.h"
#include "tests/platform/wirex/Wiring.h"

namespace {

using namespace WirexTest;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using Wirex::Multiplexer;
using Wirex::Pkt;
using Wirex::PortVlanPamManager;

char const* const otherParent =
    "Reinstantiating the pointer interface where constructor parameter attribute _parent has a "
    "different value of ";

class PortVlanPamManagerTest : public testing::Test {
 protected:
  Kel::Ptr<Multiplexer> multiplexerIs(IntfId const& intf) {
    return manager->multiplexerIs(intf, manager.get());
  }
  Kel::Ptr<MultiplexerListener> listen() { return Kel::make<MultiplexerListener>(manager); }

  IntfId swp1{"swp1"};
  IntfId swp2{"swp2"};
  Kel::Ptr<Device> device = Kel::make<Device>();
  Kel::Ptr<Manager> manager = Kel::make<Manager>();
};

// ---- Multiplexers

TEST_F(PortVlanPamManagerTest, HasNoMultiplexersAtFirst) {
  EXPECT_TRUE(manager->multiplexer().empty());
  EXPECT_EQ(manager->multiplexer(swp1), nullptr);
}

TEST_F(PortVlanPamManagerTest, FindsTheMultiplexerThatIsThere) {
  auto const multiplexer = multiplexerIs(swp1);
  EXPECT_EQ(multiplexer->intfId(), swp1);
  EXPECT_EQ(multiplexerIs(swp1), multiplexer);
  EXPECT_EQ(manager->multiplexer(swp1), multiplexer);
  EXPECT_EQ(manager->multiplexer().size(), 1u);
}

TEST_F(PortVlanPamManagerTest, RefusesToFindAMultiplexerForAnotherParent) {
  multiplexerIs(swp1);
  auto const other = Kel::make<Manager>();
  EXPECT_THAT(
      refusalOf<Kel::NameInUseException>([&] { manager->multiplexerIs(swp1, other.get()); }),
      StartsWith(otherParent));
}

TEST_F(PortVlanPamManagerTest, RefusesToPutAMultiplexerBackForAnotherParent) {
  auto const inUse = multiplexerIs(swp1);
  manager->multiplexerDel(swp1);
  auto const other = Kel::make<Manager>();
  EXPECT_THAT(
      refusalOf<Kel::NameInUseException>([&] { manager->multiplexerIs(swp1, other.get()); }),
      StartsWith(otherParent));
  EXPECT_EQ(manager->multiplexer(swp1), nullptr);
}

TEST_F(PortVlanPamManagerTest, TellsOfMultiplexersThatComeAndGo) {
  auto const listener = listen();
  multiplexerIs(swp1);
  multiplexerIs(swp1);
  multiplexerIs(swp2);
  manager->multiplexerDel(swp1);
  manager->multiplexerDel(swp1);
  EXPECT_THAT(listener->heard, ElementsAre("swp1 came", "swp2 came", "swp1 went"));
}

TEST_F(PortVlanPamManagerTest, TellsOfMultiplexersOnDemand) {
  multiplexerIs(swp1);
  auto const listener = listen();
  manager->multiplexerNotify(swp1);
  manager->multiplexerNotify(swp2);
  manager->multiplexerNotify();
  EXPECT_THAT(listener->heard, ElementsAre("swp1 came", "swp2 went", "all"));
}

TEST_F(PortVlanPamManagerTest, TakesTheDeviceOfAMultiplexerThatGoes) {
  auto const multiplexer = multiplexerIs(swp1);
  multiplexer->devicePamIs(device);
  manager->multiplexerDel(swp1);
  EXPECT_EQ(multiplexer->devicePam(), nullptr);
  EXPECT_EQ(device->references(), 1u);
}

TEST_F(PortVlanPamManagerTest, TakesTheDevicesWhenAllMultiplexersGo) {
  auto const first = multiplexerIs(swp1);
  auto const second = multiplexerIs(swp2);
  first->devicePamIs(device);
  second->devicePamIs(device);
  auto const listener = listen();
  manager->multiplexerDelAll();
  EXPECT_TRUE(manager->multiplexer().empty());
  EXPECT_THAT(listener->heard, ElementsAre("swp1 went", "swp2 went"));
  EXPECT_EQ(device->references(), 1u);
}

TEST_F(PortVlanPamManagerTest, RemovesAMultiplexerByItsOwnName) {
  multiplexerIs(swp1);
  manager->multiplexerDel(manager->multiplexer().keyAt(0));
  EXPECT_TRUE(manager->multiplexer().empty());
}

// ---- Multiplexers that were in use when they went

TEST_F(PortVlanPamManagerTest, PutsAFormerMultiplexerBackWithItsVlans) {
  auto const inUse = multiplexerIs(swp1);
  inUse->vlanIs(VlanId(10), 3);
  manager->multiplexerDel(swp1);
  auto const listener = listen();
  EXPECT_EQ(multiplexerIs(swp1), inUse);
  EXPECT_EQ(manager->multiplexer(swp1), inUse);
  EXPECT_EQ(inUse->vlan().get(VlanId(10)), 3u);
  EXPECT_THAT(listener->heard, ElementsAre("swp1 came"));
}

TEST_F(PortVlanPamManagerTest, MultiplexerThatIsBackSendsAndReceivesAgain) {
  auto const inUse = multiplexerIs(swp1);
  inUse->vlanIs(VlanId(10), 0);
  manager->multiplexerDel(swp1);
  multiplexerIs(swp1)->devicePamIs(device);
  device->hears(taggedFrame(10));
  inUse->outputPktIs(VlanId(10), Pkt::PktIs(untaggedFrame()));
  EXPECT_THAT(manager->takeVlans(), ElementsAre(10));
  EXPECT_THAT(device->sent, ElementsAre(untaggedFrame()));
}

TEST_F(PortVlanPamManagerTest, MakesANewMultiplexerIfNobodyUsesTheFormerOne) {
  multiplexerIs(swp1)->vlanIs(VlanId(10), 0);
  manager->multiplexerDel(swp1);
  EXPECT_TRUE(multiplexerIs(swp1)->vlan().empty());
}

TEST_F(PortVlanPamManagerTest, PutsAMultiplexerBackAgainAndAgain) {
  auto inUse = multiplexerIs(swp1);
  for (int i = 0; i < 3; ++i) {
    manager->multiplexerDel(swp1);
    ASSERT_EQ(multiplexerIs(swp1), inUse);
  }
  manager->multiplexerDel(swp1);
  inUse = nullptr;
  multiplexerIs(swp1)->vlanIs(VlanId(10), 0);
  manager->multiplexerDel(swp1);
  EXPECT_TRUE(multiplexerIs(swp1)->vlan().empty());
}

TEST_F(PortVlanPamManagerTest, FormerMultiplexersOfOtherInterfacesAreNotMixedUp) {
  auto const first = multiplexerIs(swp1);
  auto const second = multiplexerIs(swp2);
  manager->multiplexerDelAll();
  EXPECT_EQ(multiplexerIs(swp2), second);
  EXPECT_EQ(multiplexerIs(swp1), first);
}

TEST_F(PortVlanPamManagerTest, MayGoBeforeMultiplexersInUse) {
  auto there = multiplexerIs(swp1);
  auto former = multiplexerIs(swp2);
  manager->multiplexerDel(swp2);
  bool destroyed = false;
  manager->atDestruction = [&] { destroyed = true; };
  manager = nullptr;
  EXPECT_TRUE(destroyed);
  for (auto const& multiplexer : {there, former}) {
    multiplexer->devicePamIs(device);
    multiplexer->outputPktIs(VlanId(10), Pkt::PktIs(untaggedFrame()));
    EXPECT_EQ(multiplexer->counters().outNoDevice, 1u);
  }
  there = nullptr;
  former = nullptr;
  EXPECT_EQ(device->references(), 1u);
}

// ---- Default VLANs

TEST_F(PortVlanPamManagerTest, InterfacesHaveNoDefaultVlanAtFirst) {
  EXPECT_EQ(manager->defaultVlan(swp1), std::nullopt);
}

TEST_F(PortVlanPamManagerTest, DefaultVlanMayBeSaidBeforeThereIsAMultiplexer) {
  manager->defaultVlanIs(swp1, VlanId(10));
  EXPECT_EQ(manager->defaultVlan(swp1), VlanId(10));
  auto const multiplexer = multiplexerIs(swp1);
  multiplexer->vlanIs(VlanId(10), 0);
  multiplexer->devicePamIs(device);
  device->hears(untaggedFrame());
  EXPECT_THAT(manager->takeVlans(), ElementsAre(10));
}

TEST_F(PortVlanPamManagerTest, DefaultVlanMayChangeAndGo) {
  auto const multiplexer = multiplexerIs(swp1);
  for (VlanId const vlan : {VlanId(10), VlanId(20)}) multiplexer->vlanIs(vlan, 0);
  multiplexer->devicePamIs(device);
  manager->defaultVlanIs(swp1, VlanId(10));
  device->hears(untaggedFrame());
  manager->defaultVlanIs(swp1, VlanId(20));
  EXPECT_EQ(manager->defaultVlan(swp1), VlanId(20));
  device->hears(untaggedFrame());
  manager->defaultVlanIs(swp1, std::nullopt);
  EXPECT_EQ(manager->defaultVlan(swp1), std::nullopt);
  device->hears(untaggedFrame());
  EXPECT_THAT(manager->takeVlans(), ElementsAre(10, 20, 0));
}

TEST_F(PortVlanPamManagerTest, DefaultVlanIsTheInterfacesOwn) {
  manager->defaultVlanIs(swp2, VlanId(10));
  EXPECT_EQ(manager->defaultVlan(swp1), std::nullopt);
  auto const multiplexer = multiplexerIs(swp1);
  multiplexer->vlanIs(VlanId(10), 0);
  multiplexer->devicePamIs(device);
  device->hears(untaggedFrame());
  EXPECT_THAT(manager->takeVlans(), ElementsAre(0));
}

TEST_F(PortVlanPamManagerTest, DefaultVlanThatIsNotThereMayBeTakenAway) {
  manager->defaultVlanIs(swp1, std::nullopt);
  EXPECT_EQ(manager->defaultVlan(swp1), std::nullopt);
}

TEST_F(PortVlanPamManagerTest, MultiplexerThatIsBackHasTheDefaultVlanOfNow) {
  auto const inUse = multiplexerIs(swp1);
  for (VlanId const vlan : {VlanId(10), VlanId(20)}) inUse->vlanIs(vlan, 0);
  manager->defaultVlanIs(swp1, VlanId(10));
  manager->multiplexerDel(swp1);
  manager->defaultVlanIs(swp1, VlanId(20));
  multiplexerIs(swp1)->devicePamIs(device);
  device->hears(untaggedFrame());
  EXPECT_THAT(manager->takeVlans(), ElementsAre(20));
}

// ---- What a manager need not do

class ReceivingManager final : public PortVlanPamManager {
 public:
  ReceivingManager() : PortVlanPamManager("ReceivingManager") {}
  void doRxPkt(VlanId, IntfId, Pkt::PtrConst const&) override { ++received; }

  int received = 0;
};

TEST_F(PortVlanPamManagerTest, SendsWithoutATagUnlessItSaysOtherwise) {
  EXPECT_FALSE(Kel::make<ReceivingManager>()->tagOnEgress(VlanId(10), swp1));
}

TEST_F(PortVlanPamManagerTest, MayIgnoreWhatIsInNoVlan) {
  auto const receiving = Kel::make<ReceivingManager>();
  auto const multiplexer = receiving->multiplexerIs(swp1, receiving.get());
  multiplexer->devicePamIs(device);
  device->hears(taggedFrame(10));
  EXPECT_EQ(receiving->received, 0);
  EXPECT_EQ(multiplexer->counters().inNoVlan, 1u);
}

TEST_F(PortVlanPamManagerTest, HasAName) {
  EXPECT_EQ(manager->name(), Kel::Name("Manager"));
}

TEST_F(PortVlanPamManagerTest, NamesItsAttributes) {
  EXPECT_STREQ(manager->attributeString(0), "name");
  EXPECT_STREQ(manager->attributeString(1), "multiplexer");
  EXPECT_STREQ(manager->attributeString(2), "defaultVlan");
  EXPECT_STREQ(manager->attributeString(3), "unknown");
  EXPECT_STREQ(manager->attributeString(UINT32_MAX), "unknown");
}

// ---- What callbacks may do

TEST_F(PortVlanPamManagerTest, NewMultiplexerMayBeRemovedByWhoHearsOfIt) {
  auto const listener = listen();
  listener->reaction = [&](IntfId const& intf) { manager->multiplexerDel(intf); };
  EXPECT_TRUE(multiplexerIs(swp1));
  EXPECT_EQ(manager->multiplexer(swp1), nullptr);
  EXPECT_THAT(listener->heard, ElementsAre("swp1 came", "swp1 went"));
}

TEST_F(PortVlanPamManagerTest, MayLoseItsLastReferenceToWhoHearsOfANewMultiplexer) {
  bool destroyed = false;
  manager->atDestruction = [&] { destroyed = true; };
  auto listener = listen();
  listener->reaction = [&](IntfId const&) {
    manager = nullptr;
    listener = nullptr;
  };
  auto const multiplexer = multiplexerIs(swp1);
  EXPECT_TRUE(destroyed);
  EXPECT_EQ(multiplexer->intfId(), swp1);
}

TEST_F(PortVlanPamManagerTest, MayLoseItsLastReferenceWhileAllMultiplexersGo) {
  auto const first = multiplexerIs(swp1);
  auto const second = multiplexerIs(swp2);
  for (auto const& multiplexer : {first, second}) multiplexer->devicePamIs(device);
  bool destroyed = false;
  manager->atDestruction = [&] { destroyed = true; };
  auto listener = listen();
  listener->reaction = [&](IntfId const&) {
    manager = nullptr;
    listener = nullptr;
  };
  manager->multiplexerDelAll();
  EXPECT_TRUE(destroyed);
  EXPECT_EQ(second->devicePam(), nullptr) << "the others went too";
}

}  // namespace
