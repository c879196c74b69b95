#include <set>

#include <gtest/gtest.h>

#include "platform/snooping/QueryNeed.h"
#include "tests/platform/snooping/MembershipTesting.h"

namespace {

using namespace SnoopingTest;
using namespace IgmpTest;
using Bridging::IgmpSnooping::QueryNeed;
using Bridging::IgmpSnooping::queryNeededBy;

class WithdrawalTest : public testing::Test {
 protected:
  void reporterIs(Filter const& filter) {
    membership->filterModeIs(filter.mode);
    for (IpAddr const source : filter.sources) membership->sourceIs(source);
  }
  QueryNeed withdrawn(Record const& record) const {
    return queryNeededBy(*ParsedRecord(record), membership.get());
  }
  static std::set<IpAddr> sources(QueryNeed const& withdrawal) {
    return {withdrawal.sources.begin(), withdrawal.sources.end()};
  }
  void expectNothing(Record const& record) const { EXPECT_TRUE(withdrawn(record).empty()); }
  void expectSources(Record const& record, std::set<IpAddr> const& expected) const {
    EXPECT_FALSE(withdrawn(record).group);
    EXPECT_EQ(sources(withdrawn(record)), expected);
  }

  Kel::Ptr<IgmpMembership> membership = Kel::make<IgmpMembership>(IpAddr(10, 0, 0, 1));
};

TEST_F(WithdrawalTest, IncluderWhoBlocksWithdrawsWhatItHadIncluded) {
  reporterIs(include({a, b}));
  expectSources(block(group, {b, c}), {b});
}

TEST_F(WithdrawalTest, IncluderWhoChangesToExcludeWithdrawsWhatItExcludes) {
  reporterIs(include({a, b}));
  expectSources(toEx(group, {b, c}), {b});
  expectNothing(toEx(group));
}

TEST_F(WithdrawalTest, IncluderWhoStatesItsSourcesWithdrawsTheOthers) {
  reporterIs(include({a, b}));
  expectSources(toIn(group, {b, c}), {a});
  expectSources(toIn(group), {a, b});
  expectNothing(toIn(group, {a, b}));
}

TEST_F(WithdrawalTest, ExcluderWhoBlocksWithdrawsWhatItHadNotExcluded) {
  reporterIs(exclude({a}));
  expectSources(block(group, {a, b}), {b});
}

TEST_F(WithdrawalTest, ExcluderWhoStatesItsSourcesWithdrawsTheNewOnes) {
  reporterIs(exclude({a}));
  expectSources(toEx(group, {a, b}), {b});
  expectNothing(toEx(group));
}

TEST_F(WithdrawalTest, ExcluderWhoChangesToIncludeWithdrawsTheGroup) {
  reporterIs(exclude({a}));
  EXPECT_TRUE(withdrawn(toIn(group, {b})).group);
  EXPECT_TRUE(withdrawn(toIn(group, {b})).sources.empty());
}

TEST_F(WithdrawalTest, NothingIsWithdrawnByWhoAllowsOrAnswers) {
  reporterIs(include({a, b}));
  expectNothing(allow(group, {c}));
  expectNothing(isIn(group, {a}));
  expectNothing(isEx(group, {a}));
}

TEST_F(WithdrawalTest, WhoIsUnknownHasNothingToWithdraw) {
  EXPECT_TRUE(queryNeededBy(*ParsedRecord(toIn(group)), nullptr).empty());
  EXPECT_TRUE(queryNeededBy(*ParsedRecord(block(group, {a})), nullptr).empty());
}

}  // namespace
