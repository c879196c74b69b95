#include <array>
#include <random>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "proxy/ProxyAdapterSm.h"
#include "tests/TraceCapture.h"
#include "tests/proxy/SnoopedVlan.h"

namespace Bridging::IgmpSnooping::Proxy::Testing {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

class KelIgmpIntfTest : public SnoopedVlan {
 protected:
  KelIgmpIntfTest() = default;

  /// What a port includes and excludes, and whether it wants everything.
  struct Wants {
    FilterMode mode;
    bool starG;
    CountBySource include;
    CountBySource exclude;

    friend bool operator==(Wants const&, Wants const&) = default;
    friend std::ostream& operator<<(std::ostream& out, Wants const& wants) {
      return out << "mode " << wants.mode << ", "
                 << Counts{wants.starG, wants.include, wants.exclude};
    }
  };
  Wants wants(char const* name) const {
    auto const reactor = intf(name);
    return {reactor->mode(), reactor->starG(), countsOf(reactor->portInclude()),
            countsOf(reactor->portExclude())};
  }
  static Wants includes(Sources const& sources) {
    return {FilterMode::include, false, once(sources), {}};
  }
  static Wants excludes(Sources const& sources) {
    return {FilterMode::exclude, false, {}, once(sources)};
  }
  static Wants wantsEverything() { return {FilterMode::exclude, true, {}, {}}; }

  static CountBySource once(Sources const& sources) {
    CountBySource counts;
    for (IpAddr const source : sources) counts[source] = 1;
    return counts;
  }

  void unflag() const { group()->igmpHostChangedIs(false); }
};

/// A port of a group with neither reporters nor counts.
class BarePort : public KelIgmpIntfTest {
 protected:
  BarePort() {
    status->groupIs(g1)->intfIs(IntfId("swp1"));
    Kel::runActivities();
    bare = intf("swp1");
  }

  Kel::Ptr<KelIgmpIntf> bare;
};

// ---- portChanged

using KelIgmpIntf_PortChanged = BarePort;

TEST_F(KelIgmpIntf_PortChanged, AChangeOfTheCounterEvaluatesThePort) {
  TraceCapture const trace({4});
  bare->portChangedIs(5);
  EXPECT_EQ(bare->portChanged(), 5);
  EXPECT_THAT(trace.texts(), ElementsAre("4 KelIgmpIntf::processPort swp1 group 239.1.1.1 "
                                         "numMember 0"));
}

TEST_F(KelIgmpIntf_PortChanged, SettingTheSameValueDoesNothing) {
  bare->portChangedIs(5);
  TraceCapture const trace({4});
  bare->portChangedIs(5);
  bare->portChangedInc(0);
  EXPECT_EQ(bare->portChanged(), 5);
  EXPECT_THAT(trace.texts(), IsEmpty());
}

TEST_F(KelIgmpIntf_PortChanged, CounterWrapsAt16BitsAndStillEvaluates) {
  bare->portChangedIs(65535);
  TraceCapture const trace({4});
  bare->portChangedInc(1);
  EXPECT_EQ(bare->portChanged(), 0);
  EXPECT_EQ(trace.lines().size(), 1u);
  bare->portChangedInc(65535);
  EXPECT_EQ(bare->portChanged(), 65535);
  EXPECT_EQ(trace.lines().size(), 2u);
  bare->portChangedInc(3);
  EXPECT_EQ(bare->portChanged(), 2);
}

// ---- starG

using KelIgmpIntf_StarG = KelIgmpIntfTest;

TEST_F(KelIgmpIntf_StarG, SecondStarGLeavesTheCountUnchanged) {
  port("swp1").reports(g1);
  ASSERT_EQ(counts(), starG(1));
  TraceCapture const trace({4});
  intf("swp1")->starGIs(true);
  EXPECT_EQ(counts(), starG(1));
  EXPECT_THAT(trace.texts(), IsEmpty());
}

TEST_F(KelIgmpIntf_StarG, EndOfStarGIsCountedOnce) {
  port("swp1").reports(g1);
  intf("swp1")->starGIs(false);
  intf("swp1")->starGIs(false);
  EXPECT_EQ(counts(), Counts());
}

TEST_F(KelIgmpIntf_StarG, FirstAndSecondPortFlagTheGroup) {
  port("swp1").reports(g1);
  EXPECT_TRUE(changed());
  unflag();
  port("swp2").reports(g1);
  EXPECT_TRUE(changed());
}

TEST_F(KelIgmpIntf_StarG, ThirdAndFourthPortRaiseTheCountWithoutFlaggingTheGroup) {
  port("swp1").reports(g1);
  port("swp2").reports(g1);
  unflag();
  port("swp3").reports(g1);
  EXPECT_EQ(counts(), starG(3));
  EXPECT_FALSE(changed());
  port("swp4").reports(g1);
  EXPECT_EQ(counts(), starG(4));
  EXPECT_FALSE(changed());
}

TEST_F(KelIgmpIntf_StarG, DropFromFourToThreeDoesNotFlagTheGroup) {
  for (auto const* const name : {"swp1", "swp2", "swp3", "swp4"}) port(name).reports(g1);
  unflag();
  intf("swp4")->starGIs(false);
  EXPECT_EQ(counts(), starG(3));
  EXPECT_FALSE(changed());
}

TEST_F(KelIgmpIntf_StarG, DropFromThreeToTwoFlagsTheGroup) {
  for (auto const* const name : {"swp1", "swp2", "swp3"}) port(name).reports(g1);
  unflag();
  intf("swp3")->starGIs(false);
  EXPECT_EQ(counts(), starG(2));
  EXPECT_TRUE(changed());
}

TEST_F(KelIgmpIntf_StarG, DropToOneAndToNoneFlagTheGroup) {
  for (auto const* const name : {"swp1", "swp2"}) port(name).reports(g1);
  unflag();
  intf("swp2")->starGIs(false);
  EXPECT_TRUE(changed());
  unflag();
  intf("swp1")->starGIs(false);
  EXPECT_TRUE(changed());
}

TEST_F(KelIgmpIntf_StarG, FlaggingIsTracedUpToTwoPortsOnly) {
  auto const flaggings = [](auto const& change) {
    TraceCapture const trace({4});
    change();
    std::vector<std::string> told;
    for (auto const& line : trace.texts())
      if (line.find("Set host changed") != std::string::npos) told.push_back(line);
    return told;
  };
  port("swp1").reports(g1);
  EXPECT_THAT(flaggings([this] { port("swp2").reports(g1); }),
              ElementsAre("4 KelIgmpIntf::handleStarG Set host changed 2"));
  EXPECT_THAT(flaggings([this] { port("swp3").reports(g1); }), IsEmpty());
  EXPECT_THAT(flaggings([this] { port("swp4").reports(g1); }), IsEmpty());
  EXPECT_THAT(flaggings([this] { intf("swp4")->starGIs(false); }), IsEmpty());
  EXPECT_THAT(flaggings([this] { intf("swp3")->starGIs(false); }),
              ElementsAre("4 KelIgmpIntf::handleStarG Set host changed 2"));
}

TEST_F(KelIgmpIntf_StarG, HostsKeepTheirRecordsWhileTheThresholdHoldsTheFlagBack) {
  proxyOn("swp3");
  for (auto const* const name : {"swp1", "swp2"}) port(name).reports(g1);
  publish();
  host("swp3")->v3groupDel(g1);
  port("swp3").reports(g1);
  publish();
  EXPECT_EQ(record("swp3"), nothing) << "unflagged groups are not written";
}

// ---- portInclude and portExclude

/// Both collections of a port, so that what holds for one is shown for the other.
struct SourceListOperations {
  char const* name;
  SourceCount::Count (KelIgmpIntf::*inc)(IpAddr, SourceCount::Count);
  SourceCount::Count (KelIgmpIntf::*dec)(IpAddr, SourceCount::Count);
  void (KelIgmpIntf::*del)(IpAddr);
  SourceCount::Count (KelIgmpIntf::*read)(IpAddr) const;
  KelIgmpIntf::PortSources const& (KelIgmpIntf::*list)() const;
  CountBySource Counts::*global;
  std::string handler;

