#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/interface/CaptureEthDevPams.h"
#include "platform/snooping/SnoopingPamManager.h"
#include "tests/platform/snooping/MembershipTesting.h"
#include "tests/platform/snooping/SnoopedVlans.h"
#include "tests/platform/wirex/Wiring.h"

namespace {

using namespace SnoopingTest;
using namespace IgmpTest;
using Bridging::VlanId;
using Bridging::IgmpSnooping::ReportBatch;
using Bridging::IgmpSnooping::SnoopingPamManager;
using Igmp::IgnoreReason;
using testing::ElementsAre;
using testing::Pair;
using WirexTest::MultiplexerListener;

class SnoopingPamManagerTest : public testing::Test {
 protected:
  SnoopingPamManagerTest() {
    for (char const* const intf : {"swp1", "swp2"}) kernelHas(intf);
  }

  void kernelHas(char const* intf) { kernel->intfStatusAndDeviceNameIs(IntfId(intf), {intf, 1}); }
  void kernelLoses(char const* intf) { kernel->intfStatusAndDeviceNameDel(IntfId(intf)); }

  void snoop(char const* intf, Vlan& vlan) {
    manager->vlanIs(IntfId(intf), vlan.vlanId, vlan.snooped());
  }
  void untagged(std::uint16_t vlan, char const* intf) {
    bridging->vlanConfigIs(VlanId(vlan))->intfConfigIs(IntfId(intf));
  }
  void hear(char const* intf, FrameBuilder const& frame) {
    devices.receive(IntfId(intf), frame.bytes());
  }
  bool learned(Vlan const& vlan, char const* intf) const {
    auto const status = vlan.status->group(group);
    return status && status->intf(IntfId(intf));
  }
  std::uint64_t ignored(char const* intf, IgnoreReason cause) const {
    return manager->port(IntfId(intf))->counters().ignoredFor(cause);
  }

  static FrameBuilder report() { return FrameBuilder::reportV2(group); }

