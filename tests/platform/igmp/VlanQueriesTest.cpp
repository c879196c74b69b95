#include "tests/platform/igmp/HostTesting.h"

/// How a host follows the queries of its VLAN, which other ports hear.
namespace IgmpTest {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

class VlanQueriesTest : public HostTest {
 protected:
  VlanQueriesTest() {
    reportsUnaskedIs(false);
    follow();
  }

  void follow() {
    host->vlanQueriesIs(queries);
    Kel::runActivities();
  }
  void stopFollowing() {
    host->vlanQueriesIs(nullptr);
    Kel::runActivities();
  }
  static Igmp::Query general(IgmpVersion version = IgmpVersion::v3) {
    Igmp::Query query;
    query.version = version;
    query.maxResponseTime = seconds(10);
    return query;
  }
  void isHeard(Igmp::Query const& query, char const* on = "swp2") {
    queries->heard({Wirex::IntfId(on), source(9), query});
    Kel::runActivities();
  }
  IgmpVersion mode() const { return status().compatibilityMode(); }

  Kel::Ptr<Igmp::VlanQueries> queries = Kel::make<Igmp::VlanQueries>(wheel);
};

TEST_F(VlanQueriesTest, QueryOfAnotherPortIsAnswered) {
  exclude(group(1));
  isHeard(general());
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_THAT(sentWithin(seconds(10)), ElementsAre(report({isEx(group(1))})));
}

TEST_F(VlanQueriesTest, QueryThatTheSwitchSendsIsAnswered) {
  exclude(group(1));
  queries->sent(general());
  EXPECT_THAT(sentWithin(seconds(10)), ElementsAre(report({isEx(group(1))})));
}

TEST_F(VlanQueriesTest, QueryOfTheOwnPortIsHeardThroughPacketAccessAlone) {
  exclude(group(1));
  isHeard(general(), "swp1");
  EXPECT_THAT(sentWithin(seconds(10)), IsEmpty());
}

TEST_F(VlanQueriesTest, QueriesOfSeveralPortsShareAnAnswer) {
  exclude(group(1));
  for (char const* const on : {"swp2", "swp3", "swp4"}) isHeard(general(), on);
  hearsGeneralQuery();
  EXPECT_THAT(sentWithin(seconds(20)), SizeIs(1));
}

TEST_F(VlanQueriesTest, HostThatFollowsNoMoreAnswersNoMore) {
  exclude(group(1));
  stopFollowing();
  isHeard(general());
  EXPECT_THAT(sentWithin(seconds(20)), IsEmpty());
}

TEST_F(VlanQueriesTest, HostThatMayNotSendAnswersNothing) {
  exclude(group(1));
  host->directionIs(Direction::ingress);
  isHeard(general());
  host->directionIs(Direction::both);
  EXPECT_THAT(sentWithin(seconds(20)), IsEmpty());
}

TEST_F(VlanQueriesTest, HostWhosePortTakesNothingInFollowsAllTheSame) {
  exclude(group(1));
  host->directionIs(Direction::egress);
  isHeard(general());
  EXPECT_THAT(sentWithin(seconds(10)), ElementsAre(report({isEx(group(1))})));
}

TEST_F(VlanQueriesTest, QueryIsAnsweredInItsVersionFromTheFirstOn) {
  exclude(group(1));
  isHeard(general(IgmpVersion::v2));
  EXPECT_THAT(sentWithin(seconds(10)), ElementsAre(v2Report(group(1))));
  EXPECT_EQ(status().olderQuerier(), source(9));
}

TEST_F(VlanQueriesTest, OlderQuerierCountsUntilItMustHaveGone) {
  isHeard(general(IgmpVersion::v2));
  pass(milliseconds(349'999));
  EXPECT_EQ(mode(), IgmpVersion::v2);
  pass(milliseconds(1));
  EXPECT_EQ(mode(), IgmpVersion::v3);
}

TEST_F(VlanQueriesTest, OwnQueriesSayNothingOfOtherQueriersVersions) {
  queries->sent(general(IgmpVersion::v1));
  EXPECT_EQ(mode(), IgmpVersion::v3);
}

TEST_F(VlanQueriesTest, HostThatBeginsToFollowSpeaksAsTheOldestQuerierThatWasHeardBefore) {
  stopFollowing();
  isHeard(general(IgmpVersion::v1));
  EXPECT_EQ(mode(), IgmpVersion::v3);
  follow();
  EXPECT_EQ(mode(), IgmpVersion::v1);
  stopFollowing();
  EXPECT_EQ(mode(), IgmpVersion::v3);
}

// By the very query that the host has heard, its port becomes a router port.
TEST_F(VlanQueriesTest, HostThatBeginsToFollowAnswersWhatItWasAskedBeforeInTheOlderVersion) {
  stopFollowing();
  exclude(group(1));
  exclude(group(2));
  isHeard(general(IgmpVersion::v2));
  hearsGeneralQuery();
  hearsQuery(group(2));
  follow();
  EXPECT_THAT(sentWithin(seconds(10)),
              UnorderedElementsAre(v2Report(group(1)), v2Report(group(2))));
}

TEST_F(VlanQueriesTest, HostThatStopsFollowingAnswersWhatItWasAskedBeforeInItsOwnVersion) {
  exclude(group(1));
  isHeard(general(IgmpVersion::v2));
  stopFollowing();
  EXPECT_THAT(sentWithin(seconds(10)), ElementsAre(report({isEx(group(1))})));
}

TEST_F(VlanQueriesTest, OldestOfThePortAndTheVlanCounts) {
  hears(FrameBuilder::queryV1());
  isHeard(general(IgmpVersion::v2));
  EXPECT_EQ(mode(), IgmpVersion::v1);
  pass(seconds(100));
  isHeard(general(IgmpVersion::v2));
  pass(seconds(250));
  EXPECT_EQ(mode(), IgmpVersion::v2);
}

TEST_F(VlanQueriesTest, HostMadeWhereQueriesAreFollowedAlreadyFollowsThem) {
  machine = nullptr;
  isHeard(general(IgmpVersion::v2));
  machine = Kel::make<Igmp::IgmpHostDirSm>(nullptr, hosts, statuses, wheel);
  EXPECT_EQ(mode(), IgmpVersion::v2);
}

TEST_F(VlanQueriesTest, MachineThatWasInactiveCatchesUp) {
  machine->hasNotificationActiveIs(false);
  isHeard(general(IgmpVersion::v2));
  EXPECT_EQ(mode(), IgmpVersion::v3);
  machine->hasNotificationActiveIs(true);
  EXPECT_EQ(mode(), IgmpVersion::v2);
}

TEST_F(VlanQueriesTest, HostThatHeedsNoQueriesOfItsPortFollowsThoseOfTheVlan) {
  exclude(group(1));
  changeSettings([](Igmp::HostSettings& settings) { settings.hearsQueries = false; });
  hears(FrameBuilder::queryV2({}, 100));
  EXPECT_EQ(mode(), IgmpVersion::v3);
  EXPECT_THAT(sentWithin(seconds(20)), IsEmpty());
  isHeard(general());
  EXPECT_THAT(sentWithin(seconds(10)), SizeIs(1));
}

}  // namespace IgmpTest
