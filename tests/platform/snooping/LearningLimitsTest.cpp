#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <tuple>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/platform/snooping/LearningTesting.h"

/// What a port of a VLAN may take, what becomes of the rest, and who hears of it.
namespace {

using namespace SnoopingTest;
using namespace IgmpTest;
using namespace std::chrono_literals;
using Bridging::IgmpSnooping::GroupRange;
using Bridging::IgmpSnooping::LimitReached;
using Bridging::IgmpSnooping::SnoopingPolicy;
using Bridging::IgmpSnooping::TurnedAway;
using Bridging::IgmpSnooping::VlanLearning;
using Igmp::IgnoreReason;
using testing::ElementsAre;

IpAddr numbered(IpAddr first, std::uint32_t number) {
  return IpAddr(first.value() + number);
}
IpAddr groupNumber(std::uint32_t number) {
  return numbered(IpAddr(239, 1, 0, 0), number);
}
IpAddr reporterNumber(std::uint32_t number) {
  return numbered(IpAddr(10, 1, 0, 0), number);
}

class LearningLimitsTest : public LearningTesting {
 protected:
  LearningLimitsTest() {
    for (IntfId const& intf : ports) learning.portIs(intf);
    learning.onLimitIs([this](LimitReached const& limit) { told.push_back(limit.limit); });
  }

  template <class Change>
  void policyIs(Change change) {
    SnoopingPolicy policy;
    change(policy);
    learning.policyIs(policy);
  }

  std::optional<IgnoreReason> join(IntfId const& intf, std::uint32_t group,
                                   IpAddr reporter = host) {
    return learning.report(intf, reporter, groupNumber(group));
  }
  std::optional<IgnoreReason> record(IntfId const& intf, IpAddr reporter, Record const& record) {
    return learning.record(intf, reporter, *ParsedRecord(record));
  }
  /// How many of `count` new groups a port may have.
  std::uint32_t joined(IntfId const& intf, std::uint32_t first, std::uint32_t count) {
    std::uint32_t admitted = 0;
    for (std::uint32_t i = first; i < first + count; ++i) admitted += !join(intf, i);
    return admitted;
  }
  Filter filter(IntfId const& intf, IpAddr reporter, IpAddr address = group) const {
    auto const* const membership = learning.membership(intf, reporter, address);
    return membership ? filterOf(*membership) : include({});
  }

