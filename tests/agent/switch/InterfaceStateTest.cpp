#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/agent/Addresses.h"
#include "tests/agent/switch/SwitchTesting.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;
using namespace IgmpTest;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char const* portsOfAllKinds = R"(
  [[interface]]
  name = "swp[1-2]"
  [[interface]]
  name = "swp3"
  direction = "egress"
  [[vlan]]
  id = 10
  querier = { igmp-version = 3 }
  interfaces = ["swp[1-3]"]
  static-bridge-mrouter-interface = ["swp2"]
)";

class InterfaceStateTest : public testing::Test {
 protected:
  static InterfaceState without(bool InterfaceState::*what) {
    InterfaceState state = SwitchUnderTest::workingState();
    state.*what = false;
    return state;
  }

  void join() { under.hear("swp1", FrameBuilder::reportV3({isIn(group, {a})})); }

  SwitchUnderTest under{configurationIn(portsOfAllKinds)};
};

TEST_F(InterfaceStateTest, InterfaceThatDoesNotExistHasNoHost) {
  EXPECT_FALSE(under.host("Vlan10swp1"));
  under.works({"swp1"});
  EXPECT_TRUE(under.host("Vlan10swp1"));
  EXPECT_FALSE(under.host("Vlan10swp2"));
}

TEST_F(InterfaceStateTest, InterfaceThatIsNotConfiguredIsOnlyRemembered) {
  under.works({"eth0"});
  EXPECT_TRUE(under->entities().kernelIntfs->intfStatusAndDeviceName().empty());
  EXPECT_TRUE(under->interfaceState(Wirex::IntfId("eth0")).present);
}

TEST_F(InterfaceStateTest, HostHasWhatItsPortHas) {
  under.works({"swp1"});
  Igmp::HostSettings const settings = under.host("Vlan10swp1")->settings();
  EXPECT_EQ(settings.macAddress, SwitchUnderTest::workingState().macAddress);
  EXPECT_EQ(settings.mtu, 1500);
  InterfaceState jumbo = SwitchUnderTest::workingState();
  jumbo.mtu = 9000;
  under.state("swp1", jumbo);
  EXPECT_EQ(under.host("Vlan10swp1")->settings().mtu, 9000);
}

TEST_F(InterfaceStateTest, PortWithoutCarrierIsBlockedAndForgotten) {
  under.works({"swp1", "swp2"});
  join();
  ASSERT_EQ(under.record("Vlan10swp2", group), "include 192.0.2.1");
  under.state("swp1", without(&InterfaceState::carrier));
  EXPECT_TRUE(under.host("Vlan10swp1")->blocked());
  EXPECT_EQ(under.record("Vlan10swp2", group), "none");
  join();
  EXPECT_EQ(under.record("Vlan10swp2", group), "none") << "a port that is down hears nothing";
  under.works({"swp1"});
  EXPECT_FALSE(under.host("Vlan10swp1")->blocked());
  join();
  EXPECT_EQ(under.record("Vlan10swp2", group), "include 192.0.2.1");
}

TEST_F(InterfaceStateTest, BridgePortThatDoesNotForwardIsBlocked) {
  under.works({"swp1"});
  under.state("swp1", without(&InterfaceState::forwarding));
  EXPECT_TRUE(under.host("Vlan10swp1")->blocked());
}

TEST_F(InterfaceStateTest, InterfaceThatIsDeletedLosesItsHostAndMemberships) {
  under.works({"swp1", "swp2"});
  join();
  under.state("swp1", InterfaceState());
  EXPECT_FALSE(under.host("Vlan10swp1"));
  EXPECT_EQ(under.record("Vlan10swp2", group), "none");
}

TEST_F(InterfaceStateTest, InterfaceThatReturnsIsServedAsBefore) {
  under.works({"swp1", "swp2", "swp3"});
  under.state("swp3", InterfaceState());
  InterfaceState again = SwitchUnderTest::workingState();
  again.kernelIndex = 8;
  under.state("swp3", again);
  auto const host = under.host("Vlan10swp3");
  ASSERT_TRUE(host);
  EXPECT_EQ(host->direction(), Bridging::AllowedTrafficDirection::egress);
  EXPECT_NE(host->settings().macAddress, Wirex::MacAddress());
  EXPECT_TRUE(host->pam());
}