  Interface::CaptureEthDevPams devices;
  Kel::Ptr<Bridging::Config> bridging = Kel::make<Bridging::Config>();
  Kel::Ptr<Interface::DeviceIntfStatusDir> kernel = Kel::make<Interface::DeviceIntfStatusDir>();
  Interface::EthDevSettings settings{2048, 3, {}};
  ReportBatch batch;
  Kel::Ptr<Horix::TimerWheel> wheel =
      Kel::make<Horix::TimerWheel>(Kel::make<Horix::VirtualClock>());
  Vlan vlan10{10, {}, batch, wheel};
  Vlan vlan20{20, {}, batch, wheel};
  Kel::Ptr<SnoopingPamManager> manager = Kel::make<SnoopingPamManager>(bridging, kernel, settings);
};

// ---- Ports

TEST_F(SnoopingPamManagerTest, HasItsNames) {
  EXPECT_EQ(manager->name(), Kel::Name("SnoopingPamManager"));
  EXPECT_EQ(manager->ethDevPamCol()->name(), Kel::Name("SnoopingEthDevPamCol"));
}

TEST_F(SnoopingPamManagerTest, SnoopsNoPortAtFirst) {
  EXPECT_EQ(manager->port(IntfId("swp1")), nullptr);
  EXPECT_TRUE(manager->port().empty());
  EXPECT_TRUE(manager->ethDevPamCol()->intfPam().empty());
}

TEST_F(SnoopingPamManagerTest, OpensTheDeviceOfASnoopedPortWithItsSettings) {
  manager->portIs(IntfId("swp1"));
  auto const device = manager->ethDevPamCol()->intfPam(IntfId("swp1"));
  ASSERT_TRUE(device);
  EXPECT_EQ(device->settings(), settings);
  EXPECT_EQ(manager->ethDevPamCol()->intfPam().size(), 1u);
}

TEST_F(SnoopingPamManagerTest, FindsThePortThatIsSnoopedAlready) {
  auto const* const port = &manager->portIs(IntfId("swp1"));
  EXPECT_EQ(&manager->portIs(IntfId("swp1")), port);
  EXPECT_EQ(manager->port(IntfId("swp1")), port);
  EXPECT_EQ(manager->port().size(), 1u);
  EXPECT_EQ(port->intfId(), IntfId("swp1"));
}

TEST_F(SnoopingPamManagerTest, SharesDevicesWithOthersWhoWantTheSame) {
  auto const others = devices.pam(IntfId("swp1"), {"swp1", 1}, settings);
  manager->portIs(IntfId("swp1"));
  EXPECT_EQ(manager->ethDevPamCol()->intfPam(IntfId("swp1")), others);
}

// ---- What is heard

TEST_F(SnoopingPamManagerTest, ReportIsLearnedOnItsPortInItsVlan) {
  snoop("swp1", vlan10);
  snoop("swp1", vlan20);
  snoop("swp2", vlan20);
  hear("swp1", report().vlan(20));
  EXPECT_TRUE(learned(vlan20, "swp1"));
  EXPECT_FALSE(learned(vlan20, "swp2"));
  EXPECT_FALSE(learned(vlan10, "swp1"));
}

TEST_F(SnoopingPamManagerTest, ReportWithoutATagIsLearnedInTheUntaggedVlan) {
  untagged(20, "swp1");
  snoop("swp1", vlan10);
  snoop("swp1", vlan20);
  hear("swp1", report());
  EXPECT_TRUE(learned(vlan20, "swp1"));
  EXPECT_FALSE(learned(vlan10, "swp1"));
}

TEST_F(SnoopingPamManagerTest, ReportWithAPriorityOnlyIsLearnedInTheUntaggedVlan) {
  untagged(20, "swp1");
  snoop("swp1", vlan20);
  hear("swp1", report().vlan(0, 6));
  EXPECT_TRUE(learned(vlan20, "swp1"));
}

TEST_F(SnoopingPamManagerTest, UntaggedVlanMayChange) {
  untagged(20, "swp1");
  snoop("swp1", vlan10);
  snoop("swp1", vlan20);
  bridging->vlanConfigDel(VlanId(20));
  untagged(10, "swp1");
  hear("swp1", report());
  EXPECT_TRUE(learned(vlan10, "swp1"));
  EXPECT_FALSE(learned(vlan20, "swp1"));
}

TEST_F(SnoopingPamManagerTest, ReportOfAnotherVlanIsIgnoredAndCounted) {
  snoop("swp1", vlan10);
  hear("swp1", report().vlan(20));
  EXPECT_FALSE(learned(vlan10, "swp1"));
  EXPECT_EQ(ignored("swp1", IgnoreReason::notInVlan), 1u);
}

TEST_F(SnoopingPamManagerTest, ReportWithoutATagIsIgnoredWhereThePortIsTaggedEverywhere) {
  snoop("swp1", vlan10);
  hear("swp1", report());
  EXPECT_FALSE(learned(vlan10, "swp1"));
  EXPECT_EQ(ignored("swp1", IgnoreReason::notInVlan), 1u);
}

TEST_F(SnoopingPamManagerTest, VlansOfOnePortAreNotThoseOfAnother) {
  snoop("swp1", vlan10);
  snoop("swp2", vlan20);
  hear("swp2", report().vlan(10));
  EXPECT_FALSE(learned(vlan10, "swp2"));
  EXPECT_EQ(ignored("swp2", IgnoreReason::notInVlan), 1u);
}

TEST_F(SnoopingPamManagerTest, PortThatIsNotSnoopedHearsNothing) {
  snoop("swp1", vlan10);
  hear("swp2", report().vlan(10));
  EXPECT_FALSE(learned(vlan10, "swp2"));
  manager->doRxPkt(VlanId(10), IntfId("swp2"), Wirex::Pkt::PktIs(report().vlan(10).bytes()));
  manager->doRxPktInNoVlan(IntfId("swp2"), Wirex::Pkt::PktIs(report().bytes()));
  EXPECT_FALSE(learned(vlan10, "swp2"));
}

// ---- Devices that come and go

TEST_F(SnoopingPamManagerTest, VlansMayBeSnoopedBeforeTheirDeviceIsThere) {
  snoop("swp9", vlan10);
  snoop("swp9", vlan20);
  EXPECT_EQ(manager->multiplexer(IntfId("swp9")), nullptr);
  kernelHas("swp9");
  hear("swp9", report().vlan(20));
  hear("swp9", report().vlan(10));
  EXPECT_TRUE(learned(vlan10, "swp9"));
  EXPECT_TRUE(learned(vlan20, "swp9"));
}

TEST_F(SnoopingPamManagerTest, MultiplexerGoesWithItsDevice) {
  snoop("swp1", vlan10);
  kernelLoses("swp1");
  EXPECT_EQ(manager->multiplexer(IntfId("swp1")), nullptr);
  EXPECT_TRUE(manager->port(IntfId("swp1"))) << "the port stays";
}

TEST_F(SnoopingPamManagerTest, PortWhoseDeviceComesBackHearsAgain) {
  untagged(20, "swp1");
  snoop("swp1", vlan10);
  snoop("swp1", vlan20);
  kernelLoses("swp1");
  kernelHas("swp1");
  hear("swp1", report().vlan(10));
  hear("swp1", report());
  EXPECT_TRUE(learned(vlan10, "swp1"));
  EXPECT_TRUE(learned(vlan20, "swp1"));
}

// ---- Ports and VLANs that go

TEST_F(SnoopingPamManagerTest, PortThatIsSnoopedNoLongerIsClosedAndForgotten) {
  snoop("swp1", vlan10);
  snoop("swp1", vlan20);
  hear("swp1", report().vlan(10));
  hear("swp1", report().vlan(20));
  manager->portDel(IntfId("swp1"));
  EXPECT_FALSE(vlan10.has(group));
  EXPECT_FALSE(vlan20.has(group));
  EXPECT_EQ(manager->port(IntfId("swp1")), nullptr);
  EXPECT_TRUE(manager->port().empty());
  EXPECT_TRUE(manager->ethDevPamCol()->intfPam().empty());
  EXPECT_EQ(manager->multiplexer(IntfId("swp1")), nullptr);
  manager->portDel(IntfId("swp1"));
}

TEST_F(SnoopingPamManagerTest, PortMayBeRemovedByTheNameThatItKeeps) {
  snoop("swp1", vlan10);
  manager->portDel(manager->port(IntfId("swp1"))->intfId());
  EXPECT_TRUE(manager->port().empty());
}

TEST_F(SnoopingPamManagerTest, PortThatIsSnoopedAgainHearsAgain) {
  snoop("swp1", vlan10);
  manager->portDel(IntfId("swp1"));
  snoop("swp1", vlan20);
  hear("swp1", report().vlan(10));
  hear("swp1", report().vlan(20));
  EXPECT_FALSE(learned(vlan10, "swp1"));
  EXPECT_TRUE(learned(vlan20, "swp1"));
}

TEST_F(SnoopingPamManagerTest, PortLeavesAVlan) {
  snoop("swp1", vlan10);
  snoop("swp1", vlan20);
  hear("swp1", report().vlan(10));
  manager->vlanDel(IntfId("swp1"), VlanId(10));
  EXPECT_FALSE(vlan10.has(group));
  hear("swp1", report().vlan(10));
  EXPECT_FALSE(vlan10.has(group));
  EXPECT_EQ(ignored("swp1", IgnoreReason::notInVlan), 1u);
  kernelLoses("swp1");
  kernelHas("swp1");
  hear("swp1", report().vlan(10));
  EXPECT_EQ(ignored("swp1", IgnoreReason::notInVlan), 2u) << "not on a new device either";
}

TEST_F(SnoopingPamManagerTest, WhoIsNotSnoopedLeavesNoVlan) {
  manager->vlanDel(IntfId("swp1"), VlanId(10));
  snoop("swp1", vlan10);
  manager->vlanDel(IntfId("swp1"), VlanId(20));
  hear("swp1", report().vlan(10));
  EXPECT_TRUE(learned(vlan10, "swp1"));
}

// ---- Queries

class SnoopingPamManagerQuerierTest : public SnoopingPamManagerTest {
 protected:
  SnoopingPamManagerQuerierTest() {
    devices.sentIs([this](IntfId const& intf, Wirex::Bytes frame) {
      sent.emplace_back(intf.stringValue().view(), vlanOf(frame));
    });
    bridging->vlanConfigIs(VlanId(10))->intfConfigIs(IntfId("swp1"));
    bridging->vlanConfigIs(VlanId(10))->intfConfigIs(IntfId("swp2"))->taggedIs(true);
    for (char const* const intf : {"swp1", "swp2"}) {
      snoop(intf, vlan10);
      auto& port = manager->portIs(IntfId(intf));
      port.sendsIs(true);
      port.macAddressIs({2, 0, 0, 0, 0, 1});
    }
  }
  ~SnoopingPamManagerQuerierTest() override { devices.sentIs({}); }