  std::vector<IntfId> const ports{swp1, swp2, IntfId("swp3"), IntfId("swp4")};
  VlanLearning learning{status, {}, wheel, batch};
  std::vector<IgnoreReason> told;
};

// ---- Groups of a VLAN

TEST_F(LearningLimitsTest, OnePortCannotTakeAnotherOnesShareOfTheGroups) {
  policyIs([](auto& policy) { policy.maxGroups = 80; });
  EXPECT_EQ(joined(swp1, 0, 1000), 10u + 40u) << "a share, and what is common";
  for (std::size_t i = 1; i < ports.size(); ++i)
    EXPECT_EQ(joined(ports[i], 1000 * static_cast<std::uint32_t>(i), 1000), 10u) << "a share";
  EXPECT_EQ(status->group().size(), 80u);
}

TEST_F(LearningLimitsTest, GroupThatSeveralPortsHaveIsTakenFromWhatIsCommonOnce) {
  policyIs([](auto& policy) { policy.maxGroups = 80; });
  for (IntfId const& intf : ports) EXPECT_EQ(joined(intf, 0, 50), 50u);
  EXPECT_EQ(joined(swp1, 50, 1000), 0u) << "its share is used, and so is what is common";
}

TEST_F(LearningLimitsTest, PortThatZapsIsNotCutOffByOneThatFollowsIt) {
  policyIs([](auto& policy) { policy.maxGroups = 80; });
  joined(swp2, 5000, 1000);
  for (std::uint32_t i = 0; i < 500; ++i) {
    EXPECT_EQ(join(swp1, i), std::nullopt);
    join(swp2, i);
    record(swp1, host, toIn(groupNumber(i)));
    endBatch();
  }
  EXPECT_LE(status->group().size(), 80u);
}

TEST_F(LearningLimitsTest, GroupsThatAreLeftComeBackToWhereTheyWereTakenFrom) {
  policyIs([](auto& policy) { policy.maxGroups = 80; });
  for (int round = 0; round < 3; ++round) {
    EXPECT_EQ(joined(swp1, 0, 1000), 50u);
    EXPECT_EQ(joined(swp2, 0, 1000), 50u);
    learning.forgetPort(swp1);
    learning.forgetPort(swp2);
    endBatch();
  }
}

TEST_F(LearningLimitsTest, PortHasNoMoreGroupsThanItMay) {
  policyIs([](auto& policy) { policy.maxInterfaceGroups = 3; });
  EXPECT_EQ(joined(swp1, 0, 10), 3u);
  EXPECT_EQ(join(swp1, 10), IgnoreReason::tooManyInterfaceGroups);
  EXPECT_EQ(join(swp1, 0, otherHost), std::nullopt) << "no new group";
  EXPECT_EQ(joined(swp2, 0, 10), 3u);
}

// ---- Reporters

TEST_F(LearningLimitsTest, FurtherReportersAreMergedAndNobodyIsCutOff) {
  policyIs([](auto& policy) { policy.maxInterfaceMemberships = 2; });
  record(swp1, reporterNumber(0), isIn(group, {a}));
  record(swp1, reporterNumber(1), isIn(group, {a}));
  EXPECT_EQ(record(swp1, reporterNumber(2), isIn(group, {b})), IgnoreReason::tooManyMemberships);
  EXPECT_EQ(record(swp1, reporterNumber(3), isIn(group, {c})), IgnoreReason::tooManyMemberships);
  EXPECT_EQ(filter(swp1, IpAddr()), include({b, c}));
  EXPECT_EQ(record(swp1, reporterNumber(0), isIn(group, {a, b})), std::nullopt) << "is known";
  EXPECT_EQ(status->group(group)->intf(swp1)->membership().size(), 3u);

  record(swp1, reporterNumber(3), block(group, {c}));
  advanceTo(2s);
  EXPECT_EQ(filter(swp1, IpAddr()), include({b})) << "nobody answered for the source";
}

TEST_F(LearningLimitsTest, MergedReportersMayLeaveByAnOlderVersion) {
  policyIs([](auto& policy) { policy.maxInterfaceMemberships = 1; });
  learning.report(swp1, reporterNumber(0), group);
  learning.report(swp1, reporterNumber(1), group);
  learning.leave(swp1, reporterNumber(1), group);
  advanceTo(2s);
  EXPECT_EQ(status->group(group)->intf(swp1)->membership().size(), 1u);
}

// ---- Sources

TEST_F(LearningLimitsTest, PortHasNoMoreSourcesThanItMay) {
  policyIs([](auto& policy) { policy.maxInterfaceSources = 3; });
  EXPECT_EQ(record(swp1, host, isIn(group, {a, b})), std::nullopt);
  EXPECT_EQ(record(swp1, otherHost, isIn(otherGroup, {a, b})),
            IgnoreReason::tooManyInterfaceSources);
  EXPECT_EQ(filter(swp1, otherHost, otherGroup), include({a}));
  EXPECT_EQ(record(swp1, reporterNumber(1), isIn(group, {c})),
            IgnoreReason::tooManyInterfaceSources);
  EXPECT_EQ(record(swp2, host, isIn(group, {a, b})), std::nullopt) << "another port";
  endBatch();
  EXPECT_EQ(learning.membership(swp1, reporterNumber(1), group), nullptr);

  record(swp1, host, block(group, {b}));
  EXPECT_EQ(record(swp1, otherHost, allow(otherGroup, {c})), std::nullopt);
}

TEST_F(LearningLimitsTest, SourcesThatRunBesideExcludeModeCount) {
  policyIs([](auto& policy) { policy.maxInterfaceSources = 2; });
  record(swp1, host, isEx(group, {a}));
  EXPECT_EQ(record(swp1, host, isIn(group, {b, c})), IgnoreReason::tooManyInterfaceSources);
  EXPECT_EQ(filter(swp1, host), exclude({a}));
  learning.forgetPort(swp1);
  endBatch();
  EXPECT_EQ(record(swp1, host, isIn(group, {a, b})), std::nullopt);
}

TEST_F(LearningLimitsTest, WhatWasKnownStaysAndARefusedRepetitionRenewsIt) {
  policyIs([](auto& policy) { policy.maxGroupSources = 2; });
  record(swp1, host, isIn(group, {a, b}));
  advanceTo(200s);
  EXPECT_EQ(record(swp1, host, toIn(group, {c, a, b})), IgnoreReason::tooManySources);
  advanceTo(400s);
  EXPECT_EQ(filter(swp1, host), include({a, b}));
}

// ---- SSM

TEST_F(LearningLimitsTest, InTheSsmRangeOnlySourcesCanBeHad) {
  policyIs([](auto& policy) { policy.ssmRange = GroupRange(IpAddr(232, 0, 0, 0), 8); });
  EXPECT_EQ(learning.report(swp1, host, group), IgnoreReason::ssmOlderReport);
  EXPECT_EQ(record(swp1, host, isEx(group)), IgnoreReason::ssmExclude);
  EXPECT_EQ(record(swp1, host, toEx(group, {a})), IgnoreReason::ssmExclude);
  EXPECT_TRUE(status->group().empty());
  EXPECT_EQ(record(swp1, host, isIn(group, {a})), std::nullopt);
  EXPECT_EQ(record(swp1, host, toEx(group, {b})), IgnoreReason::ssmExclude);
  EXPECT_EQ(filter(swp1, host), include({a}));
  EXPECT_EQ(learning.report(swp1, host, groupNumber(0)), std::nullopt) << "beyond the range";
}

// ---- Who hears of it

TEST_F(LearningLimitsTest, LogHearsOfALimitOnceAMinute) {
  policyIs([](auto& policy) {
    policy.maxInterfaceGroups = 1;
    policy.ssmRange = GroupRange(IpAddr(232, 0, 0, 0), 8);
  });
  join(swp1, 0);
  for (std::uint32_t i = 1; i < 100; ++i) join(swp1, i);
  learning.report(swp1, host, group);
  EXPECT_THAT(told, ElementsAre(IgnoreReason::tooManyInterfaceGroups)) << "SSM is no limit";
  joined(swp2, 0, 2);
  EXPECT_EQ(told.size(), 2u) << "another port";
  advanceTo(60s);
  join(swp1, 5);
  EXPECT_EQ(told.size(), 3u);
}

TEST_F(LearningLimitsTest, WhatWasTurnedAwayIsRememberedForEachPort) {
  policyIs([](auto& policy) { policy.maxInterfaceGroups = 1; });
  joined(swp1, 0, 2);
  advanceTo(10s);
  join(swp1, 1);
  joined(swp2, 5, 1000);
  std::vector<std::tuple<IntfId, IpAddr, IgnoreReason, std::uint64_t>> entries;
  learning.turnedAway().forEach(
      groupNumber(1), [&](IntfId const& intf, TurnedAway::Entry const& entry) {
        entries.emplace_back(intf, entry.reporter, entry.reason, entry.times);
        EXPECT_EQ(entry.latest, 10s);
      });
  EXPECT_THAT(entries,
              ElementsAre(std::tuple(swp1, host, IgnoreReason::tooManyInterfaceGroups, 2u)));

  std::size_t remembered = 0;
  for (std::uint32_t i = 0; i < 2000; ++i)
    learning.turnedAway().forEach(groupNumber(i), [&](auto const&, auto const&) { ++remembered; });
  EXPECT_EQ(remembered, 1 + TurnedAway::perPort);
  learning.portDel(swp1);
  learning.turnedAway().forEach(groupNumber(1), [](auto const&, auto const&) { FAIL(); });
}

}  // namespace
