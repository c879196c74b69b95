#include <gtest/gtest.h>

#include "agent/forwarding/VlanProgress.h"
#include "tests/agent/SwitchTesting.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;
using Bridging::VlanId;
using IgmpTest::FrameBuilder;
using Wirex::IpAddr;

/// One VLAN, with a query response time of 10 s.
class VlanProgressTest : public testing::Test {
 protected:
  void routerAsks() { under.hear("swp1", FrameBuilder::queryV3({}).from(IpAddr(10, 0, 0, 254))); }

  bool isDue(VlanProgress& progress) {
    progress.noteQueries(vlans, under.loop.now());
    return progress.isDue(VlanId(10), under.loop.now());
  }

  /// What follows is that of an agent that has just started.
  VlanProgress started(bool goesOn) {
    VlanProgress progress(under.snooping, goesOn);
    progress.vlansAre(vlans, under.loop.now());
    return progress;
  }

  TestSwitch under{vlan10("swp[1-2]")};
  std::vector<ForwardedVlan> vlans = forwardedVlans(under.snooping.configuration(), false);
};

TEST_F(VlanProgressTest, AllListenersAreKnownASecondAfterAQuerysResponseTime) {
  VlanProgress progress = started(false);
  under.advance(1s);
  routerAsks();
  EXPECT_FALSE(isDue(progress));
  under.advance(10s);
  EXPECT_FALSE(isDue(progress));
  under.advance(1s);
  EXPECT_TRUE(isDue(progress));
}

TEST_F(VlanProgressTest, WithoutAQueryTheyAreAfterTheQueryIntervalToo) {
  VlanProgress progress = started(false);
  under.advance(134s);
  EXPECT_FALSE(isDue(progress));
  under.advance(1s);
  EXPECT_TRUE(isDue(progress));
}

TEST_F(VlanProgressTest, QueryOfBeforeAPauseDoesNotCount) {
  routerAsks();
  VlanProgress progress = started(false);
  EXPECT_FALSE(isDue(progress));
  under.advance(11s);
  EXPECT_FALSE(isDue(progress));
}

TEST_F(VlanProgressTest, NextQueryAfterAPauseCounts) {
  routerAsks();
  VlanProgress progress = started(false);
  under.advance(60s);
  routerAsks();
  EXPECT_FALSE(isDue(progress));
  under.advance(11s);
  EXPECT_TRUE(isDue(progress));
}

TEST_F(VlanProgressTest, QueryOfTheFormerProgramCountsWithoutAPause) {
  routerAsks();
  VlanProgress progress = started(true);
  EXPECT_FALSE(isDue(progress));
  under.advance(11s);
  EXPECT_TRUE(isDue(progress));
}

TEST_F(VlanProgressTest, GoesByEntriesUntilAllAreFloodedAgain) {
  VlanProgress progress = started(false);
  under.advance(135s);
  ASSERT_TRUE(isDue(progress));
  progress.goesByEntriesIs(VlanId(10));
  EXPECT_TRUE(progress.goesByEntries(VlanId(10)));
  EXPECT_FALSE(isDue(progress)) << "it is done";
  progress.allAreFlooded();
  EXPECT_FALSE(progress.goesByEntries(VlanId(10)));
  EXPECT_TRUE(isDue(progress)) << "listeners are still known";
}

}  // namespace
}  // namespace Agent