  friend std::ostream& operator<<(std::ostream& out, SourceListOperations const& operations) {
    return out << operations.name;
  }
};

class KelIgmpIntf_SourceList : public BarePort,
                               public ::testing::WithParamInterface<SourceListOperations> {
 protected:
  SourceCount::Count inc(IpAddr source, SourceCount::Count by) const {
    return (*bare.*GetParam().inc)(source, by);
  }
  SourceCount::Count dec(IpAddr source, SourceCount::Count by) const {
    return (*bare.*GetParam().dec)(source, by);
  }
  void del(IpAddr source) const { (*bare.*GetParam().del)(source); }
  SourceCount::Count read(IpAddr source) const { return (*bare.*GetParam().read)(source); }
  CountBySource own() const { return countsOf((*bare.*GetParam().list)()); }
  CountBySource global() const { return counts().*GetParam().global; }

  std::string entry() const {
    return "4 KelIgmpIntf::" + GetParam().handler + " swp1 group 239.1.1.1";
  }
  std::string branch(char const* which) const {
    return "4 " + GetParam().handler + " " + which + " global refcount s: 192.0.2.1";
  }
};

INSTANTIATE_TEST_SUITE_P(
    EachMode, KelIgmpIntf_SourceList,
    ::testing::Values(
        SourceListOperations{"Include", &KelIgmpIntf::portIncludeInc, &KelIgmpIntf::portIncludeDec,
                             &KelIgmpIntf::portIncludeDel, &KelIgmpIntf::portInclude,
                             &KelIgmpIntf::portInclude, &Counts::include, "handleIncludeSource"},
        SourceListOperations{"Exclude", &KelIgmpIntf::portExcludeInc, &KelIgmpIntf::portExcludeDec,
                             &KelIgmpIntf::portExcludeDel, &KelIgmpIntf::portExclude,
                             &KelIgmpIntf::portExclude, &Counts::exclude, "handleExcludeSource"}),
    [](auto const& tested) { return tested.param.name; });

TEST_P(KelIgmpIntf_SourceList, IncrementCountsThePortOnceForTheSource) {
  TraceCapture const trace({4});
  EXPECT_EQ(inc(s1, 1), 1);
  EXPECT_EQ(own(), (CountBySource{{s1, 1}}));
  EXPECT_EQ(global(), (CountBySource{{s1, 1}}));
  EXPECT_TRUE(changed());
  EXPECT_THAT(trace.texts(), ElementsAre(entry(), branch("Increment")));
}

TEST_P(KelIgmpIntf_SourceList, EveryChangeThatLeavesACountRaisesTheGlobalOneByOne) {
  EXPECT_EQ(inc(s1, 3), 3);
  EXPECT_EQ(global(), (CountBySource{{s1, 1}}));
  EXPECT_EQ(dec(s1, 1), 2);
  EXPECT_EQ(global(), (CountBySource{{s1, 2}}));
}

TEST_P(KelIgmpIntf_SourceList, DecrementToZeroKeepsTheEntryAndLowersTheGlobalCount) {
  inc(s1, 1);
  unflag();
  TraceCapture const trace({4});
  EXPECT_EQ(dec(s1, 1), 0);
  EXPECT_EQ(own(), (CountBySource{{s1, 0}}));
  EXPECT_THAT(global(), IsEmpty());
  EXPECT_TRUE(changed());
  EXPECT_THAT(trace.texts(), ElementsAre(entry(), branch("Decrement")));
}

TEST_P(KelIgmpIntf_SourceList, IncrementByNothingMakesAnEntryButIsNoChange) {
  TraceCapture const trace({4});
  EXPECT_EQ(inc(s1, 0), 0);
  EXPECT_EQ(dec(s1, 0), 0);
  EXPECT_EQ(own(), (CountBySource{{s1, 0}}));
  EXPECT_THAT(trace.texts(), IsEmpty());
  EXPECT_FALSE(changed());
}

TEST_P(KelIgmpIntf_SourceList, CountsWrapAt16Bits) {
  EXPECT_EQ(dec(s1, 1), 65535);
  EXPECT_EQ(global(), (CountBySource{{s1, 1}})) << "65535 is a count";
  EXPECT_EQ(inc(s1, 1), 0);
  EXPECT_THAT(global(), IsEmpty());
}

TEST_P(KelIgmpIntf_SourceList, ReadingAnAbsentSourceGivesZero) {
  EXPECT_EQ(read(s1), 0);
  EXPECT_THAT(own(), IsEmpty());
  inc(s1, 2);
  EXPECT_EQ(read(s1), 2);
}

TEST_P(KelIgmpIntf_SourceList, DeleteRemovesTheEntryAndLowersTheGlobalCount) {
  inc(s1, 1);
  inc(s2, 1);
  unflag();
  TraceCapture const trace({4});
  del(s1);
  EXPECT_EQ(own(), (CountBySource{{s2, 1}}));
  EXPECT_EQ(global(), (CountBySource{{s2, 1}}));
  EXPECT_TRUE(changed());
  EXPECT_THAT(trace.texts(), ElementsAre(entry(), branch("Decrement")));
}

TEST_P(KelIgmpIntf_SourceList, DeleteOfAMissingSourceStillTakesTheDecrementBranch) {
  TraceCapture const trace({4});
  del(s1);
  EXPECT_THAT(trace.texts(), ElementsAre(entry(), branch("Decrement")));
  EXPECT_TRUE(changed());
  EXPECT_EQ(counts(), Counts());
}

TEST_P(KelIgmpIntf_SourceList, EachDeleteOfAMissingSourceTakesOneOffTheOtherPorts) {
  for (int i = 0; i < 3; ++i)
    GetParam().handler == "handleIncludeSource" ? group()->recordIs()->includeInc(s1, 1)
                                                : group()->recordIs()->excludeInc(s1, 1);
  del(s1);
  EXPECT_EQ(global(), (CountBySource{{s1, 2}}));
  del(s1);
  EXPECT_EQ(global(), (CountBySource{{s1, 1}}));
  del(s1);
  del(s1);
  EXPECT_THAT(global(), IsEmpty());
}

// ---- processPort, no reporter in exclude mode

using KelIgmpIntf_ProcessPort = KelIgmpIntfTest;

TEST_F(KelIgmpIntf_ProcessPort, IncludeReportersAreMergedIntoTheirUnion) {
  port("swp1").reports(g1, r1).include({s1, s2});
  port("swp1").reports(g1, r2).include({s2, s3});
  EXPECT_EQ(wants("swp1"), includes({s1, s2, s3}));
  EXPECT_EQ(counts(), (Counts{0, {{s1, 1}, {s2, 1}, {s3, 1}}, {}}));
}

TEST_F(KelIgmpIntf_ProcessPort, EachPortCountsOncePerSource) {
  port("swp1").reports(g1, r1).include({s1});
  port("swp1").reports(g1, r2).include({s1});
  port("swp2").reports(g1, r3).include({s1});
  EXPECT_EQ(counts(), (Counts{0, {{s1, 2}}, {}}));
}

TEST_F(KelIgmpIntf_ProcessPort, OldIncludesGo) {
  port("swp1").reports(g1).include({s1, s2}).include({s2, s3});
  EXPECT_EQ(wants("swp1"), includes({s2, s3}));
  EXPECT_EQ(counts(), (Counts{0, {{s2, 1}, {s3, 1}}, {}}));
}

TEST_F(KelIgmpIntf_ProcessPort, IncludeModeWithoutSourcesWantsNothing) {
  port("swp1").reports(g1).include({});
  EXPECT_EQ(wants("swp1"), includes({}));
  EXPECT_EQ(counts(), Counts());
}

TEST_F(KelIgmpIntf_ProcessPort, PortWithoutReportersWantsNothing) {
  port("swp1").reports(g1);
  port("swp1").loses(g1);
  intf("swp1")->portChangedInc(1);
  EXPECT_EQ(wants("swp1"), includes({}));
  EXPECT_EQ(counts(), Counts());
}

TEST_F(KelIgmpIntf_ProcessPort, PortWhoseReportersAllIncludeKeepsNoExclude) {
  auto const first = port("swp1").reports(g1, r1).exclude({s1, s2});
  auto const second = port("swp1").reports(g1, r2).exclude({s1, s2});
  ASSERT_EQ(wants("swp1"), excludes({s1, s2}));
  first.include({s3});
  second.include({s1});
  EXPECT_EQ(wants("swp1"), includes({s1, s3}));
  EXPECT_EQ(counts(), (Counts{0, {{s1, 1}, {s3, 1}}, {}}));
}

TEST_F(KelIgmpIntf_ProcessPort, AnEntryLeftAtZeroIsCountedAgain) {
  auto const reporter = port("swp1").reports(g1).include({s1});
  intf("swp1")->portIncludeDec(s1, 1);
  ASSERT_EQ(counts(), Counts());
  reporter.include({s1, s2});
  EXPECT_EQ(wants("swp1"), includes({s1, s2}));
  EXPECT_EQ(counts(), (Counts{0, {{s1, 1}, {s2, 1}}, {}}));
}

TEST_F(KelIgmpIntf_ProcessPort, AddIncludeIsTracedForEverySourceButCountedForNewOnes) {
  auto const reporter = port("swp1").reports(g1).include({s1});
  TraceCapture const trace({4});
  intf("swp1")->portChangedInc(1);
  EXPECT_THAT(trace.texts(),
              ElementsAre("4 KelIgmpIntf::processPort swp1 group 239.1.1.1 numMember 1",
                          "4 Add include 192.0.2.1"));
  EXPECT_EQ(counts(), (Counts{0, {{s1, 1}}, {}}));
}

// ---- processPort, some reporter in exclude mode

TEST_F(KelIgmpIntf_ProcessPort, ExcludeReportersAreMergedIntoWhatAllOfThemExclude) {
  port("swp1").reports(g1, r1).exclude({s1, s2});
  port("swp1").reports(g1, r2).exclude({s2, s3});
  EXPECT_EQ(wants("swp1"), excludes({s2}));
  EXPECT_EQ(counts(), (Counts{0, {}, {{s2, 1}}}));
}

TEST_F(KelIgmpIntf_ProcessPort, NothingExcludedByEveryReporterIsStarG) {
  port("swp1").reports(g1, r1).exclude({s1});
  port("swp1").reports(g1, r2).exclude({s2});
  EXPECT_EQ(wants("swp1"), wantsEverything());
  EXPECT_EQ(counts(), starG(1));
}

TEST_F(KelIgmpIntf_ProcessPort, ReporterThatWantsEverythingMakesThePortStarG) {
  port("swp1").reports(g1, r1).exclude({s1});
  port("swp1").reports(g1, r2);
  intf("swp1")->portChangedInc(1);
  EXPECT_EQ(wants("swp1"), wantsEverything());
  EXPECT_EQ(counts(), starG(1));
}

TEST_F(KelIgmpIntf_ProcessPort, ExcludedSourceEndsStarG) {
  port("swp1").reports(g1).exclude({s1});
  EXPECT_EQ(wants("swp1"), excludes({s1}));
  EXPECT_EQ(counts(), (Counts{0, {}, {{s1, 1}}}));
}

TEST_F(KelIgmpIntf_ProcessPort, OneIncludeReporterRemovesItsSourcesFromExclude) {
  auto const excluding = port("swp1").reports(g1, r1).exclude({s1, s2});
  ASSERT_EQ(wants("swp1"), excludes({s1, s2}));
  port("swp1").reports(g1, r2).include({s1});
  EXPECT_EQ(wants("swp1"), wantsEverything()) << "no source is excluded by both reporters";
  EXPECT_EQ(counts(), starG(1));
}

TEST_F(KelIgmpIntf_ProcessPort, OneIncludeReporterAmongExcludeReportersLeavesTheModeExclude) {
  port("swp1").reports(g1, r1).exclude({s1});
  port("swp1").reports(g1, r2).include({s1, s2});
  EXPECT_EQ(intf("swp1")->mode(), FilterMode::exclude);
  EXPECT_TRUE(intf("swp1")->portInclude().empty());
}

TEST_F(KelIgmpIntf_ProcessPort, ExcludeModeDropsAllIncludes) {
  port("swp1").reports(g1).include({s1, s2}).exclude({s3});
  EXPECT_EQ(wants("swp1"), excludes({s3}));
  EXPECT_EQ(counts(), (Counts{0, {}, {{s3, 1}}}));
}

TEST_F(KelIgmpIntf_ProcessPort, SourcesThatAreNotExcludedAnyMoreGo) {
  port("swp1").reports(g1).exclude({s1, s2}).exclude({s2, s3});
  EXPECT_EQ(wants("swp1"), excludes({s2, s3}));
  EXPECT_EQ(counts(), (Counts{0, {}, {{s2, 1}, {s3, 1}}}));
}

TEST_F(KelIgmpIntf_ProcessPort, EachPortCountsOncePerExcludedSource) {
  port("swp1").reports(g1, r1).exclude({s1});
  port("swp1").reports(g1, r2).exclude({s1});
  intf("swp1")->portChangedInc(1);
  port("swp2").reports(g1, r3).exclude({s1});
  EXPECT_EQ(counts(), (Counts{0, {}, {{s1, 2}}}));
}

TEST_F(KelIgmpIntf_ProcessPort, AnExcludeEntryLeftAtZeroIsCountedAgain) {
  auto const reporter = port("swp1").reports(g1).exclude({s1});
  intf("swp1")->portExcludeDec(s1, 1);
  ASSERT_EQ(counts(), Counts());
  reporter.exclude({s1, s2});
  EXPECT_EQ(wants("swp1"), excludes({s1, s2}));
  EXPECT_EQ(counts(), (Counts{0, {}, {{s1, 1}, {s2, 1}}}));
}

TEST_F(KelIgmpIntf_ProcessPort, ExcludeEntryAtZeroThatNobodyExcludesIsDeleted) {
  auto const reporter = port("swp1").reports(g1).exclude({});
  intf("swp1")->portExcludeInc(s1, 0);
  intf("swp1")->portChangedInc(1);
  EXPECT_EQ(wants("swp1"), wantsEverything());
}

TEST_F(KelIgmpIntf_ProcessPort, AnEvaluationThatFindsNothingNewLeavesTheGroupUnflagged) {
  port("swp1").reports(g1).exclude({s1});
  port("swp2").reports(g1).include({s1});
  unflag();
  intf("swp1")->portChangedInc(1);
  intf("swp2")->portChangedInc(1);
  EXPECT_FALSE(changed());
}

TEST_F(KelIgmpIntf_ProcessPort, MembershipsAreReadAsTheyAreNotAsTheyWereReported) {
  port("swp1").reports(g1).include({s1});
  auto const membership = snooped("swp1");
  membership->sourceIs(s2);
  intf("swp1")->portChangedInc(1);
  EXPECT_EQ(wants("swp1"), includes({s1, s2}));
}

TEST_F(KelIgmpIntf_ProcessPort, AReportOfManySourcesIsCountedInFull) {
  Sources many;
  for (std::uint32_t i = 0; i < 365; ++i) many.insert(IpAddr(s1.value() + i));
  auto const reporter = port("swp1").reports(g1).include(many);
  EXPECT_EQ(wants("swp1"), includes(many));
  EXPECT_EQ(counts().include, once(many));
  reporter.exclude(many);
  EXPECT_EQ(wants("swp1"), excludes(many));
  EXPECT_EQ(counts().exclude, once(many));
  reporter.include({});
  EXPECT_EQ(counts(), Counts());
}

TEST_F(KelIgmpIntf_ProcessPort, TracesTheIncludeCaseInItsOrder) {
  port("swp1").reports(g1).exclude({s1});
  intf("swp1")->portIncludeInc(s2, 1);
  auto const membership = snooped("swp1");
  membership->filterModeIs(FilterMode::include);
  membership->sourceDel(s1);
  membership->sourceIs(s3);
  intf("swp1")->starGIs(true);
  TraceCapture const trace({4});
  intf("swp1")->portChangedInc(1);
  EXPECT_THAT(trace.texts(),
              ElementsAre("4 KelIgmpIntf::processPort swp1 group 239.1.1.1 numMember 1",
                          "4 KelIgmpIntf::handleStarG swp1 group 239.1.1.1 global starGCount 1",
                          "4 KelIgmpIntf::handleStarG Decrement global *,G refcount",
                          "4 KelIgmpIntf::handleStarG Set host changed 0",
                          "4 Include case, delete any exclude sources in port 192.0.2.1",
                          "4 KelIgmpIntf::handleExcludeSource swp1 group 239.1.1.1",
                          "4 handleExcludeSource Decrement global refcount s: 192.0.2.1",
                          "4 Delete old include 192.0.2.2",
                          "4 KelIgmpIntf::handleIncludeSource swp1 group 239.1.1.1",
                          "4 handleIncludeSource Decrement global refcount s: 192.0.2.2",
                          "4 Add include 192.0.2.3",
                          "4 KelIgmpIntf::handleIncludeSource swp1 group 239.1.1.1",
                          "4 handleIncludeSource Increment global refcount s: 192.0.2.3"));
}

TEST_F(KelIgmpIntf_ProcessPort, TracesTheExcludeCaseInItsOrder) {
  port("swp1").reports(g1, r1).exclude({s1, s2});
  port("swp1").reports(g1, r2).exclude({s1});
  port("swp1").reports(g1, r3);
  intf("swp1")->starGIs(false);
  intf("swp1")->portIncludeInc(s4, 1);
  intf("swp1")->portExcludeInc(s2, 1);
  auto const membership = snooped("swp1", r3);
  membership->filterModeIs(FilterMode::include);
  membership->sourceIs(s3);
  snooped("swp1", r2)->sourceDel(s1);
  TraceCapture const trace({4});
  intf("swp1")->portChangedInc(1);
  EXPECT_THAT(
      trace.texts(),
      ElementsAre("4 KelIgmpIntf::processPort swp1 group 239.1.1.1 numMember 3",
                  "4 processPort in exclude mode: 10.0.0.1",
                  "4 processPort in exclude mode: 10.0.0.2",
                  "4 Start off by deleting include source 192.0.2.4",
                  "4 KelIgmpIntf::handleIncludeSource swp1 group 239.1.1.1",
                  "4 handleIncludeSource Decrement global refcount s: 192.0.2.4",
                  "4 Some reporter does not want to exclude this source 192.0.2.1 count is 1",
                  "4 Some reporter does not want to exclude this source 192.0.2.2 count is 1",
                  "4 Deleting include source from exclude list 192.0.2.3",
                  "4 KelIgmpIntf::handleExcludeSource swp1 group 239.1.1.1",
                  "4 handleExcludeSource Decrement global refcount s: 192.0.2.3",
                  "4 Deleting exclude list source (!= numMember) 192.0.2.1",
                  "4 KelIgmpIntf::handleExcludeSource swp1 group 239.1.1.1",
                  "4 handleExcludeSource Decrement global refcount s: 192.0.2.1",
                  "4 Deleting exclude list source (!= numMember) 192.0.2.2",
                  "4 KelIgmpIntf::handleExcludeSource swp1 group 239.1.1.1",
                  "4 handleExcludeSource Decrement global refcount s: 192.0.2.2",
                  "4 processPort: starGThere is true swp1 group 239.1.1.1",
                  "4 KelIgmpIntf::handleStarG swp1 group 239.1.1.1 global starGCount 0",
                  "4 KelIgmpIntf::handleStarG Increment global *,G refcount",
                  "4 KelIgmpIntf::handleStarG Set host changed 1"));
}

TEST_F(KelIgmpIntf_ProcessPort, TracesSourcesThatAllReportersExclude) {
  port("swp1").reports(g1).exclude({s1});
  TraceCapture const trace({4});
  intf("swp1")->portChangedInc(1);
  EXPECT_THAT(trace.texts(),
              ElementsAre("4 KelIgmpIntf::processPort swp1 group 239.1.1.1 numMember 1",
                          "4 processPort in exclude mode: 10.0.0.1",
                          "4 All reporters want to exclude this source 192.0.2.1"));
}

TEST_F(KelIgmpIntf_ProcessPort, StarGIsTracedAlsoWhereThePortHasItAlready) {
  port("swp1").reports(g1);
  TraceCapture const trace({4});
  intf("swp1")->portChangedInc(1);
  EXPECT_THAT(trace.texts(),
              ElementsAre("4 KelIgmpIntf::processPort swp1 group 239.1.1.1 numMember 1",
                          "4 processPort in exclude mode: 10.0.0.1",
                          "4 processPort: starGThere is true swp1 group 239.1.1.1"));
}

TEST_F(KelIgmpIntf_ProcessPort, EveryModeButZeroIsInclude) {
  proxyOn("up");
  for (int const value : {2, 255}) {
    port("swp1").reports(g1).exclude({});
    snooped("swp1")->filterModeIs(static_cast<FilterMode>(value));
    snooped("swp1")->sourceIs(s1);
    publish();
    EXPECT_EQ(wants("swp1"), includes({s1})) << value;
    EXPECT_EQ(record("up"), including({s1})) << value;
  }
}

TEST_F(KelIgmpIntf_ProcessPort, CountsANewExcludeBeforeItEndsStarG) {
  port("swp1").reports(g1);
  TraceCapture const trace({4});
  auto const membership = snooped("swp1");
  membership->sourceIs(s1);
  Kel::runActivities();
  EXPECT_THAT(trace.texts(),
              ElementsAre("4 KelIgmpIntf::processPort swp1 group 239.1.1.1 numMember 1",
                          "4 processPort in exclude mode: 10.0.0.1",
                          "4 All reporters want to exclude this source 192.0.2.1",
                          "4 KelIgmpIntf::handleExcludeSource swp1 group 239.1.1.1",
                          "4 handleExcludeSource Increment global refcount s: 192.0.2.1",
                          "4 KelIgmpIntf::handleStarG swp1 group 239.1.1.1 global starGCount 1",
                          "4 KelIgmpIntf::handleStarG Decrement global *,G refcount",
                          "4 KelIgmpIntf::handleStarG Set host changed 0"));
}

// ---- repeated evaluations, which may be skipped while nobody traces them

/// With the traces of an evaluation off and on: its effects are the same.
class KelIgmpIntf_EvaluatedAgain : public KelIgmpIntfTest,
                                   public ::testing::WithParamInterface<bool> {
 protected:
  KelIgmpIntf_EvaluatedAgain() {
    if (GetParam()) trace.emplace(std::initializer_list<int>{4});
  }

  void evaluate(char const* name, int times) const {
    for (int i = 0; i < times; ++i) intf(name)->portChangedInc(1);
  }

  /// Excluded by one reporter of swp1 and included by the other, and excluded by all of swp2 to
  /// swp5.
  void mixedPortAmongExcludingOnes() const {
    for (auto const* const name : {"swp2", "swp3", "swp4", "swp5"})
      port(name).reports(g1).exclude({s1});
    port("swp1").reports(g1, r1).exclude({s1});
    port("swp1").reports(g1, r2).include({s1});
  }

  std::optional<TraceCapture> trace;
};

INSTANTIATE_TEST_SUITE_P(Traced, KelIgmpIntf_EvaluatedAgain, ::testing::Bool(),
                         [](auto const& tested) { return tested.param ? "On" : "Off"; });

TEST_P(KelIgmpIntf_EvaluatedAgain, MixedReportersTakeOneOffTheOthersCountEachTime) {
  mixedPortAmongExcludingOnes();
  group()->recordIs()->excludeIs(s1, 4);
  evaluate("swp1", 1);
  EXPECT_EQ(counts().exclude, (CountBySource{{s1, 3}}));
  evaluate("swp1", 2);
  EXPECT_EQ(counts().exclude, (CountBySource{{s1, 1}}));
  evaluate("swp1", 3);
  EXPECT_EQ(counts().exclude, CountBySource());
}

TEST_P(KelIgmpIntf_EvaluatedAgain, EachChangeOfAMixedPortTakesOneOffTheOthersCount) {
  mixedPortAmongExcludingOnes();
  // Of swp1 and the four others: r1's s1 counted it, r2's mode took that back because r2 did not
  // exclude it, r2's s1 and every change since took one off the others.
  EXPECT_EQ(counts().exclude, (CountBySource{{s1, 3}}));
  port("swp1").reports(g1, r1).exclude({s1, s2});
  EXPECT_EQ(counts().exclude, (CountBySource{{s1, 2}}));
}

TEST_P(KelIgmpIntf_EvaluatedAgain, MixedReportersFlagTheGroupEachTime) {
  port("swp1").reports(g1, r1).exclude({s1});
  port("swp1").reports(g1, r2).include({s2});
  for (int i = 0; i < 3; ++i) {
    unflag();
    evaluate("swp1", 1);
    EXPECT_TRUE(changed());
  }
}

TEST_P(KelIgmpIntf_EvaluatedAgain, ReportersOfOneModeFlagTheGroupOnce) {
  port("swp1").reports(g1).exclude({s1});
  port("swp2").reports(g1).include({s1});
  port("swp3").reports(g1);
  unflag();
  for (auto const* const name : {"swp1", "swp2", "swp3"}) evaluate(name, 2);
  EXPECT_EQ(changed(), false);
}

TEST_P(KelIgmpIntf_EvaluatedAgain, ExcludesOfOtherPortsThatCameLaterAreDecrementedToo) {
  port("swp1").reports(g1, r1).exclude({s1});
  port("swp1").reports(g1, r2).include({s2});
  evaluate("swp1", 2);
  for (auto const* const name : {"swp2", "swp3"}) port(name).reports(g1).exclude({s2});
  EXPECT_EQ(counts().exclude, (CountBySource{{s2, 2}}));
  evaluate("swp1", 1);
  EXPECT_EQ(counts().exclude, (CountBySource{{s2, 1}}));
}

TEST_P(KelIgmpIntf_EvaluatedAgain, WhatWasSetByHandIsPutRightAgain) {
  port("swp1").reports(g1).exclude({s1});
  auto const reactor = intf("swp1");
  evaluate("swp1", 1);
  reactor->starGIs(true);
  evaluate("swp1", 1);
  EXPECT_EQ(wants("swp1"), excludes({s1}));
  reactor->modeIs(FilterMode::include);
  evaluate("swp1", 1);
  EXPECT_EQ(wants("swp1"), excludes({s1}));
  reactor->portIncludeInc(s2, 1);
  evaluate("swp1", 1);
  EXPECT_EQ(wants("swp1"), excludes({s1}));
  reactor->portExcludeDel(s1);
  evaluate("swp1", 1);
  EXPECT_EQ(wants("swp1"), excludes({s1}));
  reactor->portExcludeInc(s3, 0);
  evaluate("swp1", 1);
  EXPECT_EQ(wants("swp1"), excludes({s1}));
  EXPECT_EQ(counts(), (Counts{0, {}, {{s1, 1}}}));
}

TEST_P(KelIgmpIntf_EvaluatedAgain, SourceDeletedByHandIsCountedIntoARenewedRecord) {
  port("swp1").reports(g1).include({s1});
  evaluate("swp1", 1);
  group()->recordDel();
  intf("swp1")->portIncludeDel(s1);
  evaluate("swp1", 1);
  EXPECT_EQ(wants("swp1"), includes({s1}));
  EXPECT_EQ(counts(), (Counts{0, {{s1, 1}}, {}}));
}

TEST_P(KelIgmpIntf_EvaluatedAgain, ReporterThatWentIsForgotten) {
  port("swp1").reports(g1, r1).include({s1});
  port("swp1").reports(g1, r2).include({s2});
  evaluate("swp1", 2);
  port("swp1").loses(g1, r2);
  evaluate("swp1", 1);
  EXPECT_EQ(wants("swp1"), includes({s1}));
}

TEST_F(KelIgmpIntf_ProcessPort, EffectsOfARandomHistoryDoNotDependOnTheTraces) {
  auto const history = [this](bool traced) {
    std::optional<TraceCapture> trace;
    if (traced) trace.emplace(std::initializer_list<int>{4});
    status->groupDel(g1);
    std::mt19937 random(20240817);
    auto const any = [&random](auto const& choices) {
      return choices[random() % std::size(choices)];
    };
    std::array const ports{"swp1", "swp2", "swp3"};
    std::array const reporters{r1, r2};
    std::array const sources{s1, s2, s3};
    std::vector<std::pair<Counts, bool>> seen;
    for (int step = 0; step < 3000; ++step) {
      auto const name = any(ports);
      port(name).reports(g1, any(reporters));
      auto const membership = status->group(g1)->intf(IntfId(name))->membership(any(reporters));
      switch (random() % 6) {
        case 0:
          if (membership)
            membership->filterModeIs(random() % 3 != 0 ? FilterMode::exclude : FilterMode::include);
          break;
        case 1:
          if (membership) membership->sourceDel(any(sources));
          break;
        case 2:
          intf(name)->portChangedInc(static_cast<std::uint16_t>(random() % 3));
          break;
        case 3:
          unflag();
          break;
        default:
          if (membership) membership->sourceIs(any(sources));
          break;
      }
      if (random() % 2 == 0) Kel::runActivities();
      seen.emplace_back(counts(), changed());
    }
    return seen;
  };
  auto const untraced = history(false);
  EXPECT_TRUE(untraced == history(true));
}

// ---- subtract

class KelIgmpIntf_Subtract : public KelIgmpIntfTest {
 protected:
  /// What the other ports want, as seen from one of them.
  Counts othersThan(char const* name) const {
    auto const result = SourceCount::SourceCountIs();
    intf(name)->subtract(*result);
    return countsOf(*result);
  }