  void start() { vlan10.querier.settingsIs({.sendsQueries = true}, {}); }

  static int vlanOf(Wirex::Bytes frame) {
    auto const vlan = Igmp::parseEthernet(frame)->vlan;
    return vlan ? vlan->value() : 0;
  }

  std::vector<std::pair<std::string, int>> sent;
};

TEST_F(SnoopingPamManagerQuerierTest, QueryLeavesWithATagWhereTheVlanIsTagged) {
  start();
  EXPECT_THAT(sent, ElementsAre(Pair("swp1", 0), Pair("swp2", 10)));
}

TEST_F(SnoopingPamManagerQuerierTest, PortWhoseDeviceComesBackIsAsked) {
  start();
  sent.clear();
  kernelLoses("swp1");
  kernelHas("swp1");
  EXPECT_THAT(sent, ElementsAre(Pair("swp1", 0)));
}

TEST_F(SnoopingPamManagerQuerierTest, PortWithoutADeviceSendsNothing) {
  kernelLoses("swp1");
  start();
  EXPECT_THAT(sent, ElementsAre(Pair("swp2", 10)));
  EXPECT_EQ(vlan10.querier.sent().general, 1u);
}

TEST_F(SnoopingPamManagerQuerierTest, PortThatIsSnoopedNoLongerIsNotAsked) {
  manager->portDel(IntfId("swp1"));
  start();
  EXPECT_THAT(sent, ElementsAre(Pair("swp2", 10)));
}

TEST_F(SnoopingPamManagerQuerierTest, PortThatIsInTheVlanNoLongerIsNotAsked) {
  manager->vlanDel(IntfId("swp2"), VlanId(10));
  start();
  EXPECT_THAT(sent, ElementsAre(Pair("swp1", 0)));
}

TEST_F(SnoopingPamManagerQuerierTest, TagFollowsTheConfiguration) {
  EXPECT_FALSE(manager->tagOnEgress(VlanId(10), IntfId("swp1")));
  EXPECT_TRUE(manager->tagOnEgress(VlanId(10), IntfId("swp2")));
  EXPECT_FALSE(manager->tagOnEgress(VlanId(20), IntfId("swp2")));
  EXPECT_FALSE(manager->tagOnEgress(VlanId(10), IntfId("swp3")));
  bridging->vlanConfig(VlanId(10))->intfConfig(IntfId("swp2"))->taggedIs(false);
  EXPECT_FALSE(manager->tagOnEgress(VlanId(10), IntfId("swp2")));
}

// ---- The manager

TEST_F(SnoopingPamManagerTest, ZombieFollowsNothing) {
  manager->kelDoZombieReactors(true);
  snoop("swp1", vlan10);
  untagged(10, "swp1");
  EXPECT_TRUE(manager->ethDevPamCol()->intfPam().empty());
  EXPECT_EQ(manager->defaultVlan(IntfId("swp1")), std::nullopt);
}

TEST_F(SnoopingPamManagerTest, InactiveFollowsNothing) {
  manager->hasNotificationActiveIs(false);
  snoop("swp1", vlan10);
  untagged(10, "swp1");
  EXPECT_TRUE(manager->ethDevPamCol()->intfPam().empty());
  EXPECT_EQ(manager->defaultVlan(IntfId("swp1")), std::nullopt);
}

TEST_F(SnoopingPamManagerTest, ClosesItsDevicesAndFollowsNothingWhenItGoes) {
  snoop("swp1", vlan10);
  auto const opened = manager->ethDevPamCol();
  EXPECT_EQ(manager->references(), 1u);
  manager = nullptr;
  hear("swp1", report().vlan(10));
  EXPECT_FALSE(learned(vlan10, "swp1"));
  kernelLoses("swp1");
  kernelHas("swp1");
  EXPECT_EQ(kernel->references(), 1u);
  EXPECT_EQ(bridging->references(), 1u);
  EXPECT_EQ(opened->references(), 1u);
}

TEST_F(SnoopingPamManagerTest, DeviceMayGoWhileItsMultiplexerIsHeardOf) {
  auto const listener = Kel::make<MultiplexerListener>(manager);
  listener->reaction = [&](IntfId const&) { kernelLoses("swp1"); };
  snoop("swp1", vlan10);
  EXPECT_EQ(manager->multiplexer(IntfId("swp1")), nullptr);
  EXPECT_THAT(listener->heard, ElementsAre("swp1 came", "swp1 went"));
}

TEST_F(SnoopingPamManagerTest, MayLoseItsLastReferenceWhileAMultiplexerIsHeardOf) {
  snoop("swp1", vlan10);
  kernelLoses("swp1");
  auto const opened = manager->ethDevPamCol();
  auto listener = Kel::make<MultiplexerListener>(manager);
  listener->reaction = [&](IntfId const&) {
    manager = nullptr;
    listener = nullptr;
  };
  kernelHas("swp1");
  EXPECT_EQ(listener, nullptr);
  EXPECT_EQ(opened->references(), 1u) << "it is gone";
}

}  // namespace
