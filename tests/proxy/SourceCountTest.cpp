#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "proxy/SourceCount.h"
#include "tests/proxy/SnoopedVlan.h"

namespace Bridging::IgmpSnooping::Proxy::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Both modes, so that what holds for one is shown for the other.
class RefCount : public ::testing::TestWithParam<FilterMode> {
 protected:
  CountBySource counted() const {
    return mode == FilterMode::exclude ? countsOf(counts->exclude()) : countsOf(counts->include());
  }
  CountBySource other() const {
    return mode == FilterMode::exclude ? countsOf(counts->include()) : countsOf(counts->exclude());
  }

  FilterMode mode = GetParam();
  Kel::Ptr<SourceCount> counts = SourceCount::SourceCountIs();
};

INSTANTIATE_TEST_SUITE_P(EachMode, RefCount,
                         ::testing::Values(FilterMode::exclude, FilterMode::include),
                         [](auto const& tested) {
                           return tested.param == FilterMode::exclude ? "Exclude" : "Include";
                         });

TEST_P(RefCount, FirstIncrementMakesTheEntry) {
  incRefCount(counts, mode, s1);
  EXPECT_EQ(counted(), (CountBySource{{s1, 1}}));
  EXPECT_THAT(other(), IsEmpty());
}

TEST_P(RefCount, IncrementsCountEachSourceByItself) {
  incRefCount(counts, mode, s1);
  incRefCount(counts, mode, s1);
  incRefCount(counts, mode, s2);
  EXPECT_EQ(counted(), (CountBySource{{s1, 2}, {s2, 1}}));
}

TEST_P(RefCount, DecrementAtOneRemovesTheEntry) {
  incRefCount(counts, mode, s1);
  decRefCount(counts, mode, s1);
  EXPECT_THAT(counted(), IsEmpty());
}

TEST_P(RefCount, DecrementOfAnAbsentSourceChangesNothing) {
  incRefCount(counts, mode, s1);
  auto const before = Kel::mutationCount();
  decRefCount(counts, mode, s2);
  EXPECT_EQ(counted(), (CountBySource{{s1, 1}}));
  EXPECT_EQ(Kel::mutationCount(), before);
}

TEST_P(RefCount, DecrementOfFiveLeavesFour) {
  for (int i = 0; i < 5; ++i) incRefCount(counts, mode, s1);
  decRefCount(counts, mode, s1);
  EXPECT_EQ(counted(), (CountBySource{{s1, 4}}));
}

TEST_P(RefCount, DecrementOfTwoLeavesOne) {
  incRefCount(counts, mode, s1);
  incRefCount(counts, mode, s1);
  decRefCount(counts, mode, s1);
  EXPECT_EQ(counted(), (CountBySource{{s1, 1}}));
}

TEST_P(RefCount, OneModesCountIsLeftAloneByTheOther) {
  FilterMode const otherMode =
      mode == FilterMode::exclude ? FilterMode::include : FilterMode::exclude;
  incRefCount(counts, otherMode, s1);
  decRefCount(counts, mode, s1);
  EXPECT_EQ(other(), (CountBySource{{s1, 1}}));
  EXPECT_EQ(getRefCount(counts, mode, s1), 0);
  EXPECT_EQ(getRefCount(counts, otherMode, s1), 1);
}

TEST_P(RefCount, ReadingAnAbsentSourceGivesZeroAndMakesNoEntry) {
  EXPECT_EQ(getRefCount(counts, mode, s1), 0);
  EXPECT_THAT(counted(), IsEmpty());
}

TEST(RefCountMode, ZeroSelectsExclude) {
  auto const counts = SourceCount::SourceCountIs();
  counts->excludeInc(s1, 3);
  counts->includeInc(s1, 7);
  EXPECT_EQ(getRefCount(counts, FilterMode{0}, s1), 3);
}

TEST(RefCountMode, EveryOtherValueSelectsInclude) {
  auto const counts = SourceCount::SourceCountIs();
  counts->excludeInc(s1, 3);
  counts->includeInc(s1, 7);
  for (int const value : {1, 2, 255}) {
    auto const mode = static_cast<FilterMode>(value);
    EXPECT_EQ(getRefCount(counts, mode, s1), 7);
    incRefCount(counts, mode, s1);
    EXPECT_EQ(counts->include(s1), 8);
    decRefCount(counts, mode, s1);
    EXPECT_EQ(counts->include(s1), 7);
    EXPECT_EQ(counts->exclude(s1), 3);
  }
}

