#include "tests/TraceCapture.h"
#include "tests/platform/igmp/HostTesting.h"

/// A host among older queriers (RFC 9776 section 7.2; RFC 2236; RFC 1112 appendix I).
namespace IgmpTest {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Le;
using testing::SizeIs;
using testing::UnorderedElementsAre;

class HostOlderQuerier : public HostTest {
 protected:
  /// @param response the max response time, in tenths of a second.
  void hearsV2Query(IpAddr group = {}, unsigned response = 100) {
    hears(FrameBuilder::queryV2(group, response));
  }
  void hearsV1Query() { hears(FrameBuilder::queryV1()); }

  /// Becomes a host of a v2 or v1 querier and answers its query.
  void fallsBackToV2() {
    hearsV2Query();
    rest();
  }
  void fallsBackToV1() {
    hearsV1Query();
    rest();
  }

  IgmpVersion mode() const { return status().compatibilityMode(); }
};

// ---- Many queries, many groups

TEST_F(HostOlderQuerier, StormOfGeneralQueriesIsAnsweredInOneRoundAfterTheOther) {
  exclude(group(1));
  exclude(group(2));
  fallsBackToV2();
  for (int query = 0; query < 200; ++query) {
    hearsV2Query();
    pass(milliseconds(5));
  }
  auto const answers = sentWithin(seconds(30));
  EXPECT_EQ(std::count(answers.begin(), answers.end(), v2Report(group(1))), 2);
  EXPECT_THAT(answers, SizeIs(4)) << "what was asked last is answered, too";
}

TEST_F(HostOlderQuerier, QueryThatWaitsLessHastensAllAnswers) {
  for (unsigned number = 1; number <= 20; ++number) exclude(group(number));
  fallsBackToV2();
  hearsV2Query({}, 255);
  wire->sent.clear();
  hearsV2Query({}, 10);
  EXPECT_THAT(sentWithin(seconds(1)), SizeIs(20));
}

TEST_F(HostOlderQuerier, QueryAfterAllIsAnsweredBeginsAnewAtOnce) {
  exclude(group(1));
  fallsBackToV2();
  hearsV2Query();
  while (sent().empty()) pass(milliseconds(1));
  hearsV2Query({}, 1);
  EXPECT_THAT(sentWithin(milliseconds(100)), SizeIs(1));
}

TEST_F(HostOlderQuerier, EveryOneOfManyGroupsIsAnsweredFor) {
  for (unsigned number = 1; number <= 5000; ++number) writeExclude(group(number));
  Kel::runActivities();
  fallsBackToV2();
  hearsV2Query();
  std::set<std::string> answers;
  for (std::string const& answer : sentWithin(seconds(11))) answers.insert(answer);
  EXPECT_THAT(answers, SizeIs(5000));
}

TEST_F(HostOlderQuerier, ChangeOfModeEndsARoundOfManyGroups) {
  for (unsigned number = 1; number <= 5000; ++number) writeExclude(group(number));
  Kel::runActivities();
  fallsBackToV2();
  hearsV2Query({}, 100);
  hearsV1Query();
  std::set<std::string> answers;
  for (std::string const& answer : sentWithin(seconds(11))) answers.insert(answer);
  EXPECT_THAT(answers, SizeIs(5000)) << "the second query's";
  EXPECT_TRUE(answers.contains(v1Report(group(1))));
}

// ---- Compatibility mode

TEST_F(HostOlderQuerier, ModeFollowsTheOldestQuerierAtOnce) {
  EXPECT_EQ(mode(), IgmpVersion::v3);
  hearsV2Query();
  EXPECT_EQ(mode(), IgmpVersion::v2);
  hearsV1Query();
  EXPECT_EQ(mode(), IgmpVersion::v1);
  hearsV2Query();
  EXPECT_EQ(mode(), IgmpVersion::v1);
  hearsGeneralQuery();
  EXPECT_EQ(mode(), IgmpVersion::v1);
}

TEST_F(HostOlderQuerier, TimeoutIsOfDefaultIntervalsAndTenResponseTimes) {
  hearsV2Query({}, 100);  // 2 * 125 s + 10 * 10 s
  pass(milliseconds(349'999));
  EXPECT_EQ(mode(), IgmpVersion::v2);
  pass(milliseconds(1));
  EXPECT_EQ(mode(), IgmpVersion::v3);

  hearsV2Query({}, 5);  // 2 * 125 s + 10 * 0.5 s
  pass(milliseconds(254'999));
  EXPECT_EQ(mode(), IgmpVersion::v2);
  pass(milliseconds(1));
  EXPECT_EQ(mode(), IgmpVersion::v3);

  hearsV1Query();  // whose response time is 10 s
  pass(milliseconds(349'999));
  EXPECT_EQ(mode(), IgmpVersion::v1);
  pass(milliseconds(1));
  EXPECT_EQ(mode(), IgmpVersion::v3);
}

TEST_F(HostOlderQuerier, EveryGeneralQueryProlongsTheTimeout) {
  hearsV2Query();
  pass(seconds(300));
  hearsV2Query();
  pass(seconds(349));
  EXPECT_EQ(mode(), IgmpVersion::v2);
}

TEST_F(HostOlderQuerier, EndOfV1LeavesV2WhileThatQuerierIsPresent) {
  hearsV1Query();
  pass(seconds(200));
  hearsV2Query();
  pass(seconds(150));
  EXPECT_EQ(mode(), IgmpVersion::v2);
  pass(seconds(200));
  EXPECT_EQ(mode(), IgmpVersion::v3);
}

TEST_F(HostOlderQuerier, GroupSpecificQueryOfV2DoesNotTellTheMode) {
  exclude(group(1));
  rest();
  hearsV2Query(group(1));
  EXPECT_EQ(mode(), IgmpVersion::v3);
  EXPECT_THAT(sentWithin(seconds(10)), ElementsAre(report({isEx(group(1))})));
}

TEST_F(HostOlderQuerier, ConfiguredVersionIsTheUpperBound) {
  host->igmpVersionIs(IgmpVersion::v2);
  EXPECT_EQ(mode(), IgmpVersion::v2);
  hearsGeneralQuery();
  EXPECT_EQ(mode(), IgmpVersion::v2);
  hearsV1Query();
  EXPECT_EQ(mode(), IgmpVersion::v1);
  host->igmpVersionIs(IgmpVersion::v1);
  pass(seconds(400));
  EXPECT_EQ(mode(), IgmpVersion::v1);
  host->igmpVersionIs(IgmpVersion::v3);
  EXPECT_EQ(mode(), IgmpVersion::v3);
}

TEST_F(HostOlderQuerier, ModeChangeCancelsAnswersAndRepetitions) {
  robustnessIs(7);
  exclude(group(1));
  hearsGeneralQuery();
  wire->sent.clear();
  hearsV2Query({}, 1);
  EXPECT_THAT(sentWithin(seconds(300)), ElementsAre(v2Report(group(1))));
}

TEST_F(HostOlderQuerier, ModeChangeBackCancelsTheOlderVersionsReports) {
  fallsBackToV2();
  robustnessIs(7);
  pass(seconds(249));
  exclude(group(1));
  EXPECT_THAT(sent(), ElementsAre(v2Report(group(1))));
  pass(seconds(1));
  wire->sent.clear();
  EXPECT_EQ(mode(), IgmpVersion::v3);
  EXPECT_THAT(sentWithin(seconds(100)), IsEmpty());
}

TEST_F(HostOlderQuerier, ChangeThatModeChangeMeetsIsToldInTheNewMode) {
  writeExclude(group(1));
  hearsV2Query();
  EXPECT_THAT(sent(), ElementsAre(v2Report(group(1))));
}

TEST_F(HostOlderQuerier, LeaveThatWasPendingIsForgottenWithItsRepetitions) {
  exclude(group(1));
  rest();
  drop(group(1));
  wire->sent.clear();
  hearsV2Query({}, 1);
  exclude(group(2));
  EXPECT_THAT(sentWithin(seconds(10)), Each(v2Report(group(2))));
}

// ---- IGMPv2

TEST_F(HostOlderQuerier, V2JoinIsReportedToTheGroupRobustnessVariableTimes) {
  fallsBackToV2();
  robustnessIs(3);
  auto const joined = loop.now();
  exclude(group(1));
  EXPECT_THAT(wire->sent, SizeIs(1));
  pass(seconds(100));
  auto const all = takeSent();
  ASSERT_THAT(all, SizeIs(3));
  for (Sent const& each : all) {
    EXPECT_EQ(each.text(), v2Report(group(1)));
    EXPECT_EQ(each.packet.destination, group(1));
  }
  EXPECT_EQ(all[0].time, joined);
  EXPECT_THAT(all[1].time - all[0].time, Le(seconds(10)));
  EXPECT_THAT(all[2].time - all[1].time, Le(seconds(10)));
  EXPECT_GT(all[2].time - all[0].time, seconds(1));
}

TEST_F(HostOlderQuerier, V2ReportGoesToTheMacAddressOfTheLow23BitsOfTheGroup) {
  fallsBackToV2();
  exclude(IpAddr(239, 129, 1, 1));
  ByteVector const frame = takeSent().at(0).frame;
  EXPECT_THAT(ByteVector(frame.begin(), frame.begin() + 6),
              ElementsAre(0x01, 0x00, 0x5e, 0x01, 0x01, 0x01));
}

TEST_F(HostOlderQuerier, V2LeaveGoesToAllRoutersOnce) {
  fallsBackToV2();
  exclude(group(1));
  rest();
  drop(group(1));
  pass(seconds(100));
  auto const all = takeSent();
  ASSERT_THAT(all, SizeIs(1));
  EXPECT_EQ(all[0].text(), leave(group(1)));
  EXPECT_EQ(all[0].packet.destination, Igmp::allRouters);
}

TEST_F(HostOlderQuerier, V2LeaveEndsTheRepetitionsOfTheJoin) {
  fallsBackToV2();
  exclude(group(1));
  drop(group(1));
  EXPECT_THAT(sentWithin(seconds(100)), ElementsAre(v2Report(group(1)), leave(group(1))));
}

TEST_F(HostOlderQuerier, ReportsThatAV2QueryBeginsAreSentWithinTenSeconds) {
  exclude(group(1));
  include(group(2), {source(1)});
  reportsUnaskedIs(false);
  fallsBackToV2();
  reportsUnaskedSinceQuery();
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_THAT(sentWithin(seconds(10)),
              testing::IsSupersetOf({v2Report(group(1)), v2Report(group(2))}));
}

TEST_F(HostOlderQuerier, ReportsThatAV3QueryBeginsAreSentInV2IfThatIsHeardBefore) {
  robustnessIs(1);
  exclude(group(1));
  reportsUnaskedIs(false);
  wire->sent.clear();
  reportsUnaskedSinceQuery();
  hearsV2Query({}, 255);
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_THAT(sentWithin(seconds(1)), ElementsAre(v2Report(group(1))));
}

TEST_F(HostOlderQuerier, EveryGroupIsLeftThoughTheHostIsBlockedBetween) {
  constexpr unsigned groups = 200;
  fallsBackToV2();
  for (unsigned i = 1; i <= groups; ++i) exclude(group(i));
  rest();
  host->v3groupDelAll();
  Kel::runActivities();
  EXPECT_EQ(status().counters().leavesSent, wire->sent.size());
  host->blockedIs(true);
  host->blockedIs(false);
  Texts const all = sentWithin(seconds(1));
  std::set<std::string> const left(all.begin(), all.end());
  for (unsigned i = 1; i <= groups; ++i) EXPECT_TRUE(left.contains(leave(group(i)))) << i;
}

TEST_F(HostOlderQuerier, WhoIncludesSomeSourcesIsAMemberInV2) {
  fallsBackToV2();
  include(group(1), {source(1)});
  EXPECT_THAT(sentWithin(seconds(100)), ElementsAre(v2Report(group(1)), v2Report(group(1))));
  include(group(1), {source(2)});
  exclude(group(1));
  exclude(group(1), {source(1)});
  EXPECT_THAT(sentWithin(seconds(100)), IsEmpty());
  include(group(1), {});
  EXPECT_THAT(sent(), ElementsAre(leave(group(1))));
}

TEST_F(HostOlderQuerier, ChangedSourcesDoNotHastenARepetition) {
  fallsBackToV2();
  include(group(1), {source(1)});
  include(group(1), {source(2)});
  EXPECT_THAT(sent(), ElementsAre(v2Report(group(1))));
}

TEST_F(HostOlderQuerier, V2GeneralQueryIsAnsweredForEachGroupAtItsOwnTime) {
  fallsBackToV2();
  for (unsigned i = 1; i <= 10; ++i) include(group(i), {source(i)});
  rest();
  hearsV2Query();
  EXPECT_THAT(sent(), IsEmpty());
  pass(seconds(10));
  auto const all = takeSent();
  std::set<std::string> texts;
  std::set<Horix::Time> times;
  for (Sent const& each : all) {
    texts.insert(each.text());
    times.insert(each.time);
    EXPECT_EQ(each.packet.destination, std::get<Igmp::ReportV2>(each.packet.message).group);
  }
  EXPECT_THAT(all, SizeIs(10));
  EXPECT_THAT(texts, SizeIs(10));
  EXPECT_THAT(times, SizeIs(10));
}

TEST_F(HostOlderQuerier, V2GroupSpecificQueryIsAnsweredForItsGroupOnly) {
  fallsBackToV2();
  exclude(group(1));
  exclude(group(2));
  rest();
  hearsV2Query(group(1), 10);
  hearsV2Query(group(3), 10);
  EXPECT_THAT(sentWithin(seconds(1)), ElementsAre(v2Report(group(1))));
}

TEST_F(HostOlderQuerier, V3QueryIsAnsweredInV2WhileThatQuerierIsPresent) {
  fallsBackToV2();
  exclude(group(1));
  rest();
  hearsQuery(group(1), {source(1)});
  EXPECT_THAT(sentWithin(seconds(10)), ElementsAre(v2Report(group(1))));
  hearsGeneralQuery();
  EXPECT_THAT(sentWithin(seconds(10)), ElementsAre(v2Report(group(1))));
}

TEST_F(HostOlderQuerier, RunningTimerIsResetOnlyByAMoreUrgentQuery) {
  fallsBackToV2();
  exclude(group(1));
  rest();
  hearsV2Query(group(1), 100);
  hearsV2Query(group(1), 1);
  hearsV2Query(group(1), 255);
  EXPECT_THAT(sentWithin(milliseconds(100)), ElementsAre(v2Report(group(1))));
  EXPECT_THAT(sentWithin(seconds(100)), IsEmpty());
}

TEST_F(HostOlderQuerier, ConfiguredVersionThatChangesHasAllStateToldInIt) {
  include(group(1), {source(1)});
  exclude(group(2));
  rest();
  host->igmpVersionIs(IgmpVersion::v2);
  Kel::runActivities();
  EXPECT_THAT(sent(), UnorderedElementsAre(v2Report(group(1)), v2Report(group(2))));
  rest();
  host->igmpVersionIs(IgmpVersion::v3);
  Kel::runActivities();
  EXPECT_THAT(sent(), ElementsAre(report({allow(group(1), {source(1)}), toEx(group(2))})));
}

// ---- Suppression

TEST_F(HostOlderQuerier, AnotherMembersReportSparesTheAnswer) {
  fallsBackToV2();
  exclude(group(1));
  exclude(group(2));
  rest();
  hearsV2Query();
  hears(FrameBuilder::reportV2(group(1)));
  EXPECT_THAT(sentWithin(seconds(10)), ElementsAre(v2Report(group(2))));
  hearsV2Query();
  hears(FrameBuilder::reportV1(group(2)));
  EXPECT_THAT(sentWithin(seconds(10)), ElementsAre(v2Report(group(1))));
}

TEST_F(HostOlderQuerier, AnotherMembersReportSparesTheRepetitions) {
  fallsBackToV2();
  robustnessIs(7);
  exclude(group(1));
  wire->sent.clear();
  hears(FrameBuilder::reportV2(group(1)));
  EXPECT_THAT(sentWithin(seconds(100)), IsEmpty());
}

TEST_F(HostOlderQuerier, WhoWasNotTheLastToReportDoesNotLeave) {
  fallsBackToV2();
  exclude(group(1));
  rest();
  hearsV2Query();
  hears(FrameBuilder::reportV2(group(1)));
  drop(group(1));
  EXPECT_THAT(sentWithin(seconds(100)), IsEmpty());
}

TEST_F(HostOlderQuerier, WhoReportedAgainAfterAnotherMemberLeaves) {
  fallsBackToV2();
  exclude(group(1));
  rest();
  hearsV2Query();
  hears(FrameBuilder::reportV2(group(1)));
  hearsV2Query();
  EXPECT_THAT(sentWithin(seconds(10)), ElementsAre(v2Report(group(1))));
  drop(group(1));
  EXPECT_THAT(sent(), ElementsAre(leave(group(1))));
}

TEST_F(HostOlderQuerier, ReportHeardWhileNoTimerRunsChangesNothing) {
  fallsBackToV2();
  exclude(group(1));
  rest();
  hears(FrameBuilder::reportV2(group(1)));
  drop(group(1));
  EXPECT_THAT(sent(), ElementsAre(leave(group(1))));
}

TEST_F(HostOlderQuerier, DamagedReportSparesNothing) {
  fallsBackToV2();
  exclude(group(1));
  rest();
  hearsV2Query();
  hears(FrameBuilder::reportV2(group(1)).damageIgmpChecksum());
  EXPECT_THAT(sentWithin(seconds(10)), ElementsAre(v2Report(group(1))));
}

// ---- IGMPv1

TEST_F(HostOlderQuerier, V1JoinIsReportedInV1AndNeverLeft) {
  fallsBackToV1();
  exclude(group(1));
  pass(seconds(100));
  auto const all = takeSent();
  ASSERT_THAT(all, SizeIs(2));
  for (Sent const& each : all) {
    EXPECT_EQ(each.text(), v1Report(group(1)));
    EXPECT_EQ(each.packet.destination, group(1));
  }
  drop(group(1));
  EXPECT_THAT(sentWithin(seconds(100)), IsEmpty());
}

TEST_F(HostOlderQuerier, V1QueryIsAnsweredWithinTenSeconds) {
  exclude(group(1));
  include(group(2), {source(1)});
  rest();
  hearsV1Query();
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_THAT(sentWithin(seconds(10)),
              UnorderedElementsAre(v1Report(group(1)), v1Report(group(2))));
}

TEST_F(HostOlderQuerier, V1ReportOfAnotherMemberSparesTheAnswer) {
  exclude(group(1));
  rest();
  hearsV1Query();
  hears(FrameBuilder::reportV1(group(1)));
  EXPECT_THAT(sentWithin(seconds(20)), IsEmpty());
}

TEST_F(HostOlderQuerier, MessagesAreCountedByVersion) {
  exclude(group(1));
  exclude(group(2));
  rest();
  EXPECT_EQ(status().counters().reportsSentV3, 4u);
  EXPECT_EQ(status().counters().groupRecordsSent, 4u);
  fallsBackToV2();
  drop(group(1));
  EXPECT_EQ(status().counters().reportsSentV2, 2u);
  EXPECT_EQ(status().counters().leavesSent, 1u);
  fallsBackToV1();
  EXPECT_EQ(status().counters().reportsSentV1, 1u);
}

// ---- Traces

TEST_F(HostOlderQuerier, EachChangeOfTheVersionIsTracedWithItsCause) {
  auto const traces =
      Bridging::IgmpSnooping::Proxy::Testing::TraceCapture::ofEveryLevel("Igmp::HostSm");
  hears(FrameBuilder::queryV2({}, 100));
  hears(FrameBuilder::queryV2({}, 100));
  pass(seconds(350));
  std::ostringstream querier;
  querier << status().olderQuerier();
  EXPECT_THAT(
      traces.texts(),
      ElementsAre("4 Vlan10swp1 speaks IGMPv2 from now on: the querier " + querier.str() + " does",
                  "4 Vlan10swp1 speaks IGMPv3 from now on: it is configured, and no "
                  "querier is older"));
}

TEST_F(HostOlderQuerier, ReportingUnaskedIsTracedWithItsCause) {
  auto const traces =
      Bridging::IgmpSnooping::Proxy::Testing::TraceCapture::ofEveryLevel("Igmp::HostSm");
  host->blockedIs(true);
  host->blockedIs(false);
  reportsUnaskedIs(false);
  reportsUnaskedIs(true);
  host->enabledIs(false);
  EXPECT_THAT(traces.texts(),
              ElementsAre("4 Vlan10swp1 reports unasked no longer: its port is blocked",
                          "4 Vlan10swp1 reports unasked: it can, and is set to",
                          "4 Vlan10swp1 reports unasked no longer: it is set not to",
                          "4 Vlan10swp1 reports unasked: it can, and is set to",
                          "4 Vlan10swp1 reports unasked no longer: it is disabled"));
}

}  // namespace IgmpTest
