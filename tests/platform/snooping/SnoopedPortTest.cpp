#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <utility>
#include <variant>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/snooping/SnoopedPort.h"
#include "tests/platform/snooping/MembershipTesting.h"
#include "tests/platform/snooping/SnoopedVlans.h"
#include "tests/platform/wirex/Wiring.h"

namespace {

using namespace SnoopingTest;
using namespace IgmpTest;
using namespace std::chrono_literals;
using Bridging::VlanId;
using Bridging::IgmpSnooping::GroupRange;
using Bridging::IgmpSnooping::ReportBatch;
using Bridging::IgmpSnooping::SnoopedPort;
using Bridging::IgmpSnooping::SnoopingPolicy;
using Igmp::IgnoreReason;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

constexpr IpAddr linkLocal{224, 0, 0, 106};

class SnoopedPortTest : public testing::Test {
 protected:
  SnoopedPortTest() {
    port.vlanIs(VlanId(10), vlan10.snooped());
    port.vlanIs(VlanId(20), vlan20.snooped());
  }

  void hear(FrameBuilder const& frame) { hearIn(10, frame); }
  void hearIn(std::uint16_t vlan, FrameBuilder const& frame) {
    port.receive(VlanId(vlan), frame.bytes());
  }
  void hearInNoVlan(FrameBuilder const& frame) { port.receiveInNoVlan(frame.bytes()); }

  /// Another VLAN.
  Vlan& vlanWith(SnoopingPolicy const& policy) {
    return vlans.emplace_back(30, policy, batch, wheel);
  }

  /// What was ignored, without the reasons that there were none of.
  std::map<IgnoreReason, std::uint64_t> ignored() const {
    std::map<IgnoreReason, std::uint64_t> counts;
    for (std::size_t i = 0; i < Igmp::ignoreReasons; ++i) {
      auto const cause = static_cast<IgnoreReason>(i);
      if (auto const count = port.counters().ignoredFor(cause)) counts[cause] = count;
    }
    return counts;
  }

