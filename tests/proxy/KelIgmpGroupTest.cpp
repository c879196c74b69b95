#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "proxy/ProxyAdapterSm.h"
#include "tests/TraceCapture.h"
#include "tests/proxy/SnoopedVlan.h"

namespace Bridging::IgmpSnooping::Proxy::Testing {
namespace {

using ::testing::ElementsAre;

using KelIgmpGroupTest = SnoopedVlan;

// ---- a group that has ports and reporters before its reactor is made

class KelIgmpGroup_MadeLate : public SnoopedVlan {
 protected:
  KelIgmpGroup_MadeLate() {
    adapter = nullptr;
    port("swp1").reports(g1).include({s1});
    port("swp2").reports(g1).exclude({s2});
    port("swp2").reports(g1, r2).include({s3});
    adapter = adapterSmFactory(vlanId, config, hosts, status);
  }
};

TEST_F(KelIgmpGroup_MadeLate, HasAReactorForEachPortAndReporter) {
  EXPECT_TRUE(group()->initialized());
  EXPECT_EQ(group()->igmpIntf().size(), 2u);
  EXPECT_EQ(intf("swp1")->membership().size(), 1u);
  EXPECT_EQ(intf("swp2")->membership().size(), 2u);
  EXPECT_EQ(intf("swp2")->notifier(), status->group(g1)->intf(IntfId("swp2")));
}

TEST_F(KelIgmpGroup_MadeLate, CountsItsPortsIntoTheRecordThatInitialisationKeeps) {
  EXPECT_EQ(counts(), starG(2));
  EXPECT_TRUE(changed());
}

TEST_F(KelIgmpGroup_MadeLate, TakesEachPortForStarGUntilItsFirstChange) {
  proxyOn("up1");
  publish();
  EXPECT_EQ(record("up1"), everything);
  snooped("swp1")->filterModeNotify();
  Kel::runActivities();
  EXPECT_EQ(counts(), (Counts{1, {{s1, 1}}, {}}));
  port("swp2").reports(g1, r2).exclude({s2});
  EXPECT_EQ(counts(), (Counts{0, {{s1, 1}}, {{s2, 1}}}));
}

TEST_F(KelIgmpGroup_MadeLate, NeedsNoActivityForWhatIsThere) {
  EXPECT_EQ(Kel::runActivities(), 0u);
}

// ---- ports

TEST_F(KelIgmpGroupTest, MakesOneReactorPerPort) {
  port("swp1").reports(g1);
  port("swp2").reports(g1);
  port("swp1").reports(g1, r2);
  EXPECT_EQ(group()->igmpIntf().size(), 2u);
  EXPECT_EQ(intf("swp1")->intfId(), IntfId("swp1"));
  EXPECT_EQ(intf("swp3"), nullptr);
}

TEST_F(KelIgmpGroupTest, KnowsItsAddress) {
  status->groupIs(g2);
  EXPECT_EQ(group(g2)->addr(), g2);
}

TEST_F(KelIgmpGroupTest, PortThatIsWatchedAlreadyKeepsItsReactor) {
  port("swp1").reports(g1);
  auto const reactor = intf("swp1");
  status->group(g1)->intfNotify(IntfId("swp1"));
  Kel::runActivities();
  EXPECT_EQ(intf("swp1"), reactor);
}

TEST_F(KelIgmpGroupTest, PortThatCameAndWentBeforeActivitiesRanLeavesNoTrace) {
  auto const snooped = status->groupIs(g1);
  snooped->intfIs(IntfId("swp1"))->membershipIs(r1);
  snooped->intfDel(IntfId("swp1"));
  Kel::runActivities();
  EXPECT_TRUE(group()->igmpIntf().empty());
  EXPECT_EQ(counts(), Counts());
}

TEST_F(KelIgmpGroupTest, RemovedPortTakesNothingBackAndDoesNotFlagTheGroup) {
  port("swp1").reports(g1).include({s1});
  port("swp2").reports(g1).exclude({s2});
  port("swp3").reports(g1);
  publish();
  Counts const before = counts();
  ASSERT_EQ(before, (Counts{1, {{s1, 1}}, {{s2, 1}}}));
  for (auto const* const name : {"swp1", "swp2", "swp3"}) port(name).isTakenOutOf(g1);
  EXPECT_TRUE(group()->igmpIntf().empty());
  EXPECT_EQ(counts(), before);
  EXPECT_FALSE(changed());
}

TEST_F(KelIgmpGroupTest, RemovedPortWithItsReportersTurnedToNothingLeavesCleanCounts) {
  port("swp1").reports(g1).include({s1}).include({});
  port("swp1").loses(g1);
  port("swp1").isTakenOutOf(g1);
  EXPECT_EQ(counts(), Counts());
}

TEST_F(KelIgmpGroupTest, PortThatComesBackCountsOnTopOfWhatItLeft) {
  port("swp1").reports(g1);
  port("swp1").isTakenOutOf(g1);
  port("swp1").reports(g1);
  EXPECT_EQ(counts(), starG(2));
}

// ---- record

TEST_F(KelIgmpGroupTest, RecordExistsOnceTheGroupIsInitialized) {
  status->groupIs(g1);
  EXPECT_TRUE(group()->initialized());
  ASSERT_TRUE(group()->record());
  EXPECT_EQ(counts(), Counts());
}

TEST_F(KelIgmpGroupTest, RecordIsMadeOnceAndAgainAfterItWasDropped) {
  port("swp1").reports(g1);
  auto const record = group()->record();
  EXPECT_EQ(group()->recordIs(), record);
  group()->recordDel();
  EXPECT_FALSE(group()->record());
  EXPECT_NE(group()->recordIs(), record);
  EXPECT_EQ(counts(), Counts());
}

TEST_F(KelIgmpGroupTest, DestructionDropsTheRecord) {
  port("swp1").reports(g1);
  auto const record = group()->record();
  status->groupDel(g1);
  EXPECT_EQ(record->references(), 1u);
}

TEST_F(KelIgmpGroupTest, EachGroupCountsForItself) {
  port("swp1").reports(g1).include({s1});
  port("swp1").reports(g2).exclude({s2});
  EXPECT_EQ(counts(g1), (Counts{0, {{s1, 1}}, {}}));
  EXPECT_EQ(counts(g2), (Counts{0, {}, {{s2, 1}}}));
}

// ---- the flag

TEST_F(KelIgmpGroupTest, IsUnchangedWhileItHasNoReporter) {
  status->groupIs(g1)->intfIs(IntfId("swp1"));
  Kel::runActivities();
  EXPECT_FALSE(changed());
}

TEST_F(KelIgmpGroupTest, FlagsAreRaisedAndLoweredInAnyOrder) {
  proxyOn("up1");
  for (IpAddr const address : {g1, g2, g3}) status->groupIs(address);
  for (IpAddr const address : {g1, g2, g3}) group(address)->igmpHostChangedIs(true);
  group(g2)->igmpHostChangedIs(true);
  group(g2)->igmpHostChangedIs(false);
  group(g2)->igmpHostChangedIs(false);
  group(g3)->igmpHostChangedIs(false);
  group(g3)->igmpHostChangedIs(true);
  group(g1)->igmpHostChangedIs(false);
  TraceCapture const trace({8});
  status->newIgmpReportNotify();
  EXPECT_THAT(trace.texts(),
              ElementsAre("8 KelIgmpIntf::processSplitHorizon() g: 239.1.1.3 hostKey Vlan10up1"));
}

TEST_F(KelIgmpGroupTest, FlaggedGroupMayGo) {
  proxyOn("up1");
  for (IpAddr const address : {g1, g2, g3}) port("swp1").reports(address);
  status->groupDel(g2);
  status->groupDel(g3);
  publish();
  EXPECT_EQ(record("up1", g1), everything);
  EXPECT_EQ(record("up1", g2), nothing);
}

TEST_F(KelIgmpGroupTest, DeletedGroupThatIsStillHeldIsNotFlaggedAnyMore) {
  port("swp1").reports(g1);
  auto const held = group();
  auto const heldIntf = intf("swp1");
  status->groupDel(g1);
  EXPECT_FALSE(held->igmpHostChanged());
  heldIntf->portIncludeInc(s1, 1);
  EXPECT_FALSE(held->igmpHostChanged());
}

// ---- delivery

TEST_F(KelIgmpGroupTest, BelongsToTheActivityThatItsPortsAndReportersShare) {
  port("swp1").reports(g1);
  Kel::ActivityConfig* const activity = group()->kelFwkActivity();
  ASSERT_NE(activity, nullptr);
  EXPECT_EQ(intf("swp1")->kelFwkActivity(), activity);
  EXPECT_EQ(intf("swp1")->membership(r1)->kelFwkActivity(), activity);
  EXPECT_EQ(group()->actsm(), activity);
  EXPECT_EQ(intf("swp1")->actsm(), activity);
  EXPECT_EQ(intf("swp1")->membership(r1)->actsm(), activity);
}

TEST_F(KelIgmpGroupTest, InactiveGroupAndAllBelowItHearNothing) {
  auto const reporter = port("swp1").reports(g1);
  group()->hasNotificationActiveIs(false);
  port("swp2").reports(g1);
  port("swp1").reports(g1, r2);
  reporter.include({s1});
  EXPECT_EQ(group()->igmpIntf().size(), 1u);
  EXPECT_EQ(intf("swp1")->membership().size(), 1u);
  EXPECT_EQ(counts(), starG(1));
}

TEST_F(KelIgmpGroupTest, CallbackOfAnInactiveGroupDoesNothing) {
  auto const snooped = status->groupIs(g1);
  group()->hasNotificationActiveIs(false);
  snooped->intfIs(IntfId("swp1"));
  group()->onIntf(IntfId("swp1"));
  EXPECT_TRUE(group()->igmpIntf().empty());
}

}  // namespace
}  // namespace Bridging::IgmpSnooping::Proxy::Testing
