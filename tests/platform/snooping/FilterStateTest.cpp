#include <chrono>
#include <optional>

#include <gtest/gtest.h>

#include "framework/kel/Activity.h"
#include "platform/snooping/VlanLearning.h"
#include "tests/platform/snooping/MembershipTesting.h"

namespace {

using namespace SnoopingTest;
using namespace IgmpTest;
using namespace std::chrono_literals;
using Bridging::IgmpSnooping::LearnedMembership;
using Bridging::IgmpSnooping::ReportBatch;
using Bridging::IgmpSnooping::TimedFilter;
using Bridging::IgmpSnooping::VlanLearning;
using Horix::Time;

constexpr IpAddr d{192, 0, 2, 4};
constexpr IpAddr many{};  // the reporter that may be many systems

constexpr auto membershipInterval = 270s;
constexpr auto lastMemberQueryTime = 2s;

/// One reporter's membership of a group, whose records say something at chosen times.
class FilterStateTest : public testing::Test {
 protected:
  void hear(IpAddr reporter, Record const& record) {
    learning.record(swp1, reporter, *ParsedRecord(record));
  }
  void hearAt(Time time, IpAddr reporter, Record const& record) {
    advanceTo(time);
    hear(reporter, record);
  }
  void advanceTo(Time time) {
    wheel->advanceTo(time);
    batch.publish();
    Kel::runActivities();
  }

  /// INCLUDE({}) of who is no member.
  Filter filter(IpAddr reporter) const {
    LearnedMembership const* const membership = learning.membership(swp1, reporter, group);
    return membership ? filterOf(*membership) : include({});
  }

  /// Until when a source is wanted if nothing more is heard.
  Time wanted(IpAddr reporter, IpAddr source) const {
    LearnedMembership const* const membership = learning.membership(swp1, reporter, group);
    return membership ? membership->wantedUntil(source) : Time::zero();
  }

  /// The filter in which a record leaves a reporter.
  Filter after(IpAddr reporter, Filter const& present, Record const& record) {
    learning.forgetGroup(group);
    advanceTo(wheel->now());
    std::vector<IpAddr> const sources(present.sources.begin(), present.sources.end());
    hear(reporter,
         present.mode == IgmpFilterMode::include ? isIn(group, sources) : isEx(group, sources));
    hear(reporter, record);
    return filter(reporter);
  }

