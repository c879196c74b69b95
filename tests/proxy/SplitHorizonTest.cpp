#include <cstddef>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "proxy/ProxyAdapterSm.h"
#include "tests/TraceCapture.h"
#include "tests/proxy/SnoopedVlan.h"

namespace Bridging::IgmpSnooping::Proxy::Testing {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;

/// A host on a port without listeners ("up"), and hosts on two ports with listeners.
class SplitHorizon : public SnoopedVlan {
 protected:
  SplitHorizon() {
    for (auto const* const name : {"up", "swp1", "swp2"}) proxyOn(name);
  }

  /// Puts together and writes one record again.
  void process(char const* name) const { adapter->processSplitHorizon(key(name), g1); }
};

// ---- the host's port has no listener

using SplitHorizon_NonMember = SplitHorizon;

TEST_F(SplitHorizon_NonMember, ReportsWhatAllMemberPortsExclude) {
  port("swp1").reports(g1).exclude({s1, s2});
  port("swp2").reports(g1).exclude({s2, s3});
  publish();
  EXPECT_EQ(record("up"), excluding({s2}));
}

TEST_F(SplitHorizon_NonMember, ReportsEverythingWhereTheExcludesHaveNothingInCommon) {
  port("swp1").reports(g1).exclude({s1});
  port("swp2").reports(g1).exclude({s2});
  TraceCapture const trace({4});
  publish();
  EXPECT_EQ(record("up"), everything);
  EXPECT_THAT(trace.texts(),
              Contains("4 non Group Intf: our excludes did not match others g: 239.1.1.1"));
}

TEST_F(SplitHorizon_NonMember, ReportsEverythingWhereOnePortIncludesWhatAnotherExcludes) {
  port("swp1").reports(g1).include({s1});
  port("swp2").reports(g1).exclude({s1});
  publish();
  EXPECT_EQ(record("up"), everything);
}

TEST_F(SplitHorizon_NonMember, CoarselyReportsEverythingWhereModesDifferInDifferentSources) {
  port("swp1").reports(g1).include({s1});
  port("swp2").reports(g1).exclude({s2});
  publish();
  EXPECT_EQ(record("up"), everything) << "the exact merge would exclude s2";
}

TEST_F(SplitHorizon_NonMember, ReportsTheUnionOfWhatMemberPortsInclude) {
  port("swp1").reports(g1).include({s1, s2});
  port("swp2").reports(g1).include({s2, s3});
  TraceCapture const trace({4});
  publish();
  EXPECT_EQ(record("up"), including({s1, s2, s3}));
  EXPECT_THAT(trace.texts(), Not(Contains("4 non Group Intf: our excludes did not match others g: "
                                          "239.1.1.1")));
}

TEST_F(SplitHorizon_NonMember, ReportsTheExcludesOfTheOnlyMember) {
  port("swp1").reports(g1).exclude({s1, s2});
  publish();
  EXPECT_EQ(record("up"), excluding({s1, s2}));
}

TEST_F(SplitHorizon_NonMember, ReportsEverythingWhereOnePortWantsEverything) {
  port("swp1").reports(g1).exclude({s1});
  port("swp2").reports(g1);
  publish();
  EXPECT_EQ(record("up"), everything);
}

TEST_F(SplitHorizon_NonMember, ReportsEverythingWhereOnePortWantsEverythingAndAllExclude) {
  port("swp1").reports(g1).exclude({s1});
  port("swp2").reports(g1).exclude({s1});
  group()->recordIs()->starGCountIs(1);
  process("up");
  EXPECT_EQ(record("up"), everything);
}

TEST_F(SplitHorizon_NonMember, ReportsNothingWhereNobodyWantsAnything) {
  port("swp1").reports(g1).include({});
  publish();
  EXPECT_EQ(record("up"), nothing);
}

TEST_F(SplitHorizon_NonMember, NeverExcludesWhatAnyPortIncludes) {
  port("swp1").reports(g1).exclude({s1, s2});
  port("swp2").reports(g1).exclude({s1, s2});
  // What a port that went has left behind.
  group()->recordIs()->includeIs(s1, 1);
  process("up");
  EXPECT_EQ(record("up"), excluding({s2}));
}

TEST_F(SplitHorizon_NonMember, KeepsACommonExcludeBesidesOnesThatAreNot) {
  port("swp1").reports(g1).exclude({s1, s2});
  port("swp2").reports(g1).exclude({s2});
  publish();
  EXPECT_EQ(record("up"), excluding({s2}));
}

TEST_F(SplitHorizon_NonMember, CommonExcludesThatAreAllIncludedLeaveAnIncludeRecord) {
  port("swp1").reports(g1).exclude({s1});
  group()->recordIs()->includeIs(s1, 1);
  process("up");
  EXPECT_EQ(record("up"), including({s1})) << "every member port excluded s1, so no *,G";
}

// ---- the host's port is a member

using SplitHorizon_Member = SplitHorizon;

TEST_F(SplitHorizon_Member, OnlyMemberThatIncludesHearsNothingBack) {
  port("swp1").reports(g1).include({s1});
  TraceCapture const trace({4});
  publish();
  EXPECT_EQ(record("swp1"), nothing);
  EXPECT_EQ(record("up"), including({s1}));
  EXPECT_THAT(trace.texts(), Contains("4 SplitHorizon includes == 0"));
}

TEST_F(SplitHorizon_Member, OnlyMemberThatWantsEverythingHearsNothingBack) {
  port("swp1").reports(g1);
  publish();
  EXPECT_EQ(record("swp1"), nothing);
  EXPECT_EQ(record("up"), everything);
}

TEST_F(SplitHorizon_Member, OnlyMemberThatExcludesHearsItsOwnExcludes) {
  port("swp1").reports(g1).exclude({s1, s2});
  publish();
  EXPECT_EQ(record("swp1"), excluding({s1, s2}));
}

TEST_F(SplitHorizon_Member, RecordSaysWhetherItHoldsTheOwnExcludesAlone) {
  auto const heardBack = [&](char const* name) {
    return hosts->igmpHost(key(name).hostName())->v3group(g1)->heardBack();
  };
  port("swp1").reports(g1).exclude({s1});
  publish();
  EXPECT_TRUE(heardBack("swp1"));
  EXPECT_FALSE(heardBack("up"));

  port("swp2").reports(g1).exclude({s1});
  publish();
  EXPECT_EQ(record("swp1"), excluding({s1})) << "now the other port's";
  EXPECT_FALSE(heardBack("swp1"));
}

TEST_F(SplitHorizon_Member, HearsWhatTheOtherPortsInclude) {
  port("swp1").reports(g1).include({s1});
  port("swp2").reports(g1).include({s2});
  publish();
  EXPECT_EQ(record("swp1"), including({s2}));
  EXPECT_EQ(record("swp2"), including({s1}));
  EXPECT_EQ(record("up"), including({s1, s2}));
}

TEST_F(SplitHorizon_Member, SourceThatTwoPortsIncludeIsHeardByBoth) {
  port("swp1").reports(g1).include({s1});
  port("swp2").reports(g1).include({s1});
  publish();
  EXPECT_EQ(record("swp1"), including({s1}));
  EXPECT_EQ(record("swp2"), including({s1}));
}

TEST_F(SplitHorizon_Member, AnotherPortThatWantsEverythingOutweighsAllExcludes) {
  port("swp1").reports(g1).exclude({s1});
  port("swp2").reports(g1);
  port("swp3").reports(g1).exclude({s1});
  publish();
  EXPECT_EQ(record("swp1"), everything);
}

TEST_F(SplitHorizon_Member, HearsWhatTheOtherPortExcludes) {
  port("swp1").reports(g1).include({s3});
  port("swp2").reports(g1).exclude({s1, s2});
  publish();
  EXPECT_EQ(record("swp1"), excluding({s1, s2}));
}

TEST_F(SplitHorizon_Member, ReportsEverythingWhereTheOthersExcludesHaveNothingInCommon) {
  port("swp1").reports(g1).include({s3});
  port("swp2").reports(g1).exclude({s1});
  port("swp3").reports(g1).exclude({s2});
  publish();
  EXPECT_EQ(record("swp1"), everything);
}

// ---- writing the record

using SplitHorizon_Record = SplitHorizon;

TEST_F(SplitHorizon_Record, CodesOfTheRecordTypesAreThoseOfIgmpv3) {
  port("swp1").reports(g1).include({s1});
  port("swp1").reports(g2).exclude({s1});
  publish();
  EXPECT_EQ(static_cast<int>(host("up")->v3group(g1)->filterMode()), 1);
  EXPECT_EQ(static_cast<int>(host("up")->v3group(g2)->filterMode()), 2);
}

TEST_F(SplitHorizon_Record, GivesEverySourceTheValueOne) {
  port("swp1").reports(g1).include({s1, s2});
  publish();
  for (auto const [source, value] : host("up")->v3group(g1)->source()->sourceIp())
    EXPECT_EQ(value, 1);
}

TEST_F(SplitHorizon_Record, OverwritesAForeignValue) {
  port("swp1").reports(g1).include({s1});
  publish();
  host("up")->v3group(g1)->source()->sourceIpIs(s1, 9);
  process("up");
  EXPECT_EQ(host("up")->v3group(g1)->source()->sourceIp(s1), 1);
}

TEST_F(SplitHorizon_Record, KeepsTheRecordAndItsSourceList) {
  auto const reporter = port("swp1").reports(g1).include({s1});
  publish();
  auto const written = host("up")->v3group(g1);
  auto const list = written->source();
  reporter.exclude({s2});
  publish();
  EXPECT_EQ(host("up")->v3group(g1), written);
  EXPECT_EQ(written->source(), list);
  EXPECT_EQ(record("up"), excluding({s2}));
}

TEST_F(SplitHorizon_Record, MakesAMissingSourceList) {
  port("swp1").reports(g1).include({s1});
  publish();
  host("up")->v3group(g1)->sourceDel();
  process("up");
  EXPECT_EQ(record("up"), including({s1}));
}

TEST_F(SplitHorizon_Record, StarGRecordHasASourceListWithoutSources) {
  port("swp1").reports(g1);
  publish();
  ASSERT_TRUE(host("up")->v3group(g1)->source());
  EXPECT_TRUE(host("up")->v3group(g1)->source()->sourceIp().empty());
}

TEST_F(SplitHorizon_Record, StarGEmptiesAFormerSourceList) {
  auto const reporter = port("swp1").reports(g1).include({s1});
  publish();
  reporter.exclude({});
  publish();
  EXPECT_EQ(record("up"), everything);
}

TEST_F(SplitHorizon_Record, RecordThatNobodyWantsAnyMoreIsRemoved) {
  auto const reporter = port("swp1").reports(g1).include({s1});
  publish();
  ASSERT_EQ(record("up"), including({s1}));
  reporter.include({});
  publish();
  EXPECT_EQ(record("up"), nothing);
}

/// Writes down each appearance and disappearance of a record.
class RecordWatcher : public Igmp::IgmpHost::NotifieeConst {
 public:
  explicit RecordWatcher(Kel::Ptr<Igmp::IgmpHost const> host) { watch(std::move(host)); }

