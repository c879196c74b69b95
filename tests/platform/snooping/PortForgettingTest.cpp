#include <chrono>
#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/kel/Activity.h"
#include "platform/horix/EventLoop.h"
#include "platform/snooping/VlanLearning.h"
#include "tests/platform/snooping/MembershipTesting.h"

namespace {

using namespace SnoopingTest;
using namespace IgmpTest;
using namespace std::chrono_literals;

/// Goes on a little with each look at it, as if there were work in between.
class BusyClock final : public Horix::Clock {
 public:
  Horix::Time now() const override { return now_ += 10us; }
  void waitUntil(Horix::Time time) override { now_ = std::max(now_, time); }

 private:
  mutable Horix::Time now_{};
};

class PortForgettingTest : public testing::Test {
 protected:
  static constexpr std::uint32_t groups = 5000;

  PortForgettingTest() {
    for (std::uint32_t i = 0; i < groups; ++i) {
      say(swp1, host, isIn(groupOf(i), {a}));
      say(swp2, host, isIn(groupOf(i), {a}));
    }
    endBatch();
  }

  static IpAddr groupOf(std::uint32_t i) { return IpAddr(group.value() + i); }

  void say(IntfId const& intf, IpAddr reporter, Record const& record) {
    learning->record(intf, reporter, *ParsedRecord(record));
  }
  void endBatch() {
    batch.publish();
    Kel::runActivities();
  }
  void piece() {
    wheel->advanceTo(*wheel->nextExpiry());
    endBatch();
  }
  /// Nothing expires by then.
  void toTheEnd() {
    while (*wheel->nextExpiry() < 200s) piece();
  }

  std::size_t members(IntfId const& intf) const {
    std::size_t count = 0;
    for (auto const& [address, each] : status->group())
      if (auto const* const port = each->intf().find(intf)) count += port->membership().size();
    return count;
  }
  bool includes(IntfId const& intf, IpAddr address, IpAddr source) const {
    auto const* const membership = learning->membership(intf, host, address);
    return membership && membership->source(source);
  }

  Kel::Ptr<Horix::TimerWheel> wheel = Kel::make<Horix::TimerWheel>(Kel::make<BusyClock>());
  Kel::Ptr<IgmpContextStatus> status = Kel::make<IgmpContextStatus>(Bridging::VlanId(10));
  Bridging::IgmpSnooping::ReportBatch batch;
  std::unique_ptr<Bridging::IgmpSnooping::VlanLearning> learning =
      std::make_unique<Bridging::IgmpSnooping::VlanLearning>(
          status, Bridging::IgmpSnooping::SnoopingPolicy(), wheel, batch);
};

TEST_F(PortForgettingTest, PortOfManyGroupsIsForgottenPieceByPiece) {
  learning->forgetPort(swp1);
  endBatch();
  std::size_t left = members(swp1);
  EXPECT_GT(left, groups / 2);
  EXPECT_LT(left, groups);
  for (int pieces = 0; left > 0 && pieces < 1000; ++pieces) {
    piece();
    std::size_t const now = members(swp1);
    EXPECT_LT(left - now, 1000u) << "too much at once";
    left = now;
  }
  EXPECT_EQ(left, 0u);
  EXPECT_EQ(members(swp2), groups);
}

TEST_F(PortForgettingTest, WhatIsHeardMeanwhileStaysAndDoesNotMixWithWhatWasBefore) {
  learning->forgetPort(swp1);
  IpAddr const late(224, 1, 1, 1);
  for (std::uint32_t i = 0; i < groups; i += 7) say(swp1, host, isIn(groupOf(i), {b}));
  say(swp1, host, isIn(late, {b}));
  endBatch();
  toTheEnd();
  EXPECT_EQ(members(swp1), (groups + 6) / 7 + 1);
  for (std::uint32_t i = 0; i < groups; i += 7) {
    ASSERT_TRUE(includes(swp1, groupOf(i), b)) << i;
    ASSERT_FALSE(includes(swp1, groupOf(i), a)) << i;
  }
  EXPECT_TRUE(includes(swp1, late, b));
}

TEST_F(PortForgettingTest, GroupsThatComeAndGoMeanwhileHideNoneThatIsToBeForgotten) {
  learning->forgetPort(swp1);
  for (std::uint32_t i = 0; members(swp1) > 0 && i < groups; ++i) {
    say(swp2, host, toIn(groupOf(i)));
    say(swp2, host,
        isIn(IpAddr(233, 0, static_cast<std::uint8_t>(i >> 8), static_cast<std::uint8_t>(i)), {a}));
    piece();
  }
  EXPECT_EQ(members(swp1), 0u);
}

TEST_F(PortForgettingTest, PortThatGoesAgainForgetsAlsoWhatItHeardMeanwhile) {
  learning->forgetPort(swp1);
  for (std::uint32_t i = 0; i < groups; i += 7) say(swp1, host, isIn(groupOf(i), {b}));
  endBatch();
  learning->forgetPort(swp1);
  toTheEnd();
  EXPECT_EQ(members(swp1), 0u);
}

TEST_F(PortForgettingTest, LeaveDuringForgettingConcernsNobody) {
  learning->forgetPort(swp1);
  learning->leave(swp1, host, groupOf(0));
  endBatch();
  EXPECT_FALSE(learning->membership(swp1, host, groupOf(0)));
}

TEST_F(PortForgettingTest, LearningMayEndDuringForgetting) {
  learning->forgetPort(swp1);
  learning.reset();
  EXPECT_EQ(wheel->nextExpiry(), std::nullopt);
}

}  // namespace
