#include "tests/platform/igmp/HostTesting.h"

/// How a host tells its changes without being asked (RFC 9776 section 5.1).
namespace IgmpTest {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::Gt;
using testing::IsEmpty;
using testing::Le;
using testing::SizeIs;

class HostStateChange : public HostTest {};

TEST_F(HostStateChange, FirstSourceSpecificJoinIsAllow) {
  include(group(1), {source(1), source(2)});
  EXPECT_THAT(sent(), ElementsAre(report({allow(group(1), {source(1), source(2)})})));
}

TEST_F(HostStateChange, JoinOfEverySourceIsToEx) {
  exclude(group(1));
  EXPECT_THAT(sent(), ElementsAre(report({toEx(group(1))})));
}

TEST_F(HostStateChange, IncludeWithoutSourcesSaysNothing) {
  include(group(1), {});
  EXPECT_THAT(sentWithin(seconds(10)), IsEmpty());
}

TEST_F(HostStateChange, SourcesThatComeAndGoAreAllowAndBlock) {
  include(group(1), {source(1), source(2)});
  rest();
  include(group(1), {source(2), source(3)});
  EXPECT_THAT(sent(),
              ElementsAre(report({allow(group(1), {source(3)}), block(group(1), {source(1)})})));
}

TEST_F(HostStateChange, EmptyAllowIsLeftOut) {
  include(group(1), {source(1), source(2)});
  rest();
  include(group(1), {source(2)});
  EXPECT_THAT(sent(), ElementsAre(report({block(group(1), {source(1)})})));
}

TEST_F(HostStateChange, EmptyBlockIsLeftOut) {
  include(group(1), {source(1)});
  rest();
  include(group(1), {source(1), source(2)});
  EXPECT_THAT(sent(), ElementsAre(report({allow(group(1), {source(2)})})));
}

TEST_F(HostStateChange, ExcludeListBlocksWhatComesAndAllowsWhatGoes) {
  exclude(group(1), {source(1), source(2)});
  rest();
  exclude(group(1), {source(2), source(3)});
  EXPECT_THAT(sent(),
              ElementsAre(report({allow(group(1), {source(1)}), block(group(1), {source(3)})})));
}

TEST_F(HostStateChange, ChangeToExcludeIsToExAlone) {
  include(group(1), {source(1)});
  rest();
  exclude(group(1), {source(2)});
  EXPECT_THAT(sent(), ElementsAre(report({toEx(group(1), {source(2)})})));
}

TEST_F(HostStateChange, ChangeToIncludeIsToInAlone) {
  exclude(group(1), {source(2)});
  rest();
  include(group(1), {source(1)});
  EXPECT_THAT(sent(), ElementsAre(report({toIn(group(1), {source(1)})})));
}

TEST_F(HostStateChange, LeavingFromIncludeBlocksItsSources) {
  include(group(1), {source(1), source(2)});
  rest();
  drop(group(1));
  EXPECT_THAT(sent(), ElementsAre(report({block(group(1), {source(1), source(2)})})));
}

TEST_F(HostStateChange, LeavingFromExcludeIsToInOfNothing) {
  exclude(group(1), {source(1)});
  rest();
  drop(group(1));
  EXPECT_THAT(sent(), ElementsAre(report({toIn(group(1))})));
}

TEST_F(HostStateChange, WhatOnlyTheOwnPortHasIsNotToldItAndIsOnceAnotherPortHasItToo) {
  writeExclude(group(1), {source(1)});
  heardBackIs(group(1), true);
  EXPECT_THAT(sentWithin(seconds(10)), IsEmpty());
  heardBackIs(group(1), false);
  EXPECT_THAT(sent(), ElementsAre(report({toEx(group(1), {source(1)})})));
}

TEST_F(HostStateChange, WhatOnlyTheOwnPortStillHasIsLeft) {
  exclude(group(1), {source(1)});
  rest();
  heardBackIs(group(1), true);
  EXPECT_THAT(sent(), ElementsAre(report({toIn(group(1))})));
}

TEST_F(HostStateChange, RecordWhoseSourceListIsTakenAwayIsLeft) {
  include(group(1), {source(1)});
  rest();
  host->v3group(group(1))->sourceDel();
  Kel::runActivities();
  EXPECT_THAT(sent(), ElementsAre(report({block(group(1), {source(1)})})));
}

TEST_F(HostStateChange, SourceListThatIsReplacedIsFollowed) {
  include(group(1), {source(1)});
  rest();
  host->v3group(group(1))->sourceDel();
  host->v3group(group(1))->sourceIs()->sourceIpIs(source(2), 1);
  Kel::runActivities();
  EXPECT_THAT(sent(),
              ElementsAre(report({allow(group(1), {source(2)}), block(group(1), {source(1)})})));
}

TEST_F(HostStateChange, RecordWrittenAnewWithTheSameContentSaysNothing) {
  include(group(1), {source(1), source(2)});
  exclude(group(2), {source(1)});
  rest();
  include(group(1), {source(2), source(1)});
  exclude(group(2), {source(1)});
  EXPECT_THAT(sentWithin(seconds(10)), IsEmpty());
}

TEST_F(HostStateChange, RecordThatIsRemovedAndMadeAgainInOneBatchSaysNothing) {
  include(group(1), {source(1)});
  rest();
  host->v3groupDel(group(1));
  include(group(1), {source(1)});
  EXPECT_THAT(sentWithin(seconds(10)), IsEmpty());
}

TEST_F(HostStateChange, RecordThatComesAndGoesInOneBatchSaysNothing) {
  writeExclude(group(1));
  drop(group(1));
  EXPECT_THAT(sentWithin(seconds(10)), IsEmpty());
}

TEST_F(HostStateChange, ChangesOfOneBatchShareAReport) {
  for (unsigned i = 1; i <= 3; ++i) writeInclude(group(i), {source(i)});
  writeExclude(group(4));
  Kel::runActivities();
  EXPECT_THAT(sent(),
              ElementsAre(report({allow(group(1), {source(1)}), allow(group(2), {source(2)}),
                                  allow(group(3), {source(3)}), toEx(group(4))})));
}

TEST_F(HostStateChange, AllSystemsGroupIsNeverReported) {
  exclude(Igmp::allSystems);
  hearsGeneralQuery();
  hears(FrameBuilder::queryV3({.group = Igmp::allSystems}));
  EXPECT_THAT(sentWithin(seconds(20)), IsEmpty());
}

TEST_F(HostStateChange, HostThatTellsNothingUnaskedWatchesNoRecord) {
  exclude(group(1));
  EXPECT_TRUE(host->v3group(group(1))->watched());
  EXPECT_TRUE(host->v3group(group(1))->source()->watched());
  reportsUnaskedIs(false);
  EXPECT_FALSE(host->v3group(group(1))->watched());
  EXPECT_FALSE(host->v3group(group(1))->source()->watched());
  exclude(group(2));
  EXPECT_FALSE(host->v3group(group(2))->watched());
}

// ---- Repetitions

class HostRepetition : public HostTest {};

TEST_F(HostRepetition, ReportIsSentRobustnessVariableTimes) {
  for (std::uint8_t const robustness : std::initializer_list<std::uint8_t>{1, 2, 3, 7}) {
    robustnessIs(robustness);
    exclude(group(robustness));
    EXPECT_THAT(sentWithin(seconds(100)),
                AllOf(SizeIs(robustness), Each(report({toEx(group(robustness))}))));
  }
}

TEST_F(HostRepetition, IntervalsAreRandomAndAtMostASecond) {
  robustnessIs(7);
  std::set<Horix::Time> intervals;
  for (unsigned i = 1; i <= 10; ++i) {
    exclude(group(i));
    pass(seconds(100));
    auto const all = takeSent();
    ASSERT_THAT(all, SizeIs(7));
    for (std::size_t next = 1; next < all.size(); ++next)
      intervals.insert(all[next].time - all[next - 1].time);
  }
  EXPECT_THAT(intervals, Each(AllOf(Gt(Horix::Time(0)), Le(seconds(1)))));
  EXPECT_GT(intervals.size(), 40u);
  EXPECT_LT(*intervals.begin(), milliseconds(200));
  EXPECT_GT(*intervals.rbegin(), milliseconds(800));
}

TEST_F(HostRepetition, HostsOfOneMachineDoNotRepeatTogether) {
  auto const first = host;
  auto const second = newHost("Vlan20swp1", 20);
  unsigned together = 0;
  for (unsigned i = 1; i <= 20; ++i) {
    host = first;
    writeExclude(group(i));
    host = second;
    exclude(group(i));
    wire->sent.clear();
    pass(seconds(10));
    auto const all = takeSent();
    ASSERT_THAT(all, SizeIs(2));
    if (all[0].time == all[1].time) ++together;
  }
  EXPECT_LT(together, 3u);
}

TEST_F(HostRepetition, ReplayRepeatsAtTheSameTimes) {
  auto const timesOfRun = [this] {
    auto const start = loop.now();
    exclude(group(1));
    pass(seconds(10));
    std::vector<Horix::Time> times;
    for (Sent const& each : takeSent()) times.push_back(each.time - start);
    return times;
  };
  auto const first = timesOfRun();
  hosts->igmpHostDel(host->name());
  host = newHost("Vlan10swp1", 10);
  rest();
  EXPECT_EQ(timesOfRun(), first);
}

TEST_F(HostRepetition, PortsWithOtherAddressesRepeatAtOtherTimes) {
  std::set<Horix::Time> intervals;
  for (std::uint8_t i = 1; i <= 10; ++i) {
    hosts->igmpHostDelAll();
    host = newHost("Vlan10swp1", 10);
    changeSettings([&](Igmp::HostSettings& settings) { settings.macAddress.back() = i; });
    rest();
    exclude(group(1));
    pass(seconds(10));
    auto const all = takeSent();
    ASSERT_THAT(all, SizeIs(2));
    intervals.insert(all[1].time - all[0].time);
  }
  EXPECT_GT(intervals.size(), 8u);
}

// ---- Changes that meet others still pending

class HostMerge : public HostTest {
 protected:
  HostMerge() { robustnessIs(3); }
};

TEST_F(HostMerge, SourcesCountForThemselves) {
  include(group(1), {source(1)});
  EXPECT_THAT(sent(), ElementsAre(report({allow(group(1), {source(1)})})));
  include(group(1), {source(1), source(2)});
  Texts const all = sentWithin(seconds(100));
  EXPECT_THAT(all, ElementsAre(report({allow(group(1), {source(1), source(2)})}),
                               report({allow(group(1), {source(1), source(2)})}),
                               report({allow(group(1), {source(2)})})));
}

TEST_F(HostMerge, SourceThatGoesAgainIsBlockedInTheSameReport) {
  include(group(1), {source(1), source(2)});
  wire->sent.clear();
  include(group(1), {source(1)});
  EXPECT_THAT(sentWithin(seconds(100)),
              ElementsAre(report({allow(group(1), {source(1)}), block(group(1), {source(2)})}),
                          report({allow(group(1), {source(1)}), block(group(1), {source(2)})}),
                          report({block(group(1), {source(2)})})));
}

TEST_F(HostMerge, LeaveBlocksTheSourcesStillPendingToo) {
  include(group(1), {source(1), source(2)});
  include(group(1), {source(2)});
  wire->sent.clear();
  drop(group(1));
  EXPECT_THAT(sent(), ElementsAre(report({block(group(1), {source(1), source(2)})})));
}

TEST_F(HostMerge, ModeChangeReplacesPendingSources) {
  include(group(1), {source(1)});
  wire->sent.clear();
  exclude(group(1), {source(2)});
  EXPECT_THAT(sentWithin(seconds(100)),
              AllOf(SizeIs(3), Each(report({toEx(group(1), {source(2)})}))));
}

TEST_F(HostMerge, ModeChangeIsToldItsTimesThenTheSources) {
  exclude(group(1));
  EXPECT_THAT(sent(), ElementsAre(report({toEx(group(1))})));
  exclude(group(1), {source(1)});
  EXPECT_THAT(sentWithin(seconds(100)), ElementsAre(report({toEx(group(1), {source(1)})}),
                                                    report({toEx(group(1), {source(1)})}),
                                                    report({block(group(1), {source(1)})})));
}

TEST_F(HostMerge, SecondModeChangeBeginsAnew) {
  exclude(group(1));
  wire->sent.clear();
  include(group(1), {source(1)});
  EXPECT_THAT(sentWithin(seconds(100)),
              AllOf(SizeIs(3), Each(report({toIn(group(1), {source(1)})}))));
}

TEST_F(HostMerge, JoinDuringALeaveIsAModeChangeOnlyWhileThatIsPending) {
  exclude(group(1));
  rest();
  drop(group(1));
  EXPECT_THAT(sent(), ElementsAre(report({toIn(group(1))})));
  include(group(1), {source(1)});
  EXPECT_THAT(sentWithin(seconds(100)), ElementsAre(report({toIn(group(1), {source(1)})}),
                                                    report({toIn(group(1), {source(1)})}),
                                                    report({allow(group(1), {source(1)})})));
}

TEST_F(HostMerge, RepetitionsTellTheStateOfTheirTime) {
  include(group(1), {source(1)});
  wire->sent.clear();
  include(group(1), {});
  EXPECT_THAT(sentWithin(seconds(100)),
              AllOf(SizeIs(3), Each(report({block(group(1), {source(1)})}))));
}

TEST_F(HostMerge, GroupsDoNotDisturbEachOther) {
  exclude(group(1));
  exclude(group(2));
  include(group(3), {source(1)});
  auto const all = sentWithin(seconds(100));
  std::map<std::string, int> told;
  for (std::string const& each : all) {
    std::istringstream records(each);
    for (std::string record; std::getline(records, record, ')');) {
      record.erase(0, record.find_first_not_of(' '));
      ++told[record + ')'];
    }
  }
  EXPECT_THAT(told, ElementsAre(std::pair(report({allow(group(3), {source(1)})}), 3),
                                std::pair(report({toEx(group(1))}), 3),
                                std::pair(report({toEx(group(2))}), 3)));
}

}  // namespace IgmpTest
