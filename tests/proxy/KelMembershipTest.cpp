#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "proxy/ProxyAdapterSm.h"
#include "tests/TraceCapture.h"
#include "tests/proxy/SnoopedVlan.h"

namespace Bridging::IgmpSnooping::Proxy::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using KelMembershipTest = SnoopedVlan;

TEST_F(KelMembershipTest, ReporterThatHasJustAppearedCountsAsStarG) {
  port("swp1").reports(g1);
  EXPECT_TRUE(intf("swp1")->starG());
  EXPECT_EQ(counts(), starG(1));
  EXPECT_TRUE(changed());
}

TEST_F(KelMembershipTest, ReporterCountsAsStarGUntilItsFirstChangeWhateverItAsksFor) {
  auto const snoopedPort = status->groupIs(g1)->intfIs(IntfId("swp1"));
  Kel::runActivities();
  auto const membership = snoopedPort->membershipIs(r1);
  membership->filterModeIs(FilterMode::include);
  membership->sourceIs(s1);
  Kel::runActivities();
  EXPECT_EQ(counts(), starG(1));
  membership->sourceNotify(s1);
  Kel::runActivities();
  EXPECT_EQ(counts(), (Counts{0, {{s1, 1}}, {}}));
}

TEST_F(KelMembershipTest, ReporterThatJustAppearedMakesItsPortStarGBesidesOthers) {
  port("swp1").reports(g1).include({s1});
  EXPECT_EQ(counts(), (Counts{0, {{s1, 1}}, {}}));
  port("swp1").reports(g1, r2);
  EXPECT_EQ(counts(), (Counts{1, {{s1, 1}}, {}})) << "the port itself is not evaluated yet";
}

TEST_F(KelMembershipTest, SecondNewReporterDoesNotCountThePortAgain) {
  port("swp1").reports(g1);
  port("swp1").reports(g1, r2);
  EXPECT_EQ(counts(), starG(1));
}

TEST_F(KelMembershipTest, NewReporterDoesNotCountAsAChangeOfItsPort) {
  port("swp1").reports(g1);
  port("swp1").reports(g1, r2);
  EXPECT_EQ(intf("swp1")->portChanged(), 0);
}

TEST_F(KelMembershipTest, FilterModeAndEachSourceCountAsOneChangeEach) {
  port("swp1").reports(g1);
  snooped("swp1")->filterModeIs(FilterMode::include);
  Kel::runActivities();
  EXPECT_EQ(intf("swp1")->portChanged(), 1);
  snooped("swp1")->sourceIs(s1);
  Kel::runActivities();
  EXPECT_EQ(intf("swp1")->portChanged(), 2);
  snooped("swp1")->sourceDel(s1);
  Kel::runActivities();
  EXPECT_EQ(intf("swp1")->portChanged(), 3);
}

TEST_F(KelMembershipTest, ChangesOfOneKeyBeforeActivitiesRunAreOneChange) {
  port("swp1").reports(g1);
  snooped("swp1")->sourceIs(s1);
  snooped("swp1")->sourceDel(s1);
  snooped("swp1")->sourceIs(s1);
  Kel::runActivities();
  EXPECT_EQ(intf("swp1")->portChanged(), 1);
}

TEST_F(KelMembershipTest, ChangesBeforeItIsInitializedAreIgnored) {
  port("swp1").reports(g1);
  auto const reactor = intf("swp1")->membership(r1);
  EXPECT_TRUE(reactor->initialized());
  reactor->initializedIs(false);
  TraceCapture const trace = TraceCapture::ofEveryLevel();
  snooped("swp1")->filterModeIs(FilterMode::include);
  snooped("swp1")->sourceIs(s1);
  Kel::runActivities();
  EXPECT_THAT(trace.texts(), IsEmpty());
  EXPECT_EQ(intf("swp1")->portChanged(), 0);
}