  void onV3group(IpAddr group) override {
    heard.emplace_back(notifier()->v3group(group) ? "made" : "removed");
  }

  std::vector<std::string> heard;
};

TEST_F(SplitHorizon_Record, RecordIsMadeAlsoWhereItIsRemovedAtOnce) {
  port("swp1").reports(g1).include({});
  auto const watcher = Kel::make<RecordWatcher>(host("up"));
  publish();
  EXPECT_THAT(watcher->heard, ElementsAre("made", "removed"));
}

TEST_F(SplitHorizon_Record, SourceListIsMadeAlsoWhereTheRecordIsRemovedAtOnce) {
  port("swp1").reports(g1).include({});
  auto const bare = host("up")->v3groupIs(g1);
  ASSERT_FALSE(bare->source());
  process("up");
  EXPECT_EQ(record("up"), nothing);
  EXPECT_TRUE(bare->source());
}

TEST_F(SplitHorizon_Record, SecondRunRemovesAndAddsEveryIncludedSourceAgain) {
  port("swp1").reports(g1).include({s1, s2});
  publish();
  TraceCapture const trace({4});
  process("up");
  EXPECT_THAT(trace.texts(), ElementsAre("4 SplitHorizon Removing old source s: 192.0.2.1",
                                         "4 SplitHorizon Removing old source s: 192.0.2.2",
                                         "4 SplitHorizon Adding to include s: 192.0.2.1",
                                         "4 SplitHorizon Adding to include s: 192.0.2.2"));
  EXPECT_EQ(record("up"), including({s1, s2}));
}

TEST_F(SplitHorizon_Record, SecondRunRemovesAndAddsEveryExcludedSourceAgain) {
  port("swp1").reports(g1).exclude({s1, s2});
  publish();
  TraceCapture const trace({4});
  process("up");
  EXPECT_THAT(trace.texts(), ElementsAre("4 SplitHorizon exclude mode",
                                         "4 SplitHorizon Removing old source s: 192.0.2.1",
                                         "4 SplitHorizon Removing old source s: 192.0.2.2",
                                         "4 SplitHorizon Adding to exclude s: 192.0.2.1",
                                         "4 SplitHorizon Adding to exclude s: 192.0.2.2"));
  EXPECT_EQ(record("up"), excluding({s1, s2}));
}

/// Writes down the sources of a list as they come and go.
class SourceWatcher : public Igmp::IgmpV3HostGroupSourceList::NotifieeConst {
 public:
  explicit SourceWatcher(Kel::Ptr<Igmp::IgmpV3HostGroupSourceList const> list) {
    watch(std::move(list));
  }