  ReportBatch batch;
  Kel::Ptr<Horix::TimerWheel> wheel =
      Kel::make<Horix::TimerWheel>(Kel::make<Horix::VirtualClock>());
  Vlan vlan10{10, {}, batch, wheel};
  Vlan vlan20{20, {}, batch, wheel};
  std::list<Vlan> vlans;
  SnoopedPort port{IntfId("swp1")};
};

// ---- VLANs

TEST_F(SnoopedPortTest, ReportIsLearnedInItsVlan) {
  hearIn(20, FrameBuilder::reportV2(group).from(host).vlan(20));
  EXPECT_FALSE(vlan10.has(group));
  EXPECT_TRUE(vlan20.has(group));
}

TEST_F(SnoopedPortTest, IgmpInAVlanWithoutThePortIsIgnored) {
  hearInNoVlan(FrameBuilder::reportV2(group).from(host).vlan(30));
  EXPECT_THAT(ignored(), ElementsAre(Pair(IgnoreReason::notInVlan, 1)));
}

TEST_F(SnoopedPortTest, OtherTrafficOfUnknownVlansIsOtherTraffic) {
  hearInNoVlan(FrameBuilder::reportV2(group).etherType(0x86dd).vlan(30));
  EXPECT_THAT(ignored(), ElementsAre(Pair(IgnoreReason::notIgmp, 1)));
}

TEST_F(SnoopedPortTest, ReservedVlanIsNoVlan) {
  hearInNoVlan(FrameBuilder::reportV2(group).vlan(4095));
  EXPECT_THAT(ignored(), ElementsAre(Pair(IgnoreReason::reservedVlan, 1)));
}

TEST_F(SnoopedPortTest, BlockedPortHearsNothingOfOtherVlansEither) {
  port.receivesIs(false);
  hearInNoVlan(FrameBuilder::reportV2(group).vlan(30));
  EXPECT_THAT(ignored(), ElementsAre(Pair(IgnoreReason::portBlocked, 1)));
}

TEST_F(SnoopedPortTest, SecondaryVlansLearnIntoTheirPrimarys) {
  port.vlanIs(VlanId(11), vlan10.snooped());
  hearIn(11, FrameBuilder::reportV2(otherGroup).from(host).vlan(11));
  EXPECT_TRUE(vlan10.has(otherGroup));
}

// ---- Messages

TEST_F(SnoopedPortTest, ReportsOfAllVersionsAreLearned) {
  constexpr IpAddr thirdGroup{232, 1, 1, 3};
  hear(FrameBuilder::reportV1(group));
  hear(FrameBuilder::reportV2(otherGroup));
  hear(FrameBuilder::reportV3({isIn(thirdGroup, {a})}));
  EXPECT_TRUE(vlan10.has(group));
  EXPECT_TRUE(vlan10.has(otherGroup));
  EXPECT_TRUE(vlan10.has(thirdGroup));
  EXPECT_THAT(ignored(), IsEmpty());
}

TEST_F(SnoopedPortTest, MembershipIsOfTheIpSource) {
  hear(FrameBuilder::reportV3({isIn(group, {a})}).from(host));
  auto const membership = vlan10.status->group(group)->intf(IntfId("swp1"))->membership(host);
  ASSERT_TRUE(membership);
  EXPECT_EQ(filterOf(*membership), include({a}));
}

TEST_F(SnoopedPortTest, ReporterWithoutAnAddressIsOne) {
  hear(FrameBuilder::reportV2(group).from(IpAddr()));
  EXPECT_TRUE(vlan10.has(group));
}

TEST_F(SnoopedPortTest, LeaveIsTheReportersOwn) {
  SnoopingPolicy policy;
  policy.fastLeave = true;
  Vlan& vlan = vlanWith(policy);
  port.vlanIs(VlanId(10), vlan.snooped());
  hear(FrameBuilder::reportV2(group).from(host));
  hear(FrameBuilder::leave(group).from(IpAddr(10, 0, 0, 99)));
  EXPECT_TRUE(vlan.has(group));
  hear(FrameBuilder::leave(group).from(host));
  EXPECT_FALSE(vlan.has(group));
}

TEST_F(SnoopedPortTest, QueriesChangeNothing) {
  hear(FrameBuilder::reportV2(group));
  hear(FrameBuilder::queryV1());
  hear(FrameBuilder::queryV2(group, 10));
  hear(FrameBuilder::queryV3({otherGroup}));
  EXPECT_TRUE(vlan10.has(group));
  EXPECT_FALSE(vlan10.has(otherGroup));
  EXPECT_THAT(ignored(), IsEmpty());
}

TEST_F(SnoopedPortTest, MessagesAreCountedByType) {
  hear(FrameBuilder::queryV3({}));
  for (int i = 0; i < 2; ++i) hear(FrameBuilder::reportV1(group));
  for (int i = 0; i < 3; ++i) hear(FrameBuilder::reportV2(group));
  for (int i = 0; i < 4; ++i) hear(FrameBuilder::reportV3({isEx(group), isEx(otherGroup)}));
  for (int i = 0; i < 5; ++i) hear(FrameBuilder::leave(group));
  EXPECT_THAT(port.counters().received, ElementsAre(1, 2, 3, 4, 5));
}

// ---- Router ports

class SnoopedPortRouterTest : public SnoopedPortTest {
 protected:
  static FrameBuilder hello() {
    return FrameBuilder::message({0x20, 0, 0, 0, 0, 1, 0, 2, 0, 90}, Igmp::allPimRouters)
        .protocol(103)
        .withoutRouterAlert();
  }
  static bool isRouterPort(Vlan const& vlan) {
    return vlan.routerPorts->routerPort().contains(IntfId("swp1"));
  }
  static Horix::Time querierUntil(Vlan const& vlan) {
    return vlan.routerPorts->routerPort().get(IntfId("swp1")).querierUntil;
  }
};

TEST_F(SnoopedPortRouterTest, QueriesOfAllVersionsMakeARouterPortOfTheirVlan) {
  for (auto const& query : {FrameBuilder::queryV1(), FrameBuilder::queryV2(IpAddr(), 100),
                            FrameBuilder::queryV3({}), FrameBuilder::queryV2(group, 10)}) {
    hear(query);
    EXPECT_TRUE(isRouterPort(vlan10));
    EXPECT_FALSE(isRouterPort(vlan20));
    vlan10.routers.portIsGone(IntfId("swp1"));
  }
}

TEST_F(SnoopedPortRouterTest, QueryWhereNoQuerierIsAllowedIsIgnoredAndCounted) {
  port.querierAllowedIs(false);
  hear(FrameBuilder::queryV3({}));
  EXPECT_FALSE(isRouterPort(vlan10));
  EXPECT_FALSE(vlan10.querier.otherQuerier());
  EXPECT_THAT(ignored(), ElementsAre(Pair(IgnoreReason::querierNotAllowed, 1)));
  hear(FrameBuilder::reportV2(group).from(host));
  EXPECT_TRUE(vlan10.has(group)) << "listeners are heard";
}

TEST_F(SnoopedPortRouterTest, NothingMakesARouterPortWhereNoRouterIsAllowed) {
  port.routerAllowedIs(false);
  hear(FrameBuilder::queryV3({}));
  hear(hello());
  EXPECT_FALSE(isRouterPort(vlan10));
  EXPECT_TRUE(vlan10.querier.otherQuerier()) << "its query is one all the same";
  EXPECT_THAT(ignored(), ElementsAre(Pair(IgnoreReason::routerNotAllowed, 1)));
}

TEST_F(SnoopedPortRouterTest, RouterThatIsNotAllowedAnyMoreIsForgottenUnlessConfigured) {
  hearIn(20, FrameBuilder::queryV3({}).vlan(20));
  hear(FrameBuilder::queryV3({}));
  vlan20.routers.configuredIs(IntfId("swp1"), true);
  port.routerAllowedIs(false);
  EXPECT_FALSE(isRouterPort(vlan10));
  EXPECT_TRUE(isRouterPort(vlan20));
}

TEST_F(SnoopedPortRouterTest, QueryFromANetworkThatNobodyIsInIsRefused) {
  for (IpAddr const source : {IpAddr(0, 0, 0, 1), IpAddr(0, 255, 255, 255), IpAddr(127, 0, 0, 1)})
    hear(FrameBuilder::queryV3({}).from(source));
  EXPECT_FALSE(isRouterPort(vlan10));
  EXPECT_FALSE(vlan10.querier.otherQuerier());
  EXPECT_THAT(ignored(), ElementsAre(Pair(IgnoreReason::sourceNotUnicast, 3)));
}

TEST_F(SnoopedPortRouterTest, QuerierStaysForItsOwnVariablesWhereItTellsThem) {
  // 3 * 20 s + 5 s / 2
  hear(FrameBuilder::queryV3(
      {.maxResponseCode = 50, .flagsAndRobustness = 3, .queryIntervalCode = 20}));
  EXPECT_EQ(querierUntil(vlan10), 62500ms);
}

TEST_F(SnoopedPortRouterTest, QuerierStaysForTheVlansVariablesWhereItTellsNone) {
  SnoopingPolicy policy;
  policy.robustnessVariable = 4;
  policy.queryInterval = 10s;
  Vlan& vlan = vlanWith(policy);
  port.vlanIs(VlanId(10), vlan.snooped());
  hear(FrameBuilder::queryV2(IpAddr(), 40));
  EXPECT_EQ(querierUntil(vlan), 42s);
  hear(FrameBuilder::queryV3(
      {.maxResponseCode = 40, .flagsAndRobustness = 0, .queryIntervalCode = 0}));
  EXPECT_EQ(querierUntil(vlan), 42s);
  hear(FrameBuilder::queryV1());
  EXPECT_EQ(querierUntil(vlan), 45s) << "its response time is 10 s";
}

TEST_F(SnoopedPortRouterTest, SpecificQueryDoesNotTellTheResponseTimeOfGeneralOnes) {
  hear(FrameBuilder::queryV2(group, 10));
  EXPECT_EQ(querierUntil(vlan10), 255s);
}

TEST_F(SnoopedPortRouterTest, QueryFromNobodyMakesNone) {
  hear(FrameBuilder::queryV3({}).from(IpAddr()));
  EXPECT_FALSE(isRouterPort(vlan10));
}

TEST_F(SnoopedPortRouterTest, BadQueryMakesNone) {
  hear(FrameBuilder::queryV3({}).damageIgmpChecksum());
  hear(FrameBuilder::queryV3({}).damageIpChecksum());
  hear(FrameBuilder::queryV3({}).ttl(2));
  EXPECT_FALSE(isRouterPort(vlan10));
}

TEST_F(SnoopedPortRouterTest, PimHelloMakesOneForItsHoldtimeAndIsCounted) {
  hear(hello());
  EXPECT_EQ(vlan10.routerPorts->routerPort().get(IntfId("swp1")).pimUntil, 90s);
  EXPECT_EQ(port.counters().pimHellos, 1u);
  EXPECT_THAT(ignored(), IsEmpty());
}

TEST_F(SnoopedPortRouterTest, BadPimHelloIsCountedByCause) {
  hear(hello().damageIgmpChecksum());
  hear(hello().ttl(2));
  EXPECT_FALSE(isRouterPort(vlan10));
  EXPECT_EQ(port.counters().pimHellos, 0u);
  EXPECT_THAT(ignored(), UnorderedElementsAre(Pair(IgnoreReason::badPimChecksum, 1),
                                              Pair(IgnoreReason::badTtl, 1)));
}

TEST_F(SnoopedPortRouterTest, BlockedPortHearsNoRouters) {
  port.receivesIs(false);
  hear(hello());
  hear(FrameBuilder::queryV3({}));
  EXPECT_FALSE(isRouterPort(vlan10));
}

TEST_F(SnoopedPortRouterTest, RouterPortOfASecondaryVlanIsItsOwn) {
  auto const ownRouters = Kel::make<Bridging::IgmpSnooping::RouterPorts>(VlanId(11));
  Bridging::IgmpSnooping::VlanRouters routers(ownRouters, wheel);
  port.vlanIs(VlanId(11), {&vlan10.learning, &routers, &vlan10.querier});
  hearIn(11, FrameBuilder::queryV3({}).vlan(11));
  EXPECT_TRUE(ownRouters->routerPort().contains(IntfId("swp1")));
  EXPECT_FALSE(isRouterPort(vlan10));
  port.vlanDel(VlanId(11));
}

TEST_F(SnoopedPortRouterTest, ReportOnARouterPortIsLearnedLikeAnyOther) {
  hear(FrameBuilder::queryV3({}));
  hear(FrameBuilder::reportV2(group));
  EXPECT_TRUE(vlan10.has(group));
}

// ---- Forgetting

class SnoopedPortForgetTest : public SnoopedPortRouterTest {
 protected:
  SnoopedPortForgetTest() {
    hear(FrameBuilder::reportV2(group));
    hear(FrameBuilder::queryV3({}));
    hearIn(20, FrameBuilder::reportV2(group));
  }
};

TEST_F(SnoopedPortForgetTest, PortThatIsGoneForgetsWhatItHeardInAllItsVlans) {
  vlan10.learning.report(IntfId("swp2"), host, otherGroup);
  port.forget();
  EXPECT_FALSE(vlan10.has(group));
  EXPECT_FALSE(vlan20.has(group));
  EXPECT_FALSE(isRouterPort(vlan10));
  EXPECT_TRUE(vlan10.has(otherGroup)) << "of another port";
  hear(FrameBuilder::reportV2(group));
  EXPECT_TRUE(vlan10.has(group)) << "it still is in its VLANs";
}

TEST_F(SnoopedPortForgetTest, PortThatLeavesAVlanIsForgottenThere) {
  port.vlanDel(VlanId(10));
  EXPECT_FALSE(vlan10.has(group));
  EXPECT_FALSE(isRouterPort(vlan10));
  EXPECT_TRUE(vlan20.has(group));
  hear(FrameBuilder::reportV2(group));
  EXPECT_FALSE(vlan10.has(group));
  EXPECT_THAT(ignored(), ElementsAre(Pair(IgnoreReason::notInVlan, 1)));
  port.vlanDel(VlanId(10));
}

TEST_F(SnoopedPortForgetTest, PortThatLeavesASecondaryVlanKeepsWhatItsPrimaryMayHaveHeard) {
  port.vlanIs(VlanId(11), vlan10.snooped());
  port.vlanDel(VlanId(11));
  EXPECT_TRUE(vlan10.has(group));
  port.vlanDel(VlanId(10));
  EXPECT_FALSE(vlan10.has(group));
}

// ---- Queries that are sent

class SnoopedPortQuerierTest : public SnoopedPortTest {
 protected:
  SnoopedPortQuerierTest() {
    multiplexer->devicePamIs(device);
    multiplexer->vlanIs(VlanId(10), 0);
    policy.queryMaxResponseTime = 10s;
    querierIs({.sendsQueries = true, .version = Igmp::IgmpVersion::v3, .source = querier});
  }