  Kel::Ptr<Horix::TimerWheel> wheel =
      Kel::make<Horix::TimerWheel>(Kel::make<Horix::VirtualClock>());
  Kel::Ptr<IgmpContextStatus> status = Kel::make<IgmpContextStatus>(Bridging::VlanId(10));
  ReportBatch batch;
  VlanLearning learning{status, {}, wheel, batch};
};

// ---- One reporter: present state, record received, new state.

class FilterStateRow : public FilterStateTest {
 protected:
  Filter after(Filter const& present, Record const& record) {
    return FilterStateTest::after(host, present, record);
  }
};

TEST_F(FilterStateRow, IncludeThenIsInAddsSources) {
  EXPECT_EQ(after(include({a, b}), isIn(group, {b, c})), include({a, b, c}));
}
TEST_F(FilterStateRow, IncludeThenIsExTakesTheStatedSources) {
  EXPECT_EQ(after(include({a, b}), isEx(group, {b, c})), exclude({b, c}));
}
TEST_F(FilterStateRow, IncludeThenToInTakesTheStatedSources) {
  EXPECT_EQ(after(include({a, b}), toIn(group, {b, c})), include({b, c}));
}
TEST_F(FilterStateRow, IncludeThenToExTakesTheStatedSources) {
  EXPECT_EQ(after(include({a, b}), toEx(group, {b, c})), exclude({b, c}));
}
TEST_F(FilterStateRow, IncludeThenAllowAddsSources) {
  EXPECT_EQ(after(include({a, b}), allow(group, {b, c})), include({a, b, c}));
}
TEST_F(FilterStateRow, IncludeThenBlockTakesSourcesAway) {
  EXPECT_EQ(after(include({a, b}), block(group, {b, c})), include({a}));
}
TEST_F(FilterStateRow, ExcludeThenIsInTakesSourcesAway) {
  EXPECT_EQ(after(exclude({a, b}), isIn(group, {b, c})), exclude({a}));
}
TEST_F(FilterStateRow, ExcludeThenIsExTakesTheStatedSources) {
  EXPECT_EQ(after(exclude({a, b}), isEx(group, {b, c})), exclude({b, c}));
}
TEST_F(FilterStateRow, ExcludeThenToInTakesTheStatedSources) {
  EXPECT_EQ(after(exclude({a, b}), toIn(group, {b, c})), include({b, c}));
}
TEST_F(FilterStateRow, ExcludeThenToExTakesTheStatedSources) {
  EXPECT_EQ(after(exclude({a, b}), toEx(group, {b, c})), exclude({b, c}));
}
TEST_F(FilterStateRow, ExcludeThenAllowTakesSourcesAway) {
  EXPECT_EQ(after(exclude({a, b}), allow(group, {b, c})), exclude({a}));
}
TEST_F(FilterStateRow, ExcludeThenBlockAddsSources) {
  EXPECT_EQ(after(exclude({a, b}), block(group, {b, c})), exclude({a, b, c}));
}

// A reporter of whom nothing is known is in INCLUDE({}).

TEST_F(FilterStateRow, UnknownThenIsIn) {
  EXPECT_EQ(after(include({}), isIn(group, {a})), include({a}));
}
TEST_F(FilterStateRow, UnknownThenIsEx) {
  EXPECT_EQ(after(include({}), isEx(group, {a})), exclude({a}));
}
TEST_F(FilterStateRow, UnknownThenToIn) {
  EXPECT_EQ(after(include({}), toIn(group, {a})), include({a}));
}
TEST_F(FilterStateRow, UnknownThenToEx) {
  EXPECT_EQ(after(include({}), toEx(group, {a})), exclude({a}));
}
TEST_F(FilterStateRow, UnknownThenAllow) {
  EXPECT_EQ(after(include({}), allow(group, {a})), include({a}));
}
TEST_F(FilterStateRow, UnknownThenBlock) {
  EXPECT_EQ(after(include({}), block(group, {a})), include({}));
}

TEST_F(FilterStateRow, RepeatedSourcesOfARecordCountOnce) {
  EXPECT_EQ(after(include({}), isIn(group, {a, b, a, a})), include({a, b}));
  EXPECT_EQ(after(include({c}), allow(group, {a, a})), include({a, c}));
  EXPECT_EQ(after(exclude({}), block(group, {a, a})), exclude({a}));
}

TEST_F(FilterStateRow, ManySourcesAreToldFromMany) {
  std::vector<IpAddr> first;
  std::vector<IpAddr> second;
  for (std::uint8_t i = 1; i <= 40; ++i)
    first.emplace_back(std::uint8_t{198}, std::uint8_t{51}, std::uint8_t{100}, i);
  for (std::uint8_t i = 21; i <= 60; ++i)
    second.emplace_back(std::uint8_t{198}, std::uint8_t{51}, std::uint8_t{100}, i);
  std::set<IpAddr> const stated(second.begin(), second.end());
  EXPECT_EQ(after(include({first.begin(), first.end()}), toIn(group, second)), include(stated));
  EXPECT_EQ(after(exclude({first.begin(), first.end()}), toEx(group, second)), exclude(stated));
}

// ---- Times of one reporter

using FilterStateTime = FilterStateTest;

TEST_F(FilterStateTime, SourceThatNoReportNamesGoesByItself) {
  hear(host, isIn(group, {a, b, c}));
  hearAt(100s, host, isIn(group, {b}));
  hearAt(200s, host, allow(group, {c, d}));
  advanceTo(membershipInterval - 1ms);
  EXPECT_EQ(filter(host), include({a, b, c, d}));
  advanceTo(membershipInterval);
  EXPECT_EQ(filter(host), include({b, c, d}));
  advanceTo(100s + membershipInterval);
  EXPECT_EQ(filter(host), include({c, d}));
  advanceTo(200s + membershipInterval - 1ms);
  EXPECT_EQ(filter(host), include({c, d}));
  advanceTo(200s + membershipInterval);
  EXPECT_EQ(filter(host), include({}));
  EXPECT_TRUE(status->group().empty());
}

TEST_F(FilterStateTime, AnswerToAQueryForASourceTakesNoOtherSourceAway) {
  hear(host, isIn(group, {a, b}));
  hearAt(1s, host, isIn(group, {a}));
  EXPECT_EQ(filter(host), include({a, b}));
  EXPECT_EQ(wanted(host, a), 1s + membershipInterval);
  EXPECT_EQ(wanted(host, b), membershipInterval);
}

TEST_F(FilterStateTime, AnswerToAQueryForASourceKeepsEveryOtherOneInExcludeMode) {
  hear(host, isEx(group, {a}));
  hearAt(10s, host, isIn(group, {b}));
  EXPECT_EQ(filter(host), exclude({a}));
  EXPECT_EQ(wanted(host, c), membershipInterval) << "the membership's own time is not renewed";
  EXPECT_EQ(wanted(host, b), 10s + membershipInterval);
}

TEST_F(FilterStateTime, SourcesThatStillRunOutliveExcludeMode) {
  hear(host, isEx(group, {a, d}));
  hearAt(10s, host, allow(group, {b}));
  hearAt(20s, host, isIn(group, {c, d}));
  EXPECT_EQ(filter(host), exclude({a}));
  advanceTo(membershipInterval);
  EXPECT_EQ(filter(host), include({b, c, d}));
  advanceTo(10s + membershipInterval);
  EXPECT_EQ(filter(host), include({c, d}));
  advanceTo(20s + membershipInterval);
  EXPECT_TRUE(status->group().empty());
}

TEST_F(FilterStateTime, FullStatementForgetsWhatRanBesides) {
  hear(host, isEx(group, {a}));
  hearAt(10s, host, allow(group, {b}));
  hearAt(20s, host, isEx(group, {a}));
  advanceTo(20s + membershipInterval);
  EXPECT_TRUE(status->group().empty());
}

TEST_F(FilterStateTime, BlockedSourceDoesNotOutliveExcludeMode) {
  hear(host, isEx(group));
  hearAt(10s, host, isIn(group, {a, b}));
  hearAt(20s, host, block(group, {a}));
  EXPECT_EQ(filter(host), exclude({a}));
  advanceTo(membershipInterval);
  EXPECT_EQ(filter(host), include({b}));
}

TEST_F(FilterStateTime, ExcludeModeIsRenewedByItsOwnRecordsAlone) {
  hear(host, isEx(group));
  hearAt(100s, host, block(group, {a}));
  hearAt(200s, host, allow(group, {a}));
  advanceTo(membershipInterval);
  EXPECT_EQ(filter(host), include({a}));
}

TEST_F(FilterStateTime, RepetitionRenewsAllInWhateverOrder) {
  hear(host, isIn(group, {a, b}));
  Time now = 0s;
  for (auto const& repetition : {isIn(group, {a, b}), toIn(group, {b, a}), isIn(group, {b, a, a}),
                                 allow(group, {b, c, a})}) {
    hearAt(now += 200s, host, repetition);
    EXPECT_EQ(wanted(host, a), now + membershipInterval);
    EXPECT_EQ(wanted(host, b), now + membershipInterval);
  }
}

TEST_F(FilterStateTime, SourceThatGoesTakesNoOtherOnesTime) {
  hear(host, isIn(group, {a}));
  hearAt(10s, host, allow(group, {b}));
  hearAt(20s, host, allow(group, {c}));
  hearAt(30s, host, block(group, {a}));
  EXPECT_EQ(wanted(host, b), 10s + membershipInterval);
  EXPECT_EQ(wanted(host, c), 20s + membershipInterval);
  EXPECT_EQ(wanted(host, a), Time::zero());
}

TEST_F(FilterStateTime, LeaveEndsWhatIsLeftOfEitherModeSoon) {
  hear(host, isIn(group, {a}));
  hearAt(10s, host, allow(group, {b}));
  learning.leave(swp1, host, group);
  EXPECT_EQ(wanted(host, a), 10s + lastMemberQueryTime);
  EXPECT_EQ(wanted(host, b), 10s + lastMemberQueryTime);

  hearAt(100s, host, toEx(group));
  hearAt(101s, host, isIn(group, {a}));
  learning.leave(swp1, host, group);
  EXPECT_EQ(wanted(host, a), 101s + lastMemberQueryTime);
  EXPECT_EQ(wanted(host, b), 101s + lastMemberQueryTime);
  advanceTo(101s + lastMemberQueryTime);
  EXPECT_TRUE(status->group().empty());
}

TEST_F(FilterStateTime, ShorterIntervalHoldsForWhatIsNamedOnly) {
  hear(host, isIn(group, {a, b}));
  Bridging::IgmpSnooping::SnoopingPolicy policy;
  policy.queryInterval = 10s;
  learning.policyIs(policy);
  hear(host, allow(group, {a}));
  advanceTo(40s);
  EXPECT_EQ(filter(host), include({b}));
}

// ---- Many systems behind one reporter (RFC 9776 section 6.4): present state, record, new state.

class FilterStateOfManyRow : public FilterStateTest {
 protected:
  Filter after(Filter const& present, Record const& record) {
    return FilterStateTest::after(many, present, record);
  }
};

TEST_F(FilterStateOfManyRow, IncludeThenIsInOrAllowAddsSources) {
  EXPECT_EQ(after(include({a, b}), isIn(group, {b, c})), include({a, b, c}));
  EXPECT_EQ(after(include({a, b}), allow(group, {b, c})), include({a, b, c}));
}
TEST_F(FilterStateOfManyRow, IncludeThenToInAddsSourcesAndDoubtsTheOthers) {
  EXPECT_EQ(after(include({a, b}), toIn(group, {b, c})), include({a, b, c}));
  EXPECT_EQ(wanted(many, a), lastMemberQueryTime);
  EXPECT_EQ(wanted(many, b), membershipInterval);
  EXPECT_EQ(wanted(many, c), membershipInterval);
}
TEST_F(FilterStateOfManyRow, IncludeThenBlockDoubtsWhatItNames) {
  EXPECT_EQ(after(include({a, b}), block(group, {b, c})), include({a, b}));
  EXPECT_EQ(wanted(many, a), membershipInterval);
  EXPECT_EQ(wanted(many, b), lastMemberQueryTime);
}
TEST_F(FilterStateOfManyRow, BlockOfWhatNobodyWantsDoubtsNothing) {
  EXPECT_EQ(after(include({a}), block(group, {b})), include({a}));
  EXPECT_EQ(wanted(many, a), membershipInterval);
}
TEST_F(FilterStateOfManyRow, IncludeThenIsExExcludesWhatNobodyIncludes) {
  EXPECT_EQ(after(include({a, b}), isEx(group, {b, c})), exclude({c}));
  EXPECT_EQ(wanted(many, b), membershipInterval);
}
TEST_F(FilterStateOfManyRow, IncludeThenToExDoubtsWhatOthersInclude) {
  EXPECT_EQ(after(include({a, b}), toEx(group, {b, c})), exclude({c}));
  advanceTo(lastMemberQueryTime);
  EXPECT_EQ(filter(many), exclude({b, c}));
}
TEST_F(FilterStateOfManyRow, ExcludeThenIsInOrAllowRequestsSources) {
  EXPECT_EQ(after(exclude({a, b}), isIn(group, {b, c})), exclude({a}));
  EXPECT_EQ(after(exclude({a, b}), allow(group, {b, c})), exclude({a}));
  advanceTo(membershipInterval);
  EXPECT_EQ(filter(many), include({})) << "all of it has ended";
}
TEST_F(FilterStateOfManyRow, ExcludeThenIsExExcludesWhatIsCommonAndRequestsTheRest) {
  EXPECT_EQ(after(exclude({a, b}), isEx(group, {b, c})), exclude({b}));
  hear(many, isEx(group, {b, c}));
  EXPECT_EQ(filter(many), exclude({b}));
}
TEST_F(FilterStateOfManyRow, ExcludeThenToExDoubtsWhatIsNew) {
  EXPECT_EQ(after(exclude({a, b}), toEx(group, {b, c})), exclude({b}));
  advanceTo(lastMemberQueryTime);
  EXPECT_EQ(filter(many), exclude({b, c}));
}
TEST_F(FilterStateOfManyRow, ExcludeThenBlockDoubtsWhatItNames) {
  EXPECT_EQ(after(exclude({a}), block(group, {a, b})), exclude({a}));
  advanceTo(lastMemberQueryTime - 1ms);
  EXPECT_EQ(filter(many), exclude({a}));
  advanceTo(lastMemberQueryTime);
  EXPECT_EQ(filter(many), exclude({a, b}));
}
TEST_F(FilterStateOfManyRow, ExcludeThenToInDoubtsTheMode) {
  EXPECT_EQ(after(exclude({a, b}), toIn(group, {b, c})), exclude({a}));
  advanceTo(lastMemberQueryTime);
  EXPECT_EQ(filter(many), include({b, c}));
}

// ---- Many systems: answers

using FilterStateOfMany = FilterStateTest;

TEST_F(FilterStateOfMany, WhatOneLeavesStaysIfAnotherOneAnswers) {
  hear(many, isIn(group, {a, b}));
  hearAt(10s, many, block(group, {a, b}));
  hearAt(11s, many, isIn(group, {a}));
  advanceTo(10s + lastMemberQueryTime);
  EXPECT_EQ(filter(many), include({a}));
  EXPECT_EQ(wanted(many, a), 11s + membershipInterval);
}

TEST_F(FilterStateOfMany, ExcludeModeStaysIfAnotherOneAnswers) {
  hear(many, isEx(group));
  hearAt(10s, many, toIn(group));
  hearAt(11s, many, isEx(group));
  advanceTo(100s);
  EXPECT_EQ(filter(many), exclude({}));
}

TEST_F(FilterStateOfMany, LeaveTakesEffectWhenNobodyAnswers) {
  hear(many, isEx(group));
  hearAt(10s, many, toIn(group));
  advanceTo(10s + lastMemberQueryTime - 1ms);
  EXPECT_EQ(filter(many), exclude({}));
  advanceTo(10s + lastMemberQueryTime);
  EXPECT_TRUE(status->group().empty());
}

TEST_F(FilterStateOfMany, RepeatedWithdrawalDoesNotWinTime) {
  hear(many, isIn(group, {a}));
  hearAt(10s, many, toIn(group));
  hearAt(11s, many, toIn(group));
  advanceTo(10s + lastMemberQueryTime);
  EXPECT_TRUE(status->group().empty());
}

TEST_F(FilterStateOfMany, AnswersOfTwoSwitchesInTurnChangeNothing) {
  hear(many, isIn(group, {a}));
  hear(many, isIn(group, {b}));
  for (Time now = 125s; now < 2000s; now += 125s) {
    hearAt(now, many, isIn(group, {a}));
    EXPECT_EQ(filter(many), include({a, b}));
    hearAt(now + 5s, many, isIn(group, {b}));
    EXPECT_EQ(filter(many), include({a, b}));
  }
}

TEST_F(FilterStateOfMany, FastLeaveIsNotForMany) {
  Bridging::IgmpSnooping::SnoopingPolicy policy;
  policy.fastLeave = true;
  learning.policyIs(policy);
  learning.report(swp1, many, group);
  learning.leave(swp1, many, group);
  advanceTo(1s);
  EXPECT_EQ(filter(many), exclude({}));
  advanceTo(lastMemberQueryTime);
  EXPECT_EQ(filter(many), include({}));
}

// ---- Known before

TEST_F(FilterStateTest, IsRestoredWithTheTimesThatAreLeft) {
  for (IpAddr const reporter : {host, many}) {
    hearAt(wheel->now() + 1s, reporter, isIn(group, {a}));
    hearAt(wheel->now() + 1s, reporter, allow(group, {b}));
    TimedFilter const before = learning.membership(swp1, reporter, group)->timedFilter();
    EXPECT_EQ(learning.restore(swp2, reporter, group, before), std::nullopt);
    EXPECT_EQ(learning.membership(swp2, reporter, group)->timedFilter(), before);

    hear(reporter, toEx(group, {c}));
    hearAt(wheel->now() + 1s, reporter, isIn(group, {d}));
    TimedFilter const excluding = learning.membership(swp1, reporter, group)->timedFilter();
    EXPECT_EQ(learning.restore(swp2, reporter, group, excluding), std::nullopt);
    EXPECT_EQ(learning.membership(swp2, reporter, group)->timedFilter(), excluding);
  }
}

TEST_F(FilterStateTest, WhatEndedBeforeItIsRestoredDoesNotComeBack) {
  hear(host, isEx(group, {c}));
  hearAt(10s, host, isIn(group, {a}));
  TimedFilter const before = learning.membership(swp1, host, group)->timedFilter();
  advanceTo(275s);
  learning.restore(swp1, host, group, before);
  EXPECT_EQ(filter(host), include({a})) << "EXCLUDE mode has ended";
  advanceTo(300s);
  learning.restore(swp1, host, group, before);
  advanceTo(300s);
  EXPECT_TRUE(status->group().empty());
}

// ---- Readers

/// Counts what a membership's readers are told.
class ChangeCounter final : public IgmpMembership::NotifieeConst {
 public:
  explicit ChangeCounter(Kel::Ptr<IgmpMembership const> const& membership) { watch(membership); }
  void onFilterMode() override { ++modes; }
  void onSource(IpAddr source) override { sources.insert(source); }

  int modes = 0;
  std::multiset<IpAddr> sources;
};

TEST_F(FilterStateTest, ChangesOnlyWhatDiffers) {
  hear(host, isIn(group, {a, b, c}));
  auto const changes = Kel::make<ChangeCounter>(
      Kel::Ptr<IgmpMembership const>(learning.membership(swp1, host, group)));
  hear(host, toIn(group, {b, c, d}));
  EXPECT_EQ(changes->modes, 0);
  EXPECT_EQ(changes->sources, (std::multiset{a, d}));
  hear(host, toIn(group, {d, c, b}));
  hear(host, isIn(group, {d}));
  hear(host, block(group, {a}));
  EXPECT_EQ(changes->modes, 0);
  EXPECT_EQ(changes->sources.size(), 2u);
}

}  // namespace