TEST_F(KelMembershipTest, InactiveReporterIsNotHeard) {
  port("swp1").reports(g1);
  auto const reactor = intf("swp1")->membership(r1);
  reactor->hasNotificationActiveIs(false);
  reactor->onFilterMode();
  reactor->onSource(s1);
  EXPECT_EQ(intf("swp1")->portChanged(), 0);
}

TEST_F(KelMembershipTest, WhatAnInactiveReporterWantsIsReadWithTheNextChangeOfAnother) {
  auto const heard = port("swp1").reports(g1).include({s1});
  port("swp1").reports(g1, r2).include({s2});
  heard.include({s1, s3});
  publish();
  intf("swp1")->membership(r2)->hasNotificationActiveIs(false);
  snooped("swp1", r2)->sourceIs(s4);
  Kel::runActivities();
  EXPECT_EQ(countsOf(intf("swp1")->portInclude()), (CountBySource{{s1, 1}, {s2, 1}, {s3, 1}}))
      << "is not heard itself";
  heard.include({s1});
  Kel::runActivities();
  EXPECT_EQ(countsOf(intf("swp1")->portInclude()), (CountBySource{{s1, 1}, {s2, 1}, {s4, 1}}));
}

TEST_F(KelMembershipTest, KeylessNotificationOfItsSourcesIsLeftEmpty) {
  port("swp1").reports(g1);
  snooped("swp1")->sourceNotify();
  Kel::runActivities();
  EXPECT_EQ(intf("swp1")->portChanged(), 0);
}

TEST_F(KelMembershipTest, RemovedReporterTakesNothingBackAndDoesNotFlagTheGroup) {
  port("swp1").reports(g1).include({s1});
  port("swp1").reports(g1, r2).include({s2});
  publish();
  TraceCapture const trace = TraceCapture::ofEveryLevel();
  port("swp1").loses(g1, r2);
  EXPECT_EQ(intf("swp1")->membership(r2), nullptr);
  EXPECT_EQ(counts(), (Counts{0, {{s1, 1}, {s2, 1}}, {}}));
  EXPECT_EQ(countsOf(intf("swp1")->portInclude()), (CountBySource{{s1, 1}, {s2, 1}}));
  EXPECT_FALSE(changed());
  EXPECT_THAT(trace.texts(), IsEmpty());
}

TEST_F(KelMembershipTest, RemovedLastReporterLeavesItsPortAtStarG) {
  port("swp1").reports(g1);
  port("swp1").loses(g1);
  EXPECT_TRUE(intf("swp1")->starG());
  EXPECT_EQ(counts(), starG(1));
}

TEST_F(KelMembershipTest, NextChangeOfAnotherReporterForgetsTheRemovedOne) {
  auto const remaining = port("swp1").reports(g1).include({s1});
  port("swp1").reports(g1, r2).include({s2});
  port("swp1").loses(g1, r2);
  remaining.include({s1, s3});
  EXPECT_EQ(counts(), (Counts{0, {{s1, 1}, {s3, 1}}, {}}));
}

TEST_F(KelMembershipTest, ReporterThatLeavesInTurnsTakesItsContributionBack) {
  port("swp1").reports(g1).include({s1});
  port("swp1").reports(g1, r2).include({s2}).include({});
  port("swp1").loses(g1, r2);
  EXPECT_EQ(counts(), (Counts{0, {{s1, 1}}, {}}));
}

TEST_F(KelMembershipTest, TracesItsBirthBeforeItsPortBecomesStarG) {
  status->groupIs(g1)->intfIs(IntfId("swp1"));
  Kel::runActivities();
  TraceCapture const trace({4, 9});
  port("swp1").reports(g1);
  EXPECT_THAT(trace.texts(),
              ElementsAre("9 KelMembership::handleInitialized 10.0.0.1 intf swp1 group 239.1.1.1",
                          "4 KelIgmpIntf::handleStarG swp1 group 239.1.1.1 global starGCount 0",
                          "4 KelIgmpIntf::handleStarG Increment global *,G refcount",
                          "4 KelIgmpIntf::handleStarG Set host changed 1"));
}

}  // namespace
}  // namespace Bridging::IgmpSnooping::Proxy::Testing
