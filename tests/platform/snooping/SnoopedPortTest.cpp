#include <array>
#include <cstdint>
#include <map>
#include <variant>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/snooping/SnoopedPort.h"
#include "tests/platform/snooping/MembershipTesting.h"

namespace {

using namespace SnoopingTest;
using namespace IgmpTest;
using Bridging::VlanId;
using Bridging::IgmpSnooping::ReportBatch;
using Bridging::IgmpSnooping::SnoopedPort;
using Bridging::IgmpSnooping::SnoopingPolicy;
using Bridging::IgmpSnooping::VlanLearning;
using Igmp::Cause;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

constexpr IpAddr group{232, 1, 1, 1};
constexpr IpAddr otherGroup{232, 1, 1, 2};
constexpr IpAddr linkLocal{224, 0, 0, 106};
constexpr IpAddr host{10, 0, 0, 1};
constexpr IpAddr a{192, 0, 2, 1};

/// A VLAN with learning of its own.
struct Vlan {
  Vlan(std::uint16_t vlan, SnoopingPolicy const& policy, ReportBatch& batch)
      : status(Kel::make<IgmpContextStatus>(VlanId(vlan))),
        learning(status, policy, Kel::make<Horix::TimerWheel>(Kel::make<Horix::VirtualClock>()),
                 batch) {}

  bool has(IpAddr address) const { return status->group(address) != nullptr; }

  Kel::Ptr<IgmpContextStatus> status;
  VlanLearning learning;
};

class SnoopedPortTest : public testing::Test {
 protected:
  SnoopedPortTest() {
    port.vlanIs(VlanId(10), vlan10.learning);
    port.vlanIs(VlanId(20), vlan20.learning);
  }

  void hear(FrameBuilder const& frame) { hearIn(10, frame); }
  void hearIn(std::uint16_t vlan, FrameBuilder const& frame) {
    port.receive(VlanId(vlan), frame.bytes());
  }
  void hearInNoVlan(FrameBuilder const& frame) { port.receiveInNoVlan(frame.bytes()); }

  /// What was ignored, without the causes that there were none of.
  std::map<Cause, std::uint64_t> ignored() const {
    std::map<Cause, std::uint64_t> counts;
    for (std::size_t i = 0; i < Igmp::causes; ++i) {
      auto const cause = static_cast<Cause>(i);
      if (auto const count = port.counters().ignoredFor(cause)) counts[cause] = count;
    }
    return counts;
  }

  ReportBatch batch;
  Vlan vlan10{10, {}, batch};
  Vlan vlan20{20, {}, batch};
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
  EXPECT_THAT(ignored(), ElementsAre(Pair(Cause::notInVlan, 1)));
}

TEST_F(SnoopedPortTest, OtherTrafficOfUnknownVlansIsOtherTraffic) {
  hearInNoVlan(FrameBuilder::reportV2(group).etherType(0x86dd).vlan(30));
  EXPECT_THAT(ignored(), ElementsAre(Pair(Cause::notIgmp, 1)));
}

TEST_F(SnoopedPortTest, ReservedVlanIsNoVlan) {
  hearInNoVlan(FrameBuilder::reportV2(group).vlan(4095));
  EXPECT_THAT(ignored(), ElementsAre(Pair(Cause::reservedVlan, 1)));
}

TEST_F(SnoopedPortTest, BlockedPortHearsNothingOfOtherVlansEither) {
  port.receivesIs(false);
  hearInNoVlan(FrameBuilder::reportV2(group).vlan(30));
  EXPECT_THAT(ignored(), ElementsAre(Pair(Cause::portBlocked, 1)));
}

TEST_F(SnoopedPortTest, SecondaryVlansLearnIntoTheirPrimarys) {
  port.vlanIs(VlanId(11), vlan10.learning);
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
  Vlan vlan(30, policy, batch);
  port.vlanIs(VlanId(10), vlan.learning);
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

// ---- What is ignored

TEST_F(SnoopedPortTest, BlockedPortLearnsNothing) {
  port.receivesIs(false);
  hear(FrameBuilder::reportV2(group));
  EXPECT_FALSE(vlan10.has(group));
  EXPECT_THAT(ignored(), ElementsAre(Pair(Cause::portBlocked, 1)));
}

TEST_F(SnoopedPortTest, BadFrameIsCountedAndTheNextOneIsUsed) {
  hear(FrameBuilder::reportV2(group).damageIpChecksum());
  hear(FrameBuilder::reportV2(group).damageIgmpChecksum());
  hear(FrameBuilder::reportV2(group).damageIgmpChecksum());
  hear(FrameBuilder::reportV2(group).ttl(2));
  hear(FrameBuilder::reportV2(group).totalLength(1000));
  EXPECT_FALSE(vlan10.has(group));
  EXPECT_THAT(ignored(),
              UnorderedElementsAre(Pair(Cause::badIpChecksum, 1), Pair(Cause::badIgmpChecksum, 2),
                                   Pair(Cause::badTtl, 1), Pair(Cause::truncated, 1)));
  EXPECT_THAT(port.counters().received, testing::Each(0));
  hear(FrameBuilder::reportV2(group));
  EXPECT_TRUE(vlan10.has(group));
}

TEST_F(SnoopedPortTest, BadRecordIsCountedAndTheRestOfItsReportIsUsed) {
  hear(FrameBuilder::reportV3({isEx(linkLocal), Record{99, group, {a}},
                               isIn(group, {IpAddr(255, 255, 255, 255)}), isEx(IpAddr(10, 1, 1, 1)),
                               isEx(otherGroup)}));
  EXPECT_THAT(ignored(), UnorderedElementsAre(
                             Pair(Cause::groupLinkLocal, 1), Pair(Cause::unknownRecordType, 1),
                             Pair(Cause::sourceNotUnicast, 1), Pair(Cause::groupNotMulticast, 1)));
  EXPECT_FALSE(vlan10.has(group));
  EXPECT_FALSE(vlan10.has(linkLocal));
  EXPECT_TRUE(vlan10.has(otherGroup));
}

TEST_F(SnoopedPortTest, WhatLearningRefusesIsCounted) {
  SnoopingPolicy policy;
  policy.maxGroups = 1;
  policy.maxGroupSources = 1;
  Vlan vlan(30, policy, batch);
  port.vlanIs(VlanId(10), vlan.learning);
  hear(FrameBuilder::reportV3(
      {isIn(group, {a}), isIn(otherGroup, {a}), isIn(otherGroup, {a, host})}));
  hear(FrameBuilder::reportV2(otherGroup));
  EXPECT_THAT(ignored(),
              UnorderedElementsAre(Pair(Cause::tooManyGroups, 2), Pair(Cause::tooManySources, 1)));
}

TEST_F(SnoopedPortTest, RouterAlertIsRequiredWhereTheVlanRequiresIt) {
  SnoopingPolicy policy;
  policy.receive.requireRouterAlert = true;
  Vlan strict(30, policy, batch);
  port.vlanIs(VlanId(30), strict.learning);

  hearIn(30, FrameBuilder::reportV2(group).withoutRouterAlert());
  EXPECT_FALSE(strict.has(group));
  EXPECT_THAT(ignored(), ElementsAre(Pair(Cause::noRouterAlert, 1)));

  hearIn(30, FrameBuilder::reportV2(group));
  EXPECT_TRUE(strict.has(group));
  hear(FrameBuilder::reportV2(group).withoutRouterAlert());
  EXPECT_TRUE(vlan10.has(group));
}

}  // namespace