TEST(SourceCount, IsBornEmpty) {
  EXPECT_EQ(countsOf(*SourceCount::SourceCountIs()), Counts());
}

TEST(SourceCount, EachOneIsItsOwn) {
  auto const one = SourceCount::SourceCountIs();
  one->includeInc(s1, 1);
  EXPECT_EQ(countsOf(*SourceCount::SourceCountIs()), Counts());
}

TEST(SourceCount, StarGCountIsSetRaisedAndLowered) {
  auto const counts = SourceCount::SourceCountIs();
  counts->starGCountIs(5);
  counts->starGCountInc(3);
  EXPECT_EQ(counts->starGCount(), 8);
  counts->starGCountDec(2);
  EXPECT_EQ(counts->starGCount(), 6);
}

TEST(SourceCount, StarGCountWrapsAt16Bits) {
  auto const counts = SourceCount::SourceCountIs();
  counts->starGCountDec(1);
  EXPECT_EQ(counts->starGCount(), 65535);
  counts->starGCountInc(2);
  EXPECT_EQ(counts->starGCount(), 1);
}

TEST(SourceCount, IncrementOfAnAbsentSourceStartsAtTheIncrement) {
  auto const counts = SourceCount::SourceCountIs();
  counts->includeInc(s1, 4);
  counts->excludeInc(s2, 5);
  EXPECT_EQ(countsOf(*counts), (Counts{0, {{s1, 4}}, {{s2, 5}}}));
}

TEST(SourceCount, DecrementsWithoutTheCountingFunctionsKeepAnEntryAtZero) {
  auto const counts = SourceCount::SourceCountIs();
  counts->includeInc(s1, 1);
  counts->includeDec(s1, 1);
  counts->excludeInc(s1, 1);
  counts->excludeDec(s1, 1);
  EXPECT_EQ(countsOf(*counts), (Counts{0, {{s1, 0}}, {{s1, 0}}}));
}

TEST(SourceCount, SetsDeletesAndEmptiesItsCollections) {
  auto const counts = SourceCount::SourceCountIs();
  for (IpAddr const source : {s1, s2, s3}) {
    counts->includeIs(source, 2);
    counts->excludeIs(source, 3);
  }
  counts->includeDel(s1);
  counts->excludeDel(s2);
  EXPECT_EQ(countsOf(*counts), (Counts{0, {{s2, 2}, {s3, 2}}, {{s1, 3}, {s3, 3}}}));
  counts->includeDelAll();
  EXPECT_EQ(countsOf(*counts), (Counts{0, {}, {{s1, 3}, {s3, 3}}}));
  counts->excludeDelAll();
  EXPECT_EQ(countsOf(*counts), Counts());
}

/// Writes down what it is told.
class CountWatcher : public SourceCount::NotifieeConst {
 public:
  explicit CountWatcher(Kel::Ptr<SourceCount const> counts) { watch(std::move(counts)); }

  void onStarGCount() override { heard.emplace_back("starGCount"); }
  void onInclude(IpAddr source) override { heard.push_back(withSource("include ", source)); }
  void onIncludekelImmediate() override { heard.emplace_back("include"); }
  void onExclude(IpAddr source) override { heard.push_back(withSource("exclude ", source)); }
  void onExcludekelImmediate() override { heard.emplace_back("exclude"); }

  std::vector<std::string> heard;

 private:
  static std::string withSource(char const* attribute, IpAddr source) {
    std::ostringstream text;
    text << attribute << source;
    return text.str();
  }
};

TEST(SourceCount, TellsItsReactorsWhatChanged) {
  auto const counts = SourceCount::SourceCountIs();
  auto const watcher = Kel::make<CountWatcher>(counts);
  counts->starGCountInc(1);
  counts->includeInc(s1, 1);
  counts->includeIs(s1, 1);  // no change
  counts->includeDel(s1);
  counts->includeDel(s1);  // no change
  counts->excludeInc(s2, 1);
  counts->excludeNotify(s3);
  counts->includeNotify(s4);
  counts->includeNotify();
  counts->excludeNotify();
  EXPECT_THAT(watcher->heard, ElementsAre("starGCount", "include 192.0.2.1", "include 192.0.2.1",
                                          "exclude 192.0.2.2", "exclude 192.0.2.3",
                                          "include 192.0.2.4", "include", "exclude"));
}

}  // namespace
}  // namespace Bridging::IgmpSnooping::Proxy::Testing
