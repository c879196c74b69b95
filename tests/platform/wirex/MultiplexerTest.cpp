#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/kel/Exception.h"
#include "tests/platform/wirex/Wiring.h"

namespace {

using namespace WirexTest;
using testing::ElementsAre;
using testing::IsEmpty;
using Wirex::Multiplexer;
using Wirex::Pkt;

class VlanListener final : public Multiplexer::NotifieeConst {
 public:
  explicit VlanListener(Kel::Ptr<Multiplexer const> multiplexer) { watch(std::move(multiplexer)); }

  void onVlan(VlanId vlan) override { heard.push_back(vlan.value()); }
  void onVlankelImmediate() override { heard.push_back(0); }

  std::vector<unsigned> heard;  // 0 for all of them
};

class MultiplexerTest : public testing::Test {
 protected:
  MultiplexerTest() { multiplexer->devicePamIs(device); }

  void vlansAre(std::initializer_list<std::uint16_t> vlans) {
    for (auto const vlan : vlans) multiplexer->vlanIs(VlanId(vlan), 0);
  }
  void defaultVlanIs(std::optional<std::uint16_t> vlan) {
    manager->defaultVlanIs(intf, vlan ? std::optional(VlanId(*vlan)) : std::nullopt);
  }
  void send(std::uint16_t vlan) {
    multiplexer->outputPktIs(VlanId(vlan), Pkt::PktIs(untaggedFrame()));
  }