TEST_F(InterfaceStateTest, InterfaceThatComesLateIsBlockedIfItsBridgeSaysSo) {
  under.state("swp1", without(&InterfaceState::forwarding));
  ASSERT_TRUE(under.host("Vlan10swp1"));
  EXPECT_TRUE(under.host("Vlan10swp1")->blocked());
}

TEST_F(InterfaceStateTest, PortThatOnlyLetsFramesOutLearnsNothing) {
  under.works({"swp2", "swp3"});
  under.hear("swp3", FrameBuilder::reportV3({isIn(group, {a})}));
  EXPECT_EQ(under.record("Vlan10swp2", group), "none");
}

// ---- Router ports

TEST_F(InterfaceStateTest, OnlyRouterPortsAreToldUnasked) {
  under.works({"swp1", "swp2", "swp3"});
  under.hear("swp1", FrameBuilder::reportV3({isIn(group, {a})}));
  under.pass(3s);
  EXPECT_THAT(under.takeRecords("swp2"),
              ElementsAre("5 239.1.1.1 192.0.2.1", "5 239.1.1.1 192.0.2.1"));
  EXPECT_THAT(under.takeRecords("swp3"), IsEmpty());
}

TEST_F(InterfaceStateTest, PortOnWhichAQuerierIsHeardIsToldWhatThereIsWithinASecond) {
  under.works({"swp1", "swp2"});
  under.hear("swp2", FrameBuilder::reportV3({isIn(group, {a})}));
  under.pass(3s);
  ASSERT_THAT(under.takeRecords("swp1"), IsEmpty());
  under.hear("swp1", FrameBuilder::queryV3({.maxResponseCode = 1}).from(IpAddr(10, 0, 0, 254)));
  EXPECT_TRUE(under.host("Vlan10swp1")->settings().reportsUnasked);
  EXPECT_THAT(under.takeRecords("swp1"), IsEmpty()) << "others hear the new querier too";
  under.pass(1s);
  EXPECT_THAT(under.takeRecords("swp1"), testing::Contains("5 239.1.1.1 192.0.2.1"));
  under.pass(300s);
  EXPECT_FALSE(under.host("Vlan10swp1")->settings().reportsUnasked) << "the querier is gone";
}

TEST_F(InterfaceStateTest, PortOnWhichAPimRouterIsHeardIsToldWhatThereIsAtOnce) {
  under.works({"swp1", "swp2"});
  under.hear("swp2", FrameBuilder::reportV3({isIn(group, {a})}));
  under.hear("swp1", FrameBuilder::message({0x20, 0, 0, 0, 0, 1, 0, 2, 0, 90}, Igmp::allPimRouters)
                         .protocol(103)
                         .withoutRouterAlert());
  EXPECT_THAT(under.takeRecords("swp1"), ElementsAre("5 239.1.1.1 192.0.2.1"));
}

TEST_F(InterfaceStateTest, QuerierOfAnotherVersionIsToldWhereTheSwitchSendsQueries) {
  std::string told;
  under->onOtherVersionIs([&](Switch::OtherVersion const& other) {
    told += message(other.vlanId, ' ', other.intfId, ' ', other.querier, ' ', other.heard);
  });
  under.works({"swp1"});
  auto const query = FrameBuilder::queryV2(IpAddr(), 100).from(IpAddr(10, 0, 0, 254));
  under.hear("swp1", query);
  EXPECT_EQ(told, "");
  under.configure(configurationIn(std::string(portsOfAllKinds) + "send-query = true"));
  under.hear("swp1", query);
  EXPECT_EQ(told, "10 swp1 10.0.0.254 2");
}

TEST_F(InterfaceStateTest, SwitchThatLeavesSaysSoOnItsRouterPorts) {
  under.works({"swp1", "swp2"});
  join();
  under.pass(3s);
  under.takeRecords("swp2");
  under->leave();
  under.pass(0s);
  EXPECT_THAT(under.takeRecords("swp2"), ElementsAre("6 239.1.1.1 192.0.2.1"));
  under.state("swp2", InterfaceState());
  under.works({"swp2"});
  join();
  under.pass(3s);
  EXPECT_EQ(under.framesSent("swp2"), 0u) << "and nothing after that";
}

}  // namespace
}  // namespace Agent
