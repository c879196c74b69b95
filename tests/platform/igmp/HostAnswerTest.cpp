#include "tests/platform/igmp/HostTesting.h"

/// How a host answers queries (RFC 9776 section 5.2).
namespace IgmpTest {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::Gt;
using testing::IsEmpty;
using testing::Le;
using testing::SizeIs;

/// A host that reports nothing unasked, so that what it sends is answers.
class HostAnswer : public HostTest {
 protected:
  HostAnswer() { reportsUnaskedIs(false); }

  std::vector<Horix::Time> timesSent() {
    std::vector<Horix::Time> times;
    for (Sent const& each : takeSent()) times.push_back(each.time);
    return times;
  }
};

TEST_F(HostAnswer, RecordsAreNotReportedUnasked) {
  include(group(1), {source(1)});
  exclude(group(2));
  drop(group(1));
  EXPECT_THAT(sentWithin(seconds(100)), IsEmpty());
}

TEST_F(HostAnswer, GeneralQueryIsAnsweredWithAllRecordsInOneReport) {
  include(group(1), {source(1), source(2)});
  exclude(group(2), {source(3)});
  exclude(group(3));
  hearsGeneralQuery();
  EXPECT_THAT(sentWithin(seconds(10)),
              ElementsAre(report({isIn(group(1), {source(1), source(2)}),
                                  isEx(group(2), {source(3)}), isEx(group(3))})));
}

TEST_F(HostAnswer, NothingIsAnsweredWithoutRecords) {
  include(group(1), {});
  hearsGeneralQuery();
  hearsQuery(group(1));
  hearsQuery(group(2));
  EXPECT_THAT(sentWithin(seconds(100)), IsEmpty());
}

TEST_F(HostAnswer, LeavesOutWhatOnlyTheOwnPortHas) {
  exclude(group(1), {source(1)});
  exclude(group(2), {source(1)});
  heardBackIs(group(1), true);
  hearsGeneralQuery();
  hearsQuery(group(1));
  EXPECT_THAT(sentWithin(seconds(10)), ElementsAre(report({isEx(group(2), {source(1)})})));
}

TEST_F(HostAnswer, ComesAtRandomWithinTheMaxResponseTimeAndNeverAtOnce) {
  exclude(group(1));
  std::set<Horix::Time> delays;
  for (int i = 0; i < 50; ++i) {
    auto const asked = loop.now();
    hearsGeneralQuery();
    EXPECT_THAT(sent(), IsEmpty());
    pass(seconds(20));
    auto const times = timesSent();
    ASSERT_THAT(times, SizeIs(1));
    delays.insert(times[0] - asked);
  }
  EXPECT_THAT(delays, Each(AllOf(Gt(Horix::Time(0)), Le(seconds(10)))));
  EXPECT_GT(delays.size(), 45u);
  EXPECT_LT(*delays.begin(), seconds(2));
  EXPECT_GT(*delays.rbegin(), seconds(8));
}

TEST_F(HostAnswer, MaxResponseTimeZeroIsNotAtOnceEither) {
  exclude(group(1));
  hears(FrameBuilder::queryV3({.maxResponseCode = 0}));
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_THAT(sentWithin(milliseconds(2)), SizeIs(1));
}

TEST_F(HostAnswer, LargeMaxResponseCodesAreFloatingPoint) {
  exclude(group(1));
  Horix::Time longest{};
  for (int i = 0; i < 30; ++i) {
    auto const asked = loop.now();
    // 0xaf is (0x0f | 0x10) << (2 + 3) tenths of a second: 99.2 s.
    hears(FrameBuilder::queryV3({.maxResponseCode = 0xaf}));
    pass(seconds(100));
    auto const times = timesSent();
    ASSERT_THAT(times, SizeIs(1));
    longest = std::max(longest, times[0] - asked);
  }
  EXPECT_GT(longest, seconds(50));
  EXPECT_LE(longest, milliseconds(99'200));
}

TEST_F(HostAnswer, TellsTheStateOfTheTimeWhenItIsSent) {
  exclude(group(1));
  hearsGeneralQuery();
  drop(group(1));
  include(group(2), {source(1)});
  EXPECT_THAT(sentWithin(seconds(10)), ElementsAre(report({isIn(group(2), {source(1)})})));
}

TEST_F(HostAnswer, GroupSpecificQueryIsAnsweredWithTheGroupsRecord) {
  include(group(1), {source(1), source(2)});
  exclude(group(2), {source(3)});
  hearsQuery(group(1));
  EXPECT_THAT(sentWithin(seconds(10)),
              ElementsAre(report({isIn(group(1), {source(1), source(2)})})));
  hearsQuery(group(2));
  EXPECT_THAT(sentWithin(seconds(10)), ElementsAre(report({isEx(group(2), {source(3)})})));
}

TEST_F(HostAnswer, OfAGroupThatIsLeftMeanwhileIsNotSent) {
  exclude(group(1));
  hearsQuery(group(1));
  drop(group(1));
  EXPECT_THAT(sentWithin(seconds(10)), IsEmpty());
}

TEST_F(HostAnswer, SourceQueryInIncludeModeIsAnsweredWithTheCommonSources) {
  include(group(1), {source(1), source(2), source(3)});
  hearsQuery(group(1), {source(2), source(3), source(4)});
  EXPECT_THAT(sentWithin(seconds(10)),
              ElementsAre(report({isIn(group(1), {source(2), source(3)})})));
}

TEST_F(HostAnswer, SourceQueryInExcludeModeIsAnsweredWithTheSourcesNotExcluded) {
  exclude(group(1), {source(1), source(2)});
  hearsQuery(group(1), {source(2), source(3), source(4)});
  EXPECT_THAT(sentWithin(seconds(10)),
              ElementsAre(report({isIn(group(1), {source(3), source(4)})})));
}

TEST_F(HostAnswer, SourceQueryForNothingWantedIsMetWithSilence) {
  include(group(1), {source(1)});
  exclude(group(2), {source(1)});
  hearsQuery(group(1), {source(2)});
  hearsQuery(group(2), {source(1)});
  EXPECT_THAT(sentWithin(seconds(100)), IsEmpty());
}

// ---- The five rules, in order

class HostAnswerRule : public HostAnswer {
 protected:
  static constexpr unsigned tenthOfASecond = 1;
  static constexpr unsigned aLongTime = 0xff;  // (0x0f | 0x10) << (7 + 3) tenths: 3174.4 s
};

TEST_F(HostAnswerRule, OneGeneralResponseThatComesSoonerAnswersEveryQuery) {
  exclude(group(1));
  hears(FrameBuilder::queryV3({.maxResponseCode = tenthOfASecond}));
  hears(FrameBuilder::queryV3({.maxResponseCode = aLongTime}));
  hearsQuery(group(1), {}, aLongTime);
  hearsQuery(group(1), {source(1)}, aLongTime);
  EXPECT_THAT(sentWithin(seconds(4000)), ElementsAre(report({isEx(group(1))})));
}

TEST_F(HostAnswerRule, TwoGeneralQueriesHaveOneResponseAtTheEarlierTime) {
  exclude(group(1));
  hears(FrameBuilder::queryV3({.maxResponseCode = aLongTime}));
  hears(FrameBuilder::queryV3({.maxResponseCode = tenthOfASecond}));
  EXPECT_THAT(sentWithin(milliseconds(100)), ElementsAre(report({isEx(group(1))})));
  EXPECT_THAT(sentWithin(seconds(4000)), IsEmpty());
}

TEST_F(HostAnswerRule, GroupQueryThatIsMoreUrgentThanTheGeneralResponseHasItsOwn) {
  exclude(group(1));
  exclude(group(2));
  hears(FrameBuilder::queryV3({.maxResponseCode = aLongTime}));
  hearsQuery(group(1), {}, tenthOfASecond);
  EXPECT_THAT(sentWithin(milliseconds(100)), ElementsAre(report({isEx(group(1))})));
  EXPECT_THAT(sentWithin(seconds(4000)), ElementsAre(report({isEx(group(1)), isEx(group(2))})));
}

TEST_F(HostAnswerRule, GroupQueryOverridesTheSourcesOfAPendingResponse) {
  include(group(1), {source(1), source(2)});
  hearsQuery(group(1), {source(1)}, aLongTime);
  hearsQuery(group(1));
  EXPECT_THAT(sentWithin(seconds(4000)),
              ElementsAre(report({isIn(group(1), {source(1), source(2)})})));
}

TEST_F(HostAnswerRule, SourceQueryDoesNotNarrowAPendingResponseForTheGroup) {
  include(group(1), {source(1), source(2)});
  hearsQuery(group(1));
  hearsQuery(group(1), {source(1)});
  EXPECT_THAT(sentWithin(seconds(4000)),
              ElementsAre(report({isIn(group(1), {source(1), source(2)})})));
}

TEST_F(HostAnswerRule, SourcesOfTwoQueriesAreAnsweredTogether) {
  include(group(1), {source(1), source(2), source(3)});
  hearsQuery(group(1), {source(1)});
  hearsQuery(group(1), {source(3), source(1), source(3)});
  EXPECT_THAT(sentWithin(seconds(4000)),
              ElementsAre(report({isIn(group(1), {source(1), source(3)})})));
}

TEST_F(HostAnswerRule, SingleResponseComesAtTheEarliestOfBothTimes) {
  include(group(1), {source(1), source(2)});
  hearsQuery(group(1), {source(1)}, aLongTime);
  hearsQuery(group(1), {source(2)}, tenthOfASecond);
  EXPECT_THAT(sentWithin(milliseconds(100)),
              ElementsAre(report({isIn(group(1), {source(1), source(2)})})));
  hearsQuery(group(1), {}, tenthOfASecond);
  hearsQuery(group(1), {}, aLongTime);
  EXPECT_THAT(sentWithin(milliseconds(100)), SizeIs(1));
  EXPECT_THAT(sentWithin(seconds(4000)), IsEmpty());
}

TEST_F(HostAnswerRule, GeneralResponseClearsTheRecordedSources) {
  include(group(1), {source(1), source(2)});
  hearsQuery(group(1), {source(1)}, aLongTime);
  hears(FrameBuilder::queryV3({.maxResponseCode = tenthOfASecond}));
  EXPECT_THAT(sentWithin(milliseconds(100)), SizeIs(1));
  EXPECT_THAT(sentWithin(seconds(4000)),
              ElementsAre(report({isIn(group(1), {source(1), source(2)})})));
}

TEST_F(HostAnswerRule, MoreSourcesThanItIsWorthToRecordAreAnsweredWithTheRecord) {
  exclude(group(1), {source(1)});
  for (unsigned i = 0; i < 11; ++i)
    hearsQuery(group(1), sources(100 * i + 1, 100 * i + 100), aLongTime);
  EXPECT_THAT(sentWithin(seconds(4000)), ElementsAre(report({isEx(group(1), {source(1)})})));
}

TEST_F(HostAnswerRule, ResponsesThatFallDueInOneBatchShareAReport) {
  for (unsigned i = 1; i <= 3; ++i) {
    exclude(group(i));
    hearsQuery(group(i), {}, 0);
  }
  EXPECT_THAT(sentWithin(milliseconds(2)),
              ElementsAre(report({isEx(group(1)), isEx(group(2)), isEx(group(3))})));
}

// ---- What is answered at all

class HostHearing : public HostAnswer {
 protected:
  HostHearing() { exclude(group(1)); }

  bool answers(FrameBuilder const& query) {
    hears(query);
    return !sentWithin(seconds(100)).empty();
  }
  static FrameBuilder generalQuery() { return FrameBuilder::queryV3({}); }
  static FrameBuilder groupQuery() { return FrameBuilder::queryV3({.group = group(1)}); }
};

TEST_F(HostHearing, QueriesAreCounted) {
  hears(generalQuery());
  hears(FrameBuilder::queryV2(IpAddr(), 100));
  hears(FrameBuilder::reportV2(group(1)));
  hears(generalQuery().damageIgmpChecksum());
  EXPECT_EQ(status().counters().queriesHeard, 2u);
}

TEST_F(HostHearing, TaggedAndPaddedQueriesAreAnswered) {
  EXPECT_TRUE(answers(generalQuery().padded(0xff)));
  EXPECT_TRUE(answers(generalQuery().vlan(10)));
  EXPECT_TRUE(answers(groupQuery().vlan(0, 7).padded(0xff)));
}

TEST_F(HostHearing, QueryOfAnotherVlanIsNotTheHosts) {
  multiplexer->vlanIs(Bridging::VlanId(20), 0);
  EXPECT_FALSE(answers(generalQuery().vlan(20)));
}

TEST_F(HostHearing, QueriesOfASwitchWithoutAddressAreAnswered) {
  EXPECT_TRUE(answers(generalQuery().from(IpAddr())));
}

TEST_F(HostHearing, DamagedQueriesAreIgnored) {
  EXPECT_FALSE(answers(generalQuery().damageIgmpChecksum()));
  EXPECT_FALSE(answers(generalQuery().damageIpChecksum()));
  EXPECT_FALSE(answers(generalQuery().ttl(2)));
  EXPECT_FALSE(
      answers(FrameBuilder::message({0x11, 100, 0, 0, 0, 0, 0, 0, 0, 0}, Igmp::allSystems)));
  EXPECT_FALSE(answers(FrameBuilder::message({}, Igmp::allSystems)));
  EXPECT_FALSE(answers(FrameBuilder::message({0x11}, Igmp::allSystems)));
}

TEST_F(HostHearing, GeneralQueryToAGroupIsIgnored) {
  EXPECT_FALSE(answers(generalQuery().to(group(1))));
  EXPECT_TRUE(answers(generalQuery().to(IpAddr(192, 0, 2, 1))));
}

TEST_F(HostHearing, GroupQueryToTheHostItselfIsAnswered) {
  EXPECT_TRUE(answers(groupQuery().to(IpAddr(192, 0, 2, 1))));
}

TEST_F(HostHearing, RouterAlertIsAskedOfQueriesWhereItIsRequired) {
  EXPECT_TRUE(answers(generalQuery().withoutRouterAlert()));
  changeSettings([](Igmp::HostSettings& settings) { settings.requireRouterAlert = true; });
  EXPECT_FALSE(answers(generalQuery().withoutRouterAlert()));
  EXPECT_FALSE(answers(FrameBuilder::queryV2(IpAddr(), 100).withoutRouterAlert()));
  EXPECT_TRUE(answers(FrameBuilder::queryV1().withoutRouterAlert()));
}

TEST_F(HostHearing, OtherMembersReportsDoNotSpareTheHostItsAnswer) {
  hears(generalQuery());
  hears(FrameBuilder::reportV3({isEx(group(1))}));
  hears(FrameBuilder::reportV2(group(1)));
  hears(FrameBuilder::reportV1(group(1)));
  EXPECT_THAT(sentWithin(seconds(10)), ElementsAre(report({isEx(group(1))})));
}

TEST_F(HostHearing, FramesThatAreNotIgmpAreIgnored) {
  EXPECT_FALSE(answers(generalQuery().protocol(17)));
  EXPECT_FALSE(answers(generalQuery().etherType(0x86dd)));
  EXPECT_FALSE(answers(generalQuery().headerWords(15)));
  for (std::size_t size = 0; size < 60; ++size) {
    ByteVector frame = generalQuery().bytes();
    frame.resize(std::min(size, frame.size() - 1));
    wire->inputPktIs(Wirex::Pkt::PktIs(frame));
  }
  EXPECT_THAT(sentWithin(seconds(100)), IsEmpty());
}

}  // namespace IgmpTest