  IntfId intf{"swp1"};
  Kel::Ptr<Device> device = Kel::make<Device>();
  Kel::Ptr<Manager> manager = Kel::make<Manager>();
  Kel::Ptr<Multiplexer> multiplexer = manager->multiplexerIs(intf, manager.get());
};

// ---- VLANs

TEST_F(MultiplexerTest, KnowsItsInterface) {
  EXPECT_EQ(multiplexer->intfId(), intf);
}

TEST_F(MultiplexerTest, RegistersVlansWithTheirPriority) {
  multiplexer->vlanIs(VlanId(10), 0);
  multiplexer->vlanIs(VlanId(20), 7);
  EXPECT_EQ(multiplexer->vlan().size(), 2u);
  EXPECT_EQ(multiplexer->vlan().get(VlanId(20)), 7u);
}

TEST_F(MultiplexerTest, RefusesPrioritiesThatATagHasNoRoomFor) {
  EXPECT_EQ(refusalOf<Kel::RangeException>([&] { multiplexer->vlanIs(VlanId(10), 8); }),
            "Multiplexer::vlan priority > 7 not allowed");
  EXPECT_TRUE(multiplexer->vlan().empty());
}

TEST_F(MultiplexerTest, TellsOfVlansThatComeChangeAndGo) {
  auto const listener = Kel::make<VlanListener>(multiplexer);
  multiplexer->vlanIs(VlanId(10), 0);
  multiplexer->vlanIs(VlanId(10), 0);  // no change
  multiplexer->vlanIs(VlanId(10), 1);
  multiplexer->vlanDel(VlanId(10));
  multiplexer->vlanDel(VlanId(10));  // no change
  EXPECT_THAT(listener->heard, ElementsAre(10, 10, 10));
}

TEST_F(MultiplexerTest, TellsOfEachVlanWhenAllGo) {
  vlansAre({10, 20});
  auto const listener = Kel::make<VlanListener>(multiplexer);
  multiplexer->vlanDelAll();
  EXPECT_THAT(listener->heard, ElementsAre(10, 20));
  EXPECT_TRUE(multiplexer->vlan().empty());
}

TEST_F(MultiplexerTest, TellsOfVlansOnDemand) {
  auto const listener = Kel::make<VlanListener>(multiplexer);
  multiplexer->vlanNotify(VlanId(10));
  multiplexer->vlanNotify();
  EXPECT_THAT(listener->heard, ElementsAre(10, 0));
}

// ---- Receiving

TEST_F(MultiplexerTest, HandsOnWhatCameInAsItWasOnTheWire) {
  vlansAre({10});
  Pkt::PtrConst const pkt = Pkt::PktIs(taggedFrame(10));
  device->inputPktIs(pkt);
  EXPECT_THAT(manager->received, ElementsAre(Manager::Receipt{10, "swp1", taggedFrame(10)}));
  EXPECT_EQ(manager->receivedPackets.front(), pkt) << "it was copied";
}

TEST_F(MultiplexerTest, TaggedFrameBelongsToItsTagsVlanOnly) {
  vlansAre({10, 20});
  device->hears(taggedFrame(20));
  EXPECT_THAT(manager->takeVlans(), ElementsAre(20));
}

TEST_F(MultiplexerTest, PriorityAndDropEligibleBitDoNotChangeTheVlan) {
  vlansAre({10});
  device->hears(taggedFrame(0xf000 | 10));
  EXPECT_THAT(manager->takeVlans(), ElementsAre(10));
}

TEST_F(MultiplexerTest, OuterTagDecides) {
  vlansAre({10, 20});
  device->hears(frame({0x81, 0x00, 0, 20, 0x81, 0x00, 0, 10, 0x08, 0x00}));
  EXPECT_THAT(manager->takeVlans(), ElementsAre(20));
}

TEST_F(MultiplexerTest, FirstAndLastVlanAreVlans) {
  vlansAre({1, 4094});
  device->hears(taggedFrame(1));
  device->hears(taggedFrame(4094));
  EXPECT_THAT(manager->takeVlans(), ElementsAre(1, 4094));
}

TEST_F(MultiplexerTest, UntaggedFrameBelongsToTheDefaultVlan) {
  vlansAre({10, 20});
  defaultVlanIs(20);
  device->hears(untaggedFrame());
  EXPECT_THAT(manager->received, ElementsAre(Manager::Receipt{20, "swp1", untaggedFrame()}));
}

TEST_F(MultiplexerTest, FrameWithAPriorityOnlyBelongsToTheDefaultVlan) {
  vlansAre({10, 20});
  defaultVlanIs(20);
  device->hears(taggedFrame(0xe000));
  EXPECT_THAT(manager->received, ElementsAre(Manager::Receipt{20, "swp1", taggedFrame(0xe000)}));
}

TEST_F(MultiplexerTest, OtherKindsOfTagsAreNone) {
  vlansAre({10, 20});
  defaultVlanIs(20);
  device->hears(frame({0x88, 0xa8, 0, 10, 0x08, 0x00}));  // IEEE 802.1ad
  EXPECT_THAT(manager->takeVlans(), ElementsAre(20));
}

TEST_F(MultiplexerTest, WithoutADefaultVlanFramesWithoutATagAreInNone) {
  vlansAre({10});
  device->hears(untaggedFrame());
  device->hears(taggedFrame(0x2000));
  EXPECT_THAT(manager->takeVlans(), ElementsAre(0, 0));
  EXPECT_EQ(multiplexer->counters().inNoVlan, 2u);
}

TEST_F(MultiplexerTest, DefaultVlanHasToBeRegisteredToo) {
  vlansAre({10});
  defaultVlanIs(20);
  device->hears(untaggedFrame());
  EXPECT_THAT(manager->takeVlans(), ElementsAre(0));
}

TEST_F(MultiplexerTest, FramesOfOtherVlansAreInNoneAndCounted) {
  vlansAre({10});
  device->hears(taggedFrame(20));
  EXPECT_THAT(manager->received,
              ElementsAre(Manager::Receipt{std::nullopt, "swp1", taggedFrame(20)}));
  EXPECT_EQ(multiplexer->counters().inNoVlan, 1u);
}

TEST_F(MultiplexerTest, FramesOfTheVlansAreNotCountedAsOthers) {
  vlansAre({10});
  device->hears(taggedFrame(10));
  EXPECT_EQ(multiplexer->counters().inNoVlan, 0u);
}

TEST_F(MultiplexerTest, ReservedVlanIsNone) {
  vlansAre({10});
  defaultVlanIs(10);
  device->hears(taggedFrame(4095));
  EXPECT_THAT(manager->takeVlans(), ElementsAre(0));
}

TEST_F(MultiplexerTest, VlanThatIsNoLongerRegisteredHearsNothing) {
  vlansAre({10});
  multiplexer->vlanDel(VlanId(10));
  device->hears(taggedFrame(10));
  EXPECT_THAT(manager->takeVlans(), ElementsAre(0));
}

TEST_F(MultiplexerTest, FrameThatEndsInItsTagHasNone) {
  vlansAre({10, 20});
  defaultVlanIs(20);
  for (std::size_t size = 0; size < 18; ++size) {
    Frame frame = taggedFrame(10);
    frame.resize(size);
    device->hears(frame);
    EXPECT_THAT(manager->takeVlans(), ElementsAre(20)) << size << " bytes";
  }
}

TEST_F(MultiplexerTest, FrameThatEndsBehindItsTagHasOne) {
  vlansAre({10, 20});
  defaultVlanIs(20);
  Frame frame = taggedFrame(10);
  frame.resize(18);
  device->hears(frame);
  EXPECT_THAT(manager->takeVlans(), ElementsAre(10));
}

// ---- Sending

TEST_F(MultiplexerTest, SendsWithoutATagAsItIs) {
  vlansAre({10});
  auto const pkt = Pkt::PktIs(untaggedFrame());
  multiplexer->outputPktIs(VlanId(10), pkt);
  EXPECT_THAT(device->sent, ElementsAre(untaggedFrame()));
  EXPECT_EQ(device->sentPackets.front(), pkt) << "it was copied";
}

TEST_F(MultiplexerTest, SendsWithATagIfTheManagerSaysSo) {
  vlansAre({0x123});
  manager->tagged = {{0x123, "swp1"}};
  send(0x123);
  EXPECT_THAT(device->sent, ElementsAre(frame({0x81, 0x00, 0x01, 0x23, 0x08, 0x00, 0xaa, 0xbb})));
}

TEST_F(MultiplexerTest, TagCarriesTheVlansPriority) {
  multiplexer->vlanIs(VlanId(10), 5);
  manager->tagged = {{10, "swp1"}};
  send(10);
  EXPECT_THAT(device->sent, ElementsAre(taggedFrame(5U << 13 | 10)));
}

TEST_F(MultiplexerTest, TagIsOfItsOwnVlanAndInterface) {
  vlansAre({10, 20});
  manager->tagged = {{20, "swp1"}, {10, "swp2"}};
  send(10);
  send(20);
  EXPECT_THAT(device->sent, ElementsAre(untaggedFrame(), taggedFrame(20)));
}

TEST_F(MultiplexerTest, TagGoesIntoTheRoomInFront) {
  vlansAre({10});
  manager->tagged = {{10, "swp1"}};
  auto const pkt = Pkt::PktIs(untaggedFrame());
  multiplexer->outputPktIs(VlanId(10), pkt);
  EXPECT_EQ(device->sentPackets.front(), pkt) << "it was copied";
  EXPECT_EQ(pkt->room(), Pkt::headroom - 4);
}

TEST_F(MultiplexerTest, WithoutADeviceNothingIsSent) {
  vlansAre({10});
  multiplexer->devicePamIs(nullptr);
  send(10);
  EXPECT_THAT(device->sent, IsEmpty());
  EXPECT_EQ(multiplexer->counters().outNoDevice, 1u);
}

TEST_F(MultiplexerTest, InAVlanThatIsNotRegisteredNothingIsSent) {
  vlansAre({10});
  send(20);
  EXPECT_THAT(device->sent, IsEmpty());
  EXPECT_EQ(multiplexer->counters().outNoVlan, 1u);
}

TEST_F(MultiplexerTest, WhatIsSentIsNotCounted) {
  vlansAre({10});
  send(10);
  EXPECT_EQ(multiplexer->counters().outNoVlan, 0u);
  EXPECT_EQ(multiplexer->counters().outNoDevice, 0u);
}

// ---- The device

TEST_F(MultiplexerTest, TellsItsDevice) {
  EXPECT_EQ(multiplexer->devicePam(), device);
  multiplexer->devicePamIs(nullptr);
  EXPECT_EQ(multiplexer->devicePam(), nullptr);
}

TEST_F(MultiplexerTest, HearsItsDeviceOnceHoweverOftenItIsBound) {
  vlansAre({10});
  multiplexer->devicePamIs(device);
  device->hears(taggedFrame(10));
  EXPECT_THAT(manager->takeVlans(), ElementsAre(10));
}

TEST_F(MultiplexerTest, HearsItsFormerDeviceNoMore) {
  vlansAre({10});
  auto const other = Kel::make<Device>();
  multiplexer->devicePamIs(other);
  device->hears(taggedFrame(10));
  EXPECT_THAT(manager->takeVlans(), IsEmpty());
  other->hears(taggedFrame(10));
  EXPECT_THAT(manager->takeVlans(), ElementsAre(10));
}

TEST_F(MultiplexerTest, SendsThroughItsPresentDevice) {
  vlansAre({10});
  auto const other = Kel::make<Device>();
  multiplexer->devicePamIs(other);
  send(10);
  EXPECT_THAT(device->sent, IsEmpty());
  EXPECT_THAT(other->sent, ElementsAre(untaggedFrame()));
}

TEST_F(MultiplexerTest, HoldsItsDeviceUntilItIsTakenAway) {
  EXPECT_GT(device->references(), 1u);
  multiplexer->devicePamIs(nullptr);
  EXPECT_EQ(device->references(), 1u);
}

TEST_F(MultiplexerTest, LetsGoOfItsDeviceWhenItGoes) {
  manager->multiplexerDel(intf);
  multiplexer = nullptr;
  EXPECT_EQ(device->references(), 1u);
}

TEST_F(MultiplexerTest, ZombieHearsNothing) {
  vlansAre({10});
  multiplexer->kelDoZombieReactors(true);
  device->hears(taggedFrame(10));
  EXPECT_THAT(manager->takeVlans(), IsEmpty());
  multiplexer->kelDoZombieReactors(false);
  device->hears(taggedFrame(10));
  EXPECT_THAT(manager->takeVlans(), ElementsAre(10));
}

TEST_F(MultiplexerTest, ZombieWithoutADeviceIsHarmless) {
  multiplexer->devicePamIs(nullptr);
  multiplexer->kelDoZombieReactors(true);
  multiplexer->devicePamIs(device);
  vlansAre({10});
  device->hears(taggedFrame(10));
  EXPECT_THAT(manager->takeVlans(), ElementsAre(10));
}

// ---- The manager

TEST_F(MultiplexerTest, IsRefusedToAnotherManager) {
  auto const other = Kel::make<Manager>();
  EXPECT_NO_THROW(multiplexer->requireConstructedWith(manager.get()));
  EXPECT_THAT(
      refusalOf<Kel::NameInUseException>([&] { multiplexer->requireConstructedWith(other.get()); }),
      testing::StartsWith("Reinstantiating the pointer interface where constructor "
                          "parameter attribute _parent has a different value of "));
}

TEST_F(MultiplexerTest, ThatOutlivesItsManagerHearsAndSendsNothing) {
  vlansAre({10});
  manager = nullptr;
  device->hears(taggedFrame(10));
  send(10);
  EXPECT_THAT(device->sent, IsEmpty());
  EXPECT_EQ(multiplexer->counters().inNoVlan, 0u);
  EXPECT_EQ(multiplexer->counters().outNoDevice, 1u);
}

// ---- What may happen while a packet is handed on

TEST_F(MultiplexerTest, MayBeTakenOutByWhoReceives) {
  vlansAre({10});
  manager->reaction = [&] {
    multiplexer = nullptr;
    manager->multiplexerDel(intf);
  };
  device->hears(taggedFrame(10));
  device->hears(taggedFrame(10));
  EXPECT_THAT(manager->takeVlans(), ElementsAre(10));
}

TEST_F(MultiplexerTest, MayBeTakenOutByWhoReceivesInNoVlan) {
  manager->reaction = [&] {
    multiplexer = nullptr;
    manager->multiplexerDel(intf);
  };
  device->hears(taggedFrame(10));
  device->hears(taggedFrame(10));
  EXPECT_THAT(manager->takeVlans(), ElementsAre(0));
}

TEST_F(MultiplexerTest, MayLoseItsManagerToWhoReceives) {
  vlansAre({10});
  bool destroyed = false;
  manager->atDestruction = [&] { destroyed = true; };
  manager->reaction = [&] {
    // The manager's function object must outlive its own call.
    auto const self = std::exchange(manager->reaction, nullptr);
    multiplexer = nullptr;
    Kel::Ptr<Manager> const held = std::exchange(manager, nullptr);
    EXPECT_FALSE(destroyed);
  };
  device->hears(taggedFrame(10));
  EXPECT_TRUE(destroyed);
}

TEST_F(MultiplexerTest, MayGetAnotherDeviceFromWhoReceives) {
  vlansAre({10});
  auto const other = Kel::make<Device>();
  manager->reaction = [&] { multiplexer->devicePamIs(other); };
  device->hears(taggedFrame(10));
  device->hears(taggedFrame(10));
  other->hears(taggedFrame(10));
  EXPECT_THAT(manager->takeVlans(), ElementsAre(10, 10));
}

TEST_F(MultiplexerTest, MaySendFromWithinAReception) {
  vlansAre({10});
  manager->reaction = [&] { send(10); };
  device->hears(taggedFrame(10));
  EXPECT_THAT(device->sent, ElementsAre(untaggedFrame()));
}

}  // namespace
