#include <chrono>
#include <functional>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/snooping/VlanRouters.h"
#include "tests/TraceCapture.h"

namespace {

using namespace std::chrono_literals;
using Bridging::IgmpSnooping::RouterPort;
using Bridging::IgmpSnooping::RouterPorts;
using Bridging::IgmpSnooping::VlanRouters;
using Bridging::IgmpSnooping::Proxy::Testing::TraceCapture;
using Igmp::PimHello;
using testing::ElementsAre;
using testing::IsEmpty;
using Wirex::IntfId;
using Wirex::IpAddr;

IntfId const swp1("swp1");
IntfId const swp2("swp2");
constexpr IpAddr querier{192, 0, 2, 1};
constexpr IpAddr otherQuerier{192, 0, 2, 2};
constexpr IpAddr router{192, 0, 2, 3};
constexpr IpAddr otherRouter{192, 0, 2, 4};

class VlanRoutersTest : public testing::Test {
 protected:
  bool isRouterPort(IntfId const& intf) const { return ports->routerPort().contains(intf); }
  RouterPort state(IntfId const& intf) const { return ports->routerPort().get(intf); }

  Kel::Ptr<Horix::TimerWheel> wheel =
      Kel::make<Horix::TimerWheel>(Kel::make<Horix::VirtualClock>());
  Kel::Ptr<RouterPorts> ports = Kel::make<RouterPorts>(Bridging::VlanId(10));
  VlanRouters routers{ports, wheel};
};

class Listener final : public RouterPorts::NotifieeConst {
 public:
  explicit Listener(Kel::Ptr<RouterPorts> ports) { watch(std::move(ports)); }

  void onRouterPort(IntfId intf) override {
    heard.push_back(notifier()->routerPort().contains(intf));
    if (reaction) reaction();
  }