  void querierIs(Bridging::IgmpSnooping::QuerierSettings const& settings) {
    vlan10.learning.policyIs(policy);
    vlan10.querier.settingsIs(settings, policy);
  }
  void bringUp() {
    port.sendsIs(true);
    port.macAddressIs(mac);
    port.multiplexerIs(multiplexer);
    device->sent.clear();
  }
  /// The queries on the wire since the last call.
  std::vector<SentQuery> sent() {
    std::vector<SentQuery> queries;
    for (auto const& frame : std::exchange(device->sent, {})) {
      auto const packet = Igmp::parsePacket(*Igmp::parseEthernet(frame), {true});
      EXPECT_TRUE(packet) << "Router Alert, checksums and TTL are right";
      EXPECT_EQ(packet->source, querier);
      queries.push_back(sentQuery(std::get<Igmp::Query>(packet->message)));
    }
    return queries;
  }

  static constexpr IpAddr querier{10, 0, 0, 254};
  static constexpr Wirex::MacAddress mac{2, 0, 0, 0, 0, 1};

  SnoopingPolicy policy;
  Kel::Ptr<WirexTest::Manager> manager = Kel::make<WirexTest::Manager>();
  Kel::Ptr<WirexTest::Device> device = Kel::make<WirexTest::Device>();
  Kel::Ptr<Wirex::Multiplexer> multiplexer = manager->multiplexerIs(IntfId("swp1"), manager.get());
};

TEST_F(SnoopedPortQuerierTest, PortThatHasAllItTakesToSendIsAskedOnce) {
  port.sendsIs(true);
  port.multiplexerIs(multiplexer);
  EXPECT_THAT(sent(), IsEmpty());
  port.macAddressIs(mac);
  ASSERT_THAT(device->sent, testing::SizeIs(1));
  EXPECT_TRUE(std::equal(mac.begin(), mac.end(), device->sent.front().begin() + 6));
  EXPECT_THAT(sent(), ElementsAre(generalQuery));
  port.macAddressIs(mac);
  port.sendsIs(true);
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(SnoopedPortQuerierTest, PortThatLacksSomethingSendsNothing) {
  bringUp();
  for (auto const& takeAway : std::vector<std::function<void()>>{
           [&] { port.sendsIs(false); }, [&] { port.macAddressIs({}); },
           [&] { port.multiplexerIs(nullptr); }}) {
    bringUp();
    takeAway();
    wheel->advanceTo(wheel->now() + 125s);
    EXPECT_THAT(sent(), IsEmpty());
  }
}

TEST_F(SnoopedPortQuerierTest, LeaveOfAMemberIsAskedAbout) {
  bringUp();
  hear(FrameBuilder::reportV2(group).from(host));
  hear(FrameBuilder::leave(group).from(host));
  EXPECT_THAT(sent(), ElementsAre(SentQuery{group}));
}

TEST_F(SnoopedPortQuerierTest, GroupQueryGoesToTheMacAddressOfTheLow23BitsOfTheGroup) {
  constexpr IpAddr of24Bits(239, 129, 1, 1);
  bringUp();
  hear(FrameBuilder::reportV2(of24Bits).from(host));
  hear(FrameBuilder::leave(of24Bits).from(host));
  ASSERT_THAT(device->sent, testing::SizeIs(1));
  auto const frame = device->sent.front().begin();
  EXPECT_THAT(std::vector<std::uint8_t>(frame, frame + 6),
              ElementsAre(0x01, 0x00, 0x5e, 0x01, 0x01, 0x01));
}

TEST_F(SnoopedPortQuerierTest, LeaveOfWhoseReportAnotherMadeUnnecessaryIsAskedAbout) {
  bringUp();
  hear(FrameBuilder::reportV2(group).from(host));
  hear(FrameBuilder::leave(group).from(IpAddr(10, 0, 0, 2)));
  EXPECT_THAT(sent(), ElementsAre(SentQuery{group, {}, true}));
}

TEST_F(SnoopedPortQuerierTest, LeaveOfAGroupThatNobodyOnThePortIsInIsNot) {
  bringUp();
  hear(FrameBuilder::leave(group).from(host));
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(SnoopedPortQuerierTest, WithdrawnSourcesAreAskedForThoughTheReporterIsGone) {
  bringUp();
  hear(FrameBuilder::reportV3({isIn(group, {a}), isEx(otherGroup)}).from(host));
  hear(FrameBuilder::reportV3({block(group, {a}), toIn(otherGroup)}).from(host));
  EXPECT_FALSE(vlan10.has(group));
  EXPECT_THAT(sent(), ElementsAre(SentQuery{group, {a}}, SentQuery{otherGroup}));
}

TEST_F(SnoopedPortQuerierTest, WithFastLeaveTheLastOneIsNotAskedAbout) {
  policy.fastLeave = true;
  querierIs(vlan10.querier.settings());
  bringUp();
  hear(FrameBuilder::reportV2(group).from(host));
  hear(FrameBuilder::reportV3({isIn(otherGroup, {a})}).from(host));
  hear(FrameBuilder::leave(group).from(host));
  hear(FrameBuilder::reportV3({block(otherGroup, {a})}).from(host));
  EXPECT_FALSE(vlan10.has(group));
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(SnoopedPortQuerierTest, WithFastLeaveOneOfSeveralIsAskedAbout) {
  policy.fastLeave = true;
  querierIs(vlan10.querier.settings());
  bringUp();
  hear(FrameBuilder::reportV2(group).from(host));
  hear(FrameBuilder::reportV2(group).from(IpAddr(10, 0, 0, 2)));
  hear(FrameBuilder::leave(group).from(host));
  EXPECT_THAT(sent(), ElementsAre(SentQuery{group, {}, true}));
}

TEST_F(SnoopedPortQuerierTest, IgnoredRecordIsNotAskedAbout) {
  policy.ssmRange = GroupRange(group, 32);
  querierIs(vlan10.querier.settings());
  bringUp();
  hear(FrameBuilder::reportV3({isIn(group, {a})}).from(host));
  hear(FrameBuilder::reportV3({toEx(group, {a})}).from(host));
  EXPECT_THAT(ignored(), ElementsAre(Pair(IgnoreReason::ssmExclude, 1)));
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(SnoopedPortQuerierTest, WhatARecordWithdrawsIsAskedAboutThoughALimitRefusesWhatItAdds) {
  policy.maxGroupSources = 1;
  querierIs(vlan10.querier.settings());
  bringUp();
  hear(FrameBuilder::reportV3({isIn(group, {a})}).from(host));
  hear(FrameBuilder::reportV3({toIn(group, {host, otherHost})}).from(host));
  EXPECT_THAT(ignored(), ElementsAre(Pair(IgnoreReason::tooManySources, 1)));
  EXPECT_THAT(sent(), ElementsAre(SentQuery{group, {a}}));
}

TEST_F(SnoopedPortQuerierTest, QuerierOfALowerAddressIsHeard) {
  hear(FrameBuilder::queryV2(IpAddr(), 100).from(IpAddr(10, 0, 0, 253)));
  EXPECT_EQ(vlan10.querier.otherQuerier()->address, IpAddr(10, 0, 0, 253));
  wheel->advanceTo(255s - 1ms);
  EXPECT_FALSE(vlan10.querier.isQuerier());
  wheel->advanceTo(255s);
  EXPECT_TRUE(vlan10.querier.isQuerier());
}

TEST_F(SnoopedPortQuerierTest, OtherVersionIsToldOfGeneralQueriesOnly) {
  std::vector<IpAddr> told;
  vlan10.querier.onOtherVersionIs([&](auto const& other) { told.push_back(other.querier); });
  hear(FrameBuilder::queryV2(group, 10).from(IpAddr(10, 0, 0, 252)));
  hear(FrameBuilder::queryV2(IpAddr(), 100).from(IpAddr(10, 0, 0, 253)));
  EXPECT_THAT(told, ElementsAre(IpAddr(10, 0, 0, 253)));
}

TEST_F(SnoopedPortQuerierTest, QuerierWithoutAnAddressIsMeasuredByThePortsMacAddress) {
  auto const fromNoAddress = FrameBuilder::queryV2(IpAddr(), 100).from(IpAddr());
  querierIs({.sendsQueries = true, .version = Igmp::IgmpVersion::v3, .source = IpAddr()});
  port.macAddressIs({1, 255, 255, 255, 255, 255});  // it comes from 02:00:00:00:00:00
  hear(fromNoAddress);
  EXPECT_TRUE(vlan10.querier.isQuerier());
  port.macAddressIs(mac);
  hear(fromNoAddress);
  EXPECT_FALSE(vlan10.querier.isQuerier());
}

TEST_F(SnoopedPortQuerierTest, PortThatLeavesTheVlanSendsNoMoreOfItsQueries) {
  bringUp();
  port.vlanDel(VlanId(10));
  wheel->advanceTo(1000s);
  EXPECT_THAT(sent(), IsEmpty());
}

TEST_F(SnoopedPortQuerierTest, VlanMayGetAnotherQuerier) {
  bringUp();
  port.vlanIs(VlanId(10), vlan20.snooped());
  wheel->advanceTo(1000s);
  EXPECT_THAT(sent(), IsEmpty());
}

// ---- What is ignored

TEST_F(SnoopedPortTest, BlockedPortLearnsNothing) {
  port.receivesIs(false);
  hear(FrameBuilder::reportV2(group));
  EXPECT_FALSE(vlan10.has(group));
  EXPECT_THAT(ignored(), ElementsAre(Pair(IgnoreReason::portBlocked, 1)));
}

TEST_F(SnoopedPortTest, BadFrameIsCountedAndTheNextOneIsUsed) {
  hear(FrameBuilder::reportV2(group).damageIpChecksum());
  hear(FrameBuilder::reportV2(group).damageIgmpChecksum());
  hear(FrameBuilder::reportV2(group).damageIgmpChecksum());
  hear(FrameBuilder::reportV2(group).ttl(2));
  hear(FrameBuilder::reportV2(group).totalLength(1000));
  EXPECT_FALSE(vlan10.has(group));
  EXPECT_THAT(ignored(), UnorderedElementsAre(Pair(IgnoreReason::badIpChecksum, 1),
                                              Pair(IgnoreReason::badIgmpChecksum, 2),
                                              Pair(IgnoreReason::badTtl, 1),
                                              Pair(IgnoreReason::truncated, 1)));
  EXPECT_THAT(port.counters().received, testing::Each(0));
  hear(FrameBuilder::reportV2(group));
  EXPECT_TRUE(vlan10.has(group));
}

TEST_F(SnoopedPortTest, BadRecordIsCountedAndTheRestOfItsReportIsUsed) {
  hear(FrameBuilder::reportV3({isEx(linkLocal), Record{99, group, {a}},
                               isIn(group, {IpAddr(255, 255, 255, 255)}), isEx(IpAddr(10, 1, 1, 1)),
                               isEx(otherGroup)}));
  EXPECT_THAT(ignored(), UnorderedElementsAre(Pair(IgnoreReason::groupLinkLocal, 1),
                                              Pair(IgnoreReason::unknownRecordType, 1),
                                              Pair(IgnoreReason::sourceNotUnicast, 1),
                                              Pair(IgnoreReason::groupNotMulticast, 1)));
  EXPECT_FALSE(vlan10.has(group));
  EXPECT_FALSE(vlan10.has(linkLocal));
  EXPECT_TRUE(vlan10.has(otherGroup));
}

TEST_F(SnoopedPortTest, WhatLearningRefusesIsCounted) {
  SnoopingPolicy policy;
  policy.maxGroups = 1;
  policy.maxGroupSources = 1;
  Vlan& vlan = vlanWith(policy);
  port.vlanIs(VlanId(10), vlan.snooped());
  hear(FrameBuilder::reportV3({isIn(group, {a}), isIn(otherGroup, {a}), isIn(group, {a, host})}));
  hear(FrameBuilder::reportV2(otherGroup));
  EXPECT_THAT(ignored(), UnorderedElementsAre(Pair(IgnoreReason::tooManyGroups, 2),
                                              Pair(IgnoreReason::tooManySources, 1)));
}

TEST_F(SnoopedPortTest, RouterAlertIsRequiredWhereTheVlanRequiresIt) {
  SnoopingPolicy policy;
  policy.receive.requireRouterAlert = true;
  Vlan& strict = vlanWith(policy);
  port.vlanIs(VlanId(30), strict.snooped());

  hearIn(30, FrameBuilder::reportV2(group).withoutRouterAlert());
  EXPECT_FALSE(strict.has(group));
  EXPECT_THAT(ignored(), ElementsAre(Pair(IgnoreReason::noRouterAlert, 1)));

  hearIn(30, FrameBuilder::reportV2(group));
  EXPECT_TRUE(strict.has(group));
  hear(FrameBuilder::reportV2(group).withoutRouterAlert());
  EXPECT_TRUE(vlan10.has(group));
}

}  // namespace