  void onSourceIp(IpAddr source) override {
    heard.emplace_back(source, notifier()->sourceIp().contains(source));
  }

  std::vector<std::pair<IpAddr, bool>> heard;
};

TEST_F(SplitHorizon_Record, ListIsRebuiltFromEmptyNotByDifference) {
  port("swp1").reports(g1).include({s1, s2});
  publish();
  auto const watcher = Kel::make<SourceWatcher>(host("up")->v3group(g1)->source());
  process("up");
  using Heard = std::pair<IpAddr, bool>;
  EXPECT_THAT(watcher->heard,
              ElementsAre(Heard(s1, false), Heard(s2, false), Heard(s1, true), Heard(s2, true)));
}

/// Writes down how many lines had been traced when each source came or went.
class TraceWatcher : public Igmp::IgmpV3HostGroupSourceList::NotifieeConst {
 public:
  TraceWatcher(Kel::Ptr<Igmp::IgmpV3HostGroupSourceList const> list, TraceCapture const& trace)
      : trace_(trace) {
    watch(std::move(list));
  }

  void onSourceIp(IpAddr /*source*/) override { linesBefore.push_back(trace_.lines().size()); }

  std::vector<std::size_t> linesBefore;

 private:
  TraceCapture const& trace_;
};

TEST_F(SplitHorizon_Record, EachSourceIsTracedBeforeItGoesOrComes) {
  port("swp1").reports(g1).include({s1, s2});
  publish();
  TraceCapture const trace({4});
  auto const watcher = Kel::make<TraceWatcher>(host("up")->v3group(g1)->source(), trace);
  process("up");
  EXPECT_THAT(watcher->linesBefore, ElementsAre(1u, 2u, 3u, 4u));
}

/// Writes down what a record's list holds when the record changes its filter mode.
class ModeWatcher : public Igmp::IgmpV3GroupRecord::NotifieeConst {
 public:
  explicit ModeWatcher(Kel::Ptr<Igmp::IgmpV3GroupRecord const> record) { watch(std::move(record)); }