  std::vector<bool> heard;
  std::function<void()> reaction;
};

// ---- Queriers

TEST_F(VlanRoutersTest, PortOfAQuerierIsOneForAsLongAsTheQuerierIsTakenToBeThere) {
  wheel->advanceTo(100s);
  routers.querierHeard(swp1, querier, 255s);
  EXPECT_EQ(state(swp1), (RouterPort{false, querier, 355s, IpAddr(), 0s, 100s}));
  EXPECT_FALSE(isRouterPort(swp2));
  wheel->advanceTo(355s - 1ms);
  EXPECT_TRUE(isRouterPort(swp1));
  wheel->advanceTo(355s);
  EXPECT_FALSE(isRouterPort(swp1));
}

TEST_F(VlanRoutersTest, PortKnowsSinceWhenItIsOneForWhateverReason) {
  wheel->advanceTo(100s);
  routers.querierHeard(swp1, querier, 255s);
  wheel->advanceTo(200s);
  routers.querierHeard(swp1, querier, 255s);
  routers.configuredIs(swp1, true);
  wheel->advanceTo(1000s);
  EXPECT_EQ(state(swp1), (RouterPort{true, IpAddr(), 0s, IpAddr(), 0s, 100s}));
  routers.configuredIs(swp1, false);
  routers.configuredIs(swp1, true);
  EXPECT_EQ(state(swp1).since, 1000s) << "meanwhile it was none";
}

TEST_F(VlanRoutersTest, EveryQueryStartsTheTimeAnew) {
  routers.querierHeard(swp1, querier, 255s);
  wheel->advanceTo(200s);
  routers.querierHeard(swp1, querier, 255s);
  wheel->advanceTo(455s - 1ms);
  EXPECT_TRUE(isRouterPort(swp1));
  wheel->advanceTo(455s);
  EXPECT_FALSE(isRouterPort(swp1));
}

TEST_F(VlanRoutersTest, QuerierThatIsNoRouterMakesNoRouterPort) {
  routers.querierHeard(swp1, IpAddr(), 255s);
  EXPECT_FALSE(isRouterPort(swp1));
}

TEST_F(VlanRoutersTest, QuerierOfAShortTimeDoesNotShortenAnothers) {
  routers.querierHeard(swp1, querier, 255s);
  routers.querierHeard(swp1, otherQuerier, 25s);
  EXPECT_EQ(state(swp1).querier, querier);
  wheel->advanceTo(255s - 1ms);
  EXPECT_TRUE(isRouterPort(swp1));
  wheel->advanceTo(255s);
  EXPECT_FALSE(isRouterPort(swp1));
}

TEST_F(VlanRoutersTest, RouterThatMovesMakesItsNewPortOneAndItsFormerOneUntilItsTimeIsOver) {
  routers.querierHeard(swp1, querier, 255s);
  wheel->advanceTo(100s);
  routers.querierHeard(swp2, querier, 255s);
  EXPECT_TRUE(isRouterPort(swp1));
  wheel->advanceTo(255s);
  EXPECT_FALSE(isRouterPort(swp1));
  EXPECT_TRUE(isRouterPort(swp2));
}

// ---- PIM routers

TEST_F(VlanRoutersTest, PortOfAPimRouterIsOneForItsHoldtime) {
  routers.helloHeard(swp1, {router, 105s});
  EXPECT_EQ(state(swp1), (RouterPort{false, IpAddr(), 0s, router, 105s}));
  wheel->advanceTo(105s - 1ms);
  EXPECT_TRUE(isRouterPort(swp1));
  wheel->advanceTo(105s);
  EXPECT_FALSE(isRouterPort(swp1));
}

TEST_F(VlanRoutersTest, PimRouterMayStayForever) {
  routers.helloHeard(swp1, {router, PimHello::forever});
  EXPECT_EQ(state(swp1).pimUntil, Horix::Time::max());
  wheel->advanceTo(24h * 365);
  EXPECT_TRUE(isRouterPort(swp1));
}

TEST_F(VlanRoutersTest, PimRouterThatStayedForeverMayChangeItsMind) {
  routers.helloHeard(swp1, {router, PimHello::forever});
  routers.helloHeard(swp1, {router, 105s});
  wheel->advanceTo(105s);
  EXPECT_FALSE(isRouterPort(swp1));
}

TEST_F(VlanRoutersTest, PimRouterThatSaysGoodbyeIsGoneAtOnce) {
  routers.helloHeard(swp1, {router, 105s});
  routers.helloHeard(swp1, {router, 0s});
  EXPECT_FALSE(isRouterPort(swp1));
  routers.helloHeard(swp1, {router, 0s});
  EXPECT_FALSE(isRouterPort(swp1));
}

TEST_F(VlanRoutersTest, GoodbyeOfOnePimRouterLeavesTheOther) {
  routers.helloHeard(swp1, {router, 105s});
  routers.helloHeard(swp1, {otherRouter, 30s});
  routers.helloHeard(swp1, {router, 0s});
  EXPECT_EQ(state(swp1).pimNeighbor, otherRouter);
  wheel->advanceTo(30s);
  EXPECT_FALSE(isRouterPort(swp1));
}

// ---- Several reasons

TEST_F(VlanRoutersTest, EachReasonEndsOnItsOwn) {
  routers.querierHeard(swp1, querier, 255s);
  routers.helloHeard(swp1, {router, 105s});
  EXPECT_EQ(state(swp1), (RouterPort{false, querier, 255s, router, 105s}));
  wheel->advanceTo(105s);
  EXPECT_EQ(state(swp1), (RouterPort{false, querier, 255s, IpAddr(), 0s}));
  wheel->advanceTo(255s);
  EXPECT_FALSE(isRouterPort(swp1));
}

TEST_F(VlanRoutersTest, ConfiguredPortIsOneUntilItIsConfiguredNoLonger) {
  routers.configuredIs(swp1, true);
  wheel->advanceTo(24h * 365);
  EXPECT_EQ(state(swp1), (RouterPort{true, IpAddr(), 0s, IpAddr(), 0s}));
  routers.configuredIs(swp1, false);
  EXPECT_FALSE(isRouterPort(swp1));
}

TEST_F(VlanRoutersTest, WhatIsHeardOnAConfiguredPortEndsWithoutTheConfiguration) {
  routers.querierHeard(swp1, querier, 255s);
  routers.configuredIs(swp1, true);
  wheel->advanceTo(255s);
  EXPECT_EQ(state(swp1), (RouterPort{true, IpAddr(), 0s, IpAddr(), 0s}));
  routers.querierHeard(swp1, querier, 255s);
  routers.configuredIs(swp1, false);
  EXPECT_TRUE(isRouterPort(swp1)) << "its querier is still heard";
}

TEST_F(VlanRoutersTest, PortThatIsGoneForgetsWhatWasHeard) {
  routers.querierHeard(swp1, querier, 255s);
  routers.helloHeard(swp1, {router, 105s});
  routers.querierHeard(swp2, querier, 255s);
  routers.portIsGone(swp1);
  EXPECT_FALSE(isRouterPort(swp1));
  EXPECT_TRUE(isRouterPort(swp2));
}

TEST_F(VlanRoutersTest, ConfiguredPortThatIsGoneStaysConfigured) {
  routers.configuredIs(swp1, true);
  routers.querierHeard(swp1, querier, 255s);
  routers.portIsGone(swp1);
  EXPECT_EQ(state(swp1), (RouterPort{true, IpAddr(), 0s, IpAddr(), 0s}));
}

// ---- Who watches

TEST_F(VlanRoutersTest, PortIsHeardOfWhenItsStateChanges) {
  auto const listener = Kel::make<Listener>(ports);
  routers.configuredIs(swp1, true);
  routers.configuredIs(swp1, true);
  routers.portIsGone(swp1);
  routers.querierHeard(swp1, IpAddr(), 255s);
  EXPECT_THAT(listener->heard, ElementsAre(true));
  routers.configuredIs(swp1, false);
  EXPECT_THAT(listener->heard, ElementsAre(true, false));
  routers.portIsGone(swp1);
  EXPECT_THAT(listener->heard, ElementsAre(true, false));
}

TEST_F(VlanRoutersTest, PortMayBeForgottenByWhoHearsOfIt) {
  auto const listener = Kel::make<Listener>(ports);
  listener->reaction = [&] {
    listener->reaction = nullptr;
    routers.portIsGone(swp1);
  };
  routers.querierHeard(swp1, querier, 255s);
  EXPECT_FALSE(isRouterPort(swp1));
  wheel->advanceTo(255s);
  EXPECT_THAT(listener->heard, ElementsAre(true, false));
}

TEST_F(VlanRoutersTest, PortsStayWhereTheyAreWhenTheirKeeperGoes) {
  auto const own = Kel::make<RouterPorts>(Bridging::VlanId(20));
  {
    VlanRouters keeper(own, wheel);
    keeper.querierHeard(swp1, querier, 255s);
  }
  wheel->advanceTo(300s);
  EXPECT_TRUE(own->routerPort().contains(swp1)) << "and no timer is left";
}

// ---- Traces

TEST_F(VlanRoutersTest, EachChangeOfTheReasonsIsTracedOnce) {
  auto const traces = TraceCapture::ofEveryLevel("IgmpSnooping::VlanRouters");
  routers.configuredIs(swp1, true);
  routers.querierHeard(swp1, querier, 255s);
  wheel->advanceTo(100s);
  routers.querierHeard(swp1, querier, 255s);
  PimHello hello;
  hello.source = router;
  hello.holdtime = 105s;
  routers.helloHeard(swp1, hello);
  routers.configuredIs(swp1, false);
  wheel->advanceTo(500s);
  EXPECT_THAT(traces.texts(),
              ElementsAre("4 VLAN 10: swp1 is a router port: configured",
                          "4 VLAN 10: swp1 is a router port: configured, querier 192.0.2.1",
                          "4 VLAN 10: swp1 is a router port: configured, querier 192.0.2.1, "
                          "PIM router 192.0.2.3",
                          "4 VLAN 10: swp1 is a router port: querier 192.0.2.1, "
                          "PIM router 192.0.2.3",
                          "4 VLAN 10: swp1 is a router port: querier 192.0.2.1",
                          "4 VLAN 10: swp1 is no router port any more, which it was by: "
                          "querier 192.0.2.1"));
}

}  // namespace
