#include <optional>

#include <gtest/gtest.h>

#include "platform/snooping/FilterState.h"
#include "tests/platform/snooping/MembershipTesting.h"

namespace {

using namespace SnoopingTest;
using namespace IgmpTest;
using Bridging::IgmpSnooping::FilterState;

constexpr IpAddr group{232, 1, 1, 1};
constexpr IpAddr reporter{10, 0, 0, 1};
constexpr IpAddr a{192, 0, 2, 1};
constexpr IpAddr b{192, 0, 2, 2};
constexpr IpAddr c{192, 0, 2, 3};
constexpr IpAddr d{192, 0, 2, 4};

Kel::Ptr<IgmpMembership> membershipWith(Filter const& filter) {
  auto membership = Kel::make<IgmpMembership>(reporter);
  membership->filterModeIs(filter.mode);
  for (IpAddr const source : filter.sources) membership->sourceIs(source);
  return membership;
}

/// The state in which a record leaves a reporter: as a membership would show it.
Filter after(std::optional<Filter> const& present, Record const& record) {
  Kel::Ptr<IgmpMembership> const membership = present ? membershipWith(*present) : nullptr;
  auto const state = FilterState::after(*ParsedRecord(record), membership.get());
  auto const result = Kel::make<IgmpMembership>(reporter);
  state.applyTo(*result);
  EXPECT_TRUE(state.describes(*result));
  EXPECT_EQ(state.sourceCount(), result->source().size());
  return filterOf(*result);
}

// Rows of RFC 9776 section 4.2.12, for one reporter: present state, record received, new state.

TEST(FilterStateRow, IncludeThenIsInTakesTheStatedSources) {
  EXPECT_EQ(after(include({a, b}), isIn(group, {b, c})), include({b, c}));
}
TEST(FilterStateRow, IncludeThenIsExTakesTheStatedSources) {
  EXPECT_EQ(after(include({a, b}), isEx(group, {b, c})), exclude({b, c}));
}
TEST(FilterStateRow, IncludeThenToInTakesTheStatedSources) {
  EXPECT_EQ(after(include({a, b}), toIn(group, {b, c})), include({b, c}));
}
TEST(FilterStateRow, IncludeThenToExTakesTheStatedSources) {
  EXPECT_EQ(after(include({a, b}), toEx(group, {b, c})), exclude({b, c}));
}
TEST(FilterStateRow, IncludeThenAllowAddsSources) {
  EXPECT_EQ(after(include({a, b}), allow(group, {b, c})), include({a, b, c}));
}
TEST(FilterStateRow, IncludeThenBlockTakesSourcesAway) {
  EXPECT_EQ(after(include({a, b}), block(group, {b, c})), include({a}));
}
TEST(FilterStateRow, ExcludeThenIsInTakesTheStatedSources) {
  EXPECT_EQ(after(exclude({a, b}), isIn(group, {b, c})), include({b, c}));
}
TEST(FilterStateRow, ExcludeThenIsExTakesTheStatedSources) {
  EXPECT_EQ(after(exclude({a, b}), isEx(group, {b, c})), exclude({b, c}));
}
TEST(FilterStateRow, ExcludeThenToInTakesTheStatedSources) {
  EXPECT_EQ(after(exclude({a, b}), toIn(group, {b, c})), include({b, c}));
}
TEST(FilterStateRow, ExcludeThenToExTakesTheStatedSources) {
  EXPECT_EQ(after(exclude({a, b}), toEx(group, {b, c})), exclude({b, c}));
}
TEST(FilterStateRow, ExcludeThenAllowTakesSourcesAway) {
  EXPECT_EQ(after(exclude({a, b}), allow(group, {b, c})), exclude({a}));
}
TEST(FilterStateRow, ExcludeThenBlockAddsSources) {
  EXPECT_EQ(after(exclude({a, b}), block(group, {b, c})), exclude({a, b, c}));
}

// A reporter of whom nothing is known is in INCLUDE({}).

TEST(FilterStateRow, UnknownThenIsIn) {
  EXPECT_EQ(after(std::nullopt, isIn(group, {a})), include({a}));
}
TEST(FilterStateRow, UnknownThenIsEx) {
  EXPECT_EQ(after(std::nullopt, isEx(group, {a})), exclude({a}));
}
TEST(FilterStateRow, UnknownThenToIn) {
  EXPECT_EQ(after(std::nullopt, toIn(group, {a})), include({a}));
}
TEST(FilterStateRow, UnknownThenToEx) {
  EXPECT_EQ(after(std::nullopt, toEx(group, {a})), exclude({a}));
}
TEST(FilterStateRow, UnknownThenAllow) {
  EXPECT_EQ(after(std::nullopt, allow(group, {a})), include({a}));
}
TEST(FilterStateRow, UnknownThenBlock) {
  EXPECT_EQ(after(std::nullopt, block(group, {a})), include({}));
}

TEST(FilterState, ReportOfAnOlderVersionWantsEverySource) {
  auto const membership = membershipWith(include({a, b}));
  FilterState::everySource().applyTo(*membership);
  EXPECT_EQ(filterOf(*membership), exclude({}));
}

TEST(FilterState, RepeatedSourcesOfARecordCountOnce) {
  EXPECT_EQ(after(std::nullopt, isIn(group, {a, b, a, a})), include({a, b}));
  EXPECT_EQ(FilterState::after(*ParsedRecord(allow(group, {a, a})), nullptr).sourceCount(), 1u);
}

TEST(FilterState, HasLeftWhenItIncludesNothing) {
  auto const left = [](Record const& record, Filter const& present) {
    return FilterState::after(*ParsedRecord(record), membershipWith(present).get()).wantsNothing();
  };
  EXPECT_TRUE(left(toIn(group), exclude({a})));
  EXPECT_TRUE(left(isIn(group, {}), include({a})));
  EXPECT_TRUE(left(block(group, {a, b}), include({a, b})));
  EXPECT_FALSE(left(block(group, {a}), include({a, b})));
  EXPECT_FALSE(left(allow(group, {a}), exclude({a}))) << "EXCLUDE({}) wants every source";
}

TEST(FilterState, DescribesWhatHasTheSameModeAndSources) {
  auto const state = FilterState::after(*ParsedRecord(isIn(group, {a, b})), nullptr);
  EXPECT_TRUE(state.describes(*membershipWith(include({b, a}))));
  EXPECT_FALSE(state.describes(*membershipWith(exclude({a, b}))));
  EXPECT_FALSE(state.describes(*membershipWith(include({a}))));
  EXPECT_FALSE(state.describes(*membershipWith(include({a, b, c}))));
  EXPECT_FALSE(state.describes(*membershipWith(include({a, c}))));
}

TEST(FilterState, RecordThatStatesTheSameIsARepetition) {
  auto const repeated = [](Record const& record, Filter const& present) {
    return FilterState::isRepeatedBy(*ParsedRecord(record), *membershipWith(present));
  };
  EXPECT_TRUE(repeated(isIn(group, {a, b}), include({a, b})));
  EXPECT_TRUE(repeated(toIn(group, {a, b}), include({a, b})));
  EXPECT_TRUE(repeated(isEx(group, {a}), exclude({a})));
  EXPECT_TRUE(repeated(toEx(group), exclude({})));
  EXPECT_FALSE(repeated(isEx(group, {a}), include({a})));
  EXPECT_FALSE(repeated(isIn(group, {a}), exclude({a})));
  EXPECT_FALSE(repeated(isIn(group, {a}), include({a, b})));
  EXPECT_FALSE(repeated(isIn(group, {a, c}), include({a, b})));
  EXPECT_FALSE(repeated(isIn(group, {a, a}), include({a, b}))) << "says INCLUDE({a})";
  EXPECT_FALSE(repeated(allow(group, {a}), include({a})));
  EXPECT_FALSE(repeated(block(group, {a}), exclude({a})));
}

/// Counts what a membership's readers are told.
class ChangeCounter final : public IgmpMembership::NotifieeConst {
 public:
  explicit ChangeCounter(Kel::Ptr<IgmpMembership const> const& membership) { watch(membership); }
  void onFilterMode() override { ++modes; }
  void onSource(IpAddr source) override { sources.insert(source); }

  int modes = 0;
  std::multiset<IpAddr> sources;
};

TEST(FilterState, ChangesOnlyWhatDiffers) {
  auto const membership = membershipWith(include({a, b, c}));
  auto const changes = Kel::make<ChangeCounter>(membership);
  FilterState::after(*ParsedRecord(isIn(group, {b, c, d})), nullptr).applyTo(*membership);
  EXPECT_EQ(filterOf(*membership), include({b, c, d}));
  EXPECT_EQ(changes->modes, 0);
  EXPECT_EQ(changes->sources, (std::multiset{a, d}));
}

}  // namespace