  void onFilterMode() override {
    for (IpAddr const source : notifier()->source()->sourceIp().keys()) sources.insert(source);
  }

  Sources sources;
};

TEST_F(SplitHorizon_Record, ModeIsSetBeforeTheListIsRebuilt) {
  auto const reporter = port("swp1").reports(g1).include({s1});
  publish();
  auto const watcher = Kel::make<ModeWatcher>(host("up")->v3group(g1));
  reporter.exclude({s2});
  publish();
  EXPECT_EQ(record("up"), excluding({s2}));
  EXPECT_EQ(watcher->sources, Sources{s1});
}

TEST_F(SplitHorizon_Record, IncludesAreIgnoredInExcludeMode) {
  port("swp1").reports(g1).include({});
  port("swp2").reports(g1).exclude({s1});
  group()->recordIs()->includeIs(s2, 1);
  process("swp1");
  EXPECT_EQ(record("swp1"), excluding({s1}));
}

TEST_F(SplitHorizon_Record, TracesAStarGRecord) {
  port("swp1").reports(g1);
  TraceCapture const trace({0, 4, 8});
  process("up");
  EXPECT_THAT(trace.texts(),
              ElementsAre("8 KelIgmpIntf::processSplitHorizon() g: 239.1.1.1 hostKey Vlan10up",
                          "4 SplitHorizon Put *,G into igmpHost", "4 SplitHorizon exclude mode"));
}

TEST_F(SplitHorizon_Record, TracesARecordThatNobodyWants) {
  port("swp1").reports(g1).include({});
  TraceCapture const trace({0, 4, 8});
  process("up");
  EXPECT_THAT(trace.texts(),
              ElementsAre("8 KelIgmpIntf::processSplitHorizon() g: 239.1.1.1 hostKey Vlan10up",
                          "4 SplitHorizon includes == 0"));
}

TEST_F(SplitHorizon_Record, MissingHostIsTracedAfterTheMergeAndNothingIsWritten) {
  port("swp1").reports(g1).exclude({s1});
  port("swp2").reports(g1).exclude({s2});
  hosts->igmpHostDel(key("up").stringvalue());
  TraceCapture const trace({0, 4, 8});
  process("up");
  EXPECT_THAT(trace.texts(),
              ElementsAre("8 KelIgmpIntf::processSplitHorizon() g: 239.1.1.1 hostKey Vlan10up",
                          "4 non Group Intf: our excludes did not match others g: 239.1.1.1",
                          "0 No igmpHost"));
  EXPECT_EQ(hosts->igmpHost(key("up").stringvalue()), nullptr);
}

TEST_F(SplitHorizon_Record, MissingHostOfAMemberPortIsTracedToo) {
  port("swp1").reports(g1).include({s1});
  hosts->igmpHostDel(key("swp1").stringvalue());
  TraceCapture const trace({0});
  process("swp1");
  EXPECT_THAT(trace.texts(), ElementsAre("0 No igmpHost"));
}

TEST_F(SplitHorizon_Record, HostOfASecondaryVlanOnAMemberPortLeavesThatPortOut) {
  port("swp1").reports(g1).include({s1});
  port("swp2").reports(g1).include({s2});
  PortKey const secondary(VlanId(11), IntfId("swp1"));
  auto const other = hosts->igmpHostIs(secondary.stringvalue());
  adapter->processSplitHorizon(secondary, g1);
  EXPECT_EQ(countsOf(other->v3group(g1)->source()->sourceIp()), (CountBySource{{s2, 1}}));
}

TEST_F(SplitHorizon_Record, IsFoundWhereverItsHostHasMovedIt) {
  for (IpAddr const group : {g1, g2, g3}) port("swp1").reports(group).include({s1});
  publish();
  host("up")->v3groupDel(g1);  // whose place the record of the last group takes
  port("swp1").reports(g3).include({s2});
  publish();
  EXPECT_EQ(record("up", g3), including({s2}));
  EXPECT_EQ(record("up", g2), including({s1}));
  EXPECT_EQ(record("up", g1), nothing);
}

TEST_F(SplitHorizon_Record, GoesToItsHostWhereverTheDirectoryHasMovedIt) {
  port("swp1").reports(g1).include({s1});
  publish();
  hosts->igmpHostDel(key("up").stringvalue());  // whose place the last host takes
  port("swp1").reports(g1).include({s2});
  publish();
  EXPECT_EQ(record("swp2"), including({s2}));
  hosts->igmpHostIs(key("up").stringvalue());
  port("swp1").reports(g1).include({s3});
  publish();
  EXPECT_EQ(record("swp2"), including({s3}));
  EXPECT_EQ(record("up"), including({s3}));
}

TEST_F(SplitHorizon_Record, IsWrittenAlsoWhereKeysHaveChangedTheirPlaces) {
  port("swp1").reports(g1).include({s1});
  publish();
  config->hostKeyDel(key("up"));  // whose place the last key takes
  proxyOn("swp3");
  port("swp1").reports(g1).include({s2});
  publish();
  EXPECT_EQ(record("swp2"), including({s2}));
  EXPECT_EQ(record("swp3"), including({s2}));
  EXPECT_EQ(record("swp1"), nothing);
  EXPECT_EQ(record("up"), nothing);
}

TEST_F(SplitHorizon_Record, WritesTheHostOfItsKeyAlone) {
  port("swp3").reports(g1).include({s1});
  process("up");
  EXPECT_EQ(record("up"), including({s1}));
  EXPECT_EQ(record("swp1"), nothing);
}

}  // namespace
}  // namespace Bridging::IgmpSnooping::Proxy::Testing