  Counts tracedOthersThan(char const* name) {
    trace.clear();
    return othersThan(name);
  }

  TraceCapture trace{4, 8, 9};
};

TEST_F(KelIgmpIntf_Subtract, AnotherPortWithStarGHidesAllElse) {
  port("swp1").reports(g1).exclude({s1});
  port("swp2").reports(g1).include({s2});
  port("swp3").reports(g1);
  EXPECT_EQ(tracedOthersThan("swp1"), starG(1));
  EXPECT_THAT(trace.texts(), ElementsAre("9 KelIgmpIntf::subtract on intf swp1",
                                         "4 subtract: swp1my starG is 0 global starG is 1",
                                         "4 subtract: some other port(s) want *,G  g: 239.1.1.1"));
}

TEST_F(KelIgmpIntf_Subtract, OwnStarGIsTakenOff) {
  port("swp1").reports(g1);
  port("swp2").reports(g1).include({s2});
  EXPECT_EQ(tracedOthersThan("swp1"), (Counts{0, {{s2, 1}}, {}}));
  EXPECT_THAT(trace.texts(), Contains("4 subtract: swp1my starG is 1 global starG is 1"));
}

TEST_F(KelIgmpIntf_Subtract, OwnStarGBesidesAnotherOneLeavesStarG) {
  port("swp1").reports(g1);
  port("swp2").reports(g1);
  EXPECT_EQ(tracedOthersThan("swp1"), starG(1));
  EXPECT_THAT(trace.texts(), Contains("4 subtract: swp1my starG is 1 global starG is 2"));
}

TEST_F(KelIgmpIntf_Subtract, ManyStarGPortsGiveACountOfOne) {
  for (auto const* const name : {"swp1", "swp2", "swp3", "swp4"}) port(name).reports(g1);
  EXPECT_EQ(othersThan("swp1"), starG(1));
}

TEST_F(KelIgmpIntf_Subtract, OnlyMemberThatIncludesOrWantsEverythingLeavesNothing) {
  auto const reporter = port("swp1").reports(g1);
  EXPECT_EQ(othersThan("swp1"), Counts());
  reporter.include({s1});
  EXPECT_EQ(othersThan("swp1"), Counts());
}

TEST_F(KelIgmpIntf_Subtract, OnlyMemberThatExcludesKeepsItsOwnExcludes) {
  port("swp1").reports(g1).exclude({s1, s2});
  EXPECT_EQ(othersThan("swp1"), (Counts{0, {}, {{s1, 1}, {s2, 1}}}));
}

TEST_F(KelIgmpIntf_Subtract, SourceThatAllPortsExcludeStaysExcluded) {
  for (auto const* const name : {"swp1", "swp2"}) port(name).reports(g1).exclude({s1});
  EXPECT_EQ(tracedOthersThan("swp1"), (Counts{0, {}, {{s1, 1}}}));
  EXPECT_THAT(trace.texts(),
              ElementsAre("9 KelIgmpIntf::subtract on intf swp1",
                          "4 subtract: swp1my starG is 0 global starG is 0",
                          "4 subtract: all ports want to exclude s: 192.0.2.1 g: 239.1.1.1"));
}

TEST_F(KelIgmpIntf_Subtract, SourceThatAllPortsButOursExcludeStaysExcluded) {
  port("swp1").reports(g1).include({s2});
  for (auto const* const name : {"swp2", "swp3"}) port(name).reports(g1).exclude({s1});
  EXPECT_EQ(tracedOthersThan("swp1"), (Counts{0, {}, {{s1, 1}}}));
  EXPECT_THAT(trace.texts(),
              ElementsAre("9 KelIgmpIntf::subtract on intf swp1",
                          "4 subtract: swp1my starG is 0 global starG is 0",
                          "4 subtract: all ports except ours want to exclude s: 192.0.2.1 g: "
                          "239.1.1.1",
                          "8 subtract: portInclude has 192.0.2.2 count 1 global count 1"));
}

TEST_F(KelIgmpIntf_Subtract, OwnExcludeSharedWithSomeButNotAllOthersIsWanted) {
  for (auto const* const name : {"swp1", "swp2"}) port(name).reports(g1).exclude({s1});
  port("swp3").reports(g1).include({s2});
  EXPECT_EQ(tracedOthersThan("swp1"), (Counts{1, {{s2, 1}}, {}}));
  EXPECT_THAT(trace.texts(),
              ElementsAre("9 KelIgmpIntf::subtract on intf swp1",
                          "4 subtract: swp1my starG is 0 global starG is 0",
                          "4 subtract: some port wants s: 192.0.2.1 g: 239.1.1.1 count 2",
                          "4 subtract: put it in include and knock it off from exclude: 192.0.2.2 "
                          "g: 239.1.1.1",
                          "4 subtract: our excludes did not match others g: 239.1.1.1"));
}

TEST_F(KelIgmpIntf_Subtract, OwnExcludeThatNobodyElseHasSaysNothingOfTheOthers) {
  port("swp1").reports(g1).exclude({s1});
  port("swp2").reports(g1).include({s2});
  EXPECT_EQ(tracedOthersThan("swp1"), (Counts{0, {{s2, 1}}, {}}));
  EXPECT_THAT(trace.texts(),
              Contains("4 subtract: some port wants s: 192.0.2.1 g: 239.1.1.1 count 1"));
}

TEST_F(KelIgmpIntf_Subtract, ExcludeOfSomeOthersOnlyIsTakenForStarG) {
  port("swp1").reports(g1).include({s3});
  port("swp2").reports(g1).exclude({s1});
  port("swp3").reports(g1).include({s2});
  EXPECT_EQ(tracedOthersThan("swp1"), (Counts{1, {{s2, 1}}, {}}));
  EXPECT_THAT(trace.texts(),
              ElementsAre("9 KelIgmpIntf::subtract on intf swp1",
                          "4 subtract: swp1my starG is 0 global starG is 0",
                          "4 subtract: some port does not want to exclude s: 192.0.2.1 g: "
                          "239.1.1.1",
                          "8 subtract: portInclude has 192.0.2.3 count 1 global count 1",
                          "4 subtract: put it in include and knock it off from exclude: 192.0.2.2 "
                          "g: 239.1.1.1",
                          "4 subtract: our excludes did not match others g: 239.1.1.1"));
}

TEST_F(KelIgmpIntf_Subtract, OthersWithoutACommonExcludeWantEverything) {
  port("swp1").reports(g1).include({s3});
  port("swp2").reports(g1).exclude({s1});
  port("swp3").reports(g1).exclude({s2});
  EXPECT_EQ(othersThan("swp1"), starG(1));
}

TEST_F(KelIgmpIntf_Subtract, OneCommonExcludeIsEnoughToKeepTheOthersFromStarG) {
  port("swp1").reports(g1).include({s3});
  port("swp2").reports(g1).exclude({s1, s2});
  port("swp3").reports(g1).exclude({s1});
  EXPECT_EQ(tracedOthersThan("swp1"), (Counts{0, {}, {{s1, 1}}}));
  EXPECT_THAT(trace.texts(),
              Not(Contains("4 subtract: our excludes did not match others g: 239.1.1.1")));
}

TEST_F(KelIgmpIntf_Subtract, ExcludeCountLeftAtZeroIsNobodysExclude) {
  port("swp1").reports(g1).include({s1});
  port("swp2").reports(g1).include({s1});
  port("swp3").reports(g1).include({});
  group()->recordIs()->excludeIs(s4, 0);
  EXPECT_EQ(othersThan("swp1"), (Counts{0, {{s1, 1}}, {}}));
}

TEST_F(KelIgmpIntf_Subtract, IncludesOfTheOthersAreCountedOnceEach) {
  port("swp1").reports(g1).include({s1, s2});
  port("swp2").reports(g1).include({s1, s3});
  port("swp3").reports(g1).include({s1});
  EXPECT_EQ(tracedOthersThan("swp1"), (Counts{0, {{s1, 1}, {s3, 1}}, {}}));
  EXPECT_THAT(
      trace.texts(),
      ElementsAre(
          "9 KelIgmpIntf::subtract on intf swp1", "4 subtract: swp1my starG is 0 global starG is 0",
          "8 subtract: portInclude has 192.0.2.1 count 1 global count 3",
          "4 subtract: put it in include and knock it off from exclude: 192.0.2.1 g: 239.1.1.1",
          "8 subtract: portInclude has 192.0.2.2 count 1 global count 1",
          "4 subtract: put it in include and knock it off from exclude: 192.0.2.3 g: 239.1.1.1"));
}

TEST_F(KelIgmpIntf_Subtract, IncludedSourceIsKnockedOffTheExcludes) {
  port("swp1").reports(g1).include({});
  port("swp2").reports(g1).exclude({s1});
  // What a port that went has left behind.
  group()->recordIs()->includeIs(s1, 1);
  EXPECT_EQ(othersThan("swp1"), (Counts{0, {{s1, 1}}, {}}));
}

TEST_F(KelIgmpIntf_Subtract, KnockedOffExcludesCountAsNoneInCommon) {
  port("swp1").reports(g1).include({});
  port("swp2").reports(g1).exclude({s1, s2});
  port("swp3").reports(g1).exclude({s1});
  group()->recordIs()->includeIs(s1, 1);
  EXPECT_EQ(othersThan("swp1"), (Counts{1, {{s1, 1}}, {}}));
}

TEST_F(KelIgmpIntf_Subtract, ChangesNeitherTheGroupNorThePort) {
  port("swp1").reports(g1).include({s1});
  port("swp2").reports(g1).exclude({s2});
  unflag();
  Counts const before = counts();
  othersThan("swp1");
  EXPECT_EQ(counts(), before);
  EXPECT_EQ(wants("swp1"), includes({s1}));
  EXPECT_FALSE(changed());
}

// ---- callbacks

TEST_F(KelIgmpIntfTest, InactivePortHearsNoMembership) {
  port("swp1").reports(g1);
  intf("swp1")->hasNotificationActiveIs(false);
  status->group(g1)->intf(IntfId("swp1"))->membershipIs(r2);
  intf("swp1")->onMembership(r2);
  EXPECT_EQ(intf("swp1")->membership(r2), nullptr);
}

TEST_F(KelIgmpIntfTest, InactivePortsReportersAreNotHeardEither) {
  auto const reporter = port("swp1").reports(g1);
  intf("swp1")->hasNotificationActiveIs(false);
  reporter.include({s1});
  EXPECT_EQ(counts(), starG(1));
  intf("swp1")->hasNotificationActiveIs(true);
  reporter.include({s1, s2});
  EXPECT_EQ(counts(), (Counts{0, {{s1, 1}, {s2, 1}}, {}}));
}

TEST_F(KelIgmpIntfTest, NoCallbackOfARemovedPortOrItsReportersReachesAHandler) {
  auto const reporter = port("swp1").reports(g1);
  auto const snooped = status->group(g1)->intf(IntfId("swp1"));
  auto const held = intf("swp1");
  auto const heldMembership = held->membership(r1);
  port("swp1").isTakenOutOf(g1);
  reporter.include({s1});
  snooped->membershipIs(r2);
  Kel::runActivities();
  EXPECT_EQ(held->membership(r2), nullptr);
  EXPECT_EQ(held->portChanged(), 0);
  EXPECT_TRUE(heldMembership->isZombie());
}

TEST_F(KelIgmpIntfTest, MembershipReactorIsMadeOnce) {
  port("swp1").reports(g1);
  auto const reactor = intf("swp1")->membership(r1);
  EXPECT_EQ(intf("swp1")->membershipIs(reactor->notifier()), reactor);
  EXPECT_EQ(group()->igmpIntfIs(intf("swp1")->notifier()), intf("swp1"));
  EXPECT_EQ(reactor->addr(), r1);
}

}  // namespace
}  // namespace Bridging::IgmpSnooping::Proxy::Testing
