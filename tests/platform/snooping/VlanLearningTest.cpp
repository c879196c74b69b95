#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/kel/Reactors.h"
#include "tests/platform/snooping/LearningTesting.h"

namespace {

using namespace SnoopingTest;
using namespace IgmpTest;
using namespace std::chrono_literals;
using Bridging::IgmpSnooping::IgmpGroup;
using Bridging::IgmpSnooping::IgmpIntfStatus;
using Bridging::IgmpSnooping::SnoopingPolicy;
using Bridging::IgmpSnooping::VlanLearning;
using Igmp::IgnoreReason;
using testing::ElementsAre;
using testing::IsEmpty;

class VlanLearningTest : public LearningTesting {
 protected:
  VlanLearningTest() { policyIs({}); }

  void policyIs(SnoopingPolicy const& policy) {
    learning.reset();
    learning = std::make_unique<VlanLearning>(status, policy, wheel, batch);
  }

  std::optional<IgnoreReason> record(IntfId const& intf, IpAddr reporter, Record const& record) {
    return learning->record(intf, reporter, *ParsedRecord(record));
  }

  /// A reporter's filter, if it is a member.
  std::optional<Filter> filter(IntfId const& intf, IpAddr reporter, IpAddr address = group) const {
    auto const groupStatus = status->group(address);
    auto const intfStatus = groupStatus ? groupStatus->intf(intf) : nullptr;
    auto const membership = intfStatus ? intfStatus->membership(reporter) : nullptr;
    if (!membership) return std::nullopt;
    return filterOf(*membership);
  }

  bool member(IntfId const& intf, IpAddr reporter, IpAddr address = group) const {
    return filter(intf, reporter, address).has_value();
  }

  std::unique_ptr<VlanLearning> learning;
};

// ---- What is learned

TEST_F(VlanLearningTest, MembershipBelongsToGroupPortAndReporter) {
  record(swp1, host, isIn(group, {a}));
  record(swp1, otherHost, isIn(group, {b}));
  record(swp2, host, isEx(group, {c}));
  record(swp1, host, isEx(otherGroup));
  EXPECT_EQ(filter(swp1, host), include({a}));
  EXPECT_EQ(filter(swp1, otherHost), include({b}));
  EXPECT_EQ(filter(swp2, host), exclude({c}));
  EXPECT_EQ(filter(swp1, host, otherGroup), exclude({}));
}

TEST_F(VlanLearningTest, MembershipKnowsSinceWhenItIsThereWithoutABreak) {
  auto const since = [&](IpAddr reporter) {
    auto const membership = status->group(group)->intf(swp1)->membership(reporter);
    return static_cast<Bridging::IgmpSnooping::LearnedMembership const&>(*membership).since();
  };
  advanceTo(7s);
  record(swp1, host, isEx(group));
  endBatch();
  advanceTo(100s);
  record(swp1, host, isIn(group, {a}));
  record(swp1, otherHost, isEx(group));
  endBatch();
  EXPECT_EQ(since(host), 7s) << "it was renewed";
  EXPECT_EQ(since(otherHost), 100s);
  record(swp1, host, toIn(group));
  record(swp1, otherHost, toIn(group));
  endBatch();
  advanceTo(110s);
  record(swp1, host, isEx(group));
  endBatch();
  EXPECT_EQ(since(host), 110s) << "it had left";
}

TEST_F(VlanLearningTest, GroupsAreToldAsTheyChange) {
  std::vector<IpAddr> told;
  batch.onGroupIs([&](Bridging::VlanId vlan, IpAddr changed) {
    EXPECT_EQ(vlan, Bridging::VlanId(10));
    told.push_back(changed);
  });
  record(swp1, host, isEx(group));
  EXPECT_EQ(std::exchange(told, {}), std::vector{group}) << "one that is new";
  record(swp1, host, isEx(group));
  EXPECT_EQ(told, std::vector<IpAddr>()) << "one that stays";
  record(swp1, host, isEx(group, {a}));
  EXPECT_EQ(std::exchange(told, {}), std::vector{group}) << "another filter";
  endBatch();
  EXPECT_EQ(told, std::vector<IpAddr>()) << "the end of a batch";
  advanceTo(wheel->now() + learning->policy().groupMembershipInterval());
  EXPECT_EQ(told, std::vector{group}) << "one whose time has run out";
  EXPECT_FALSE(member(swp1, host));
}

TEST_F(VlanLearningTest, RecordsChangeTheReportersOwnState) {
  record(swp1, host, allow(group, {a, b}));
  record(swp1, host, block(group, {b}));
  EXPECT_EQ(filter(swp1, host), include({a}));
  record(swp1, host, toEx(group, {c}));
  record(swp1, host, allow(group, {c}));
  EXPECT_EQ(filter(swp1, host), exclude({}));
}

TEST_F(VlanLearningTest, ReportOfAnOlderVersionWantsEverySource) {
  learning->report(swp1, host, group);
  EXPECT_EQ(filter(swp1, host), exclude({}));
  record(swp1, host, isIn(group, {a}));
  learning->report(swp1, host, group);
  EXPECT_EQ(filter(swp1, host), exclude({}));
}

TEST_F(VlanLearningTest, WhoIncludesNothingHasLeftAtOnce) {
  record(swp1, host, isEx(group));
  record(swp1, host, toIn(group));
  endBatch();
  EXPECT_TRUE(status->group().empty());

  record(swp1, host, allow(group, {a}));
  record(swp1, host, block(group, {a}));
  endBatch();
  EXPECT_TRUE(status->group().empty());
}

TEST_F(VlanLearningTest, WhoIsNoMemberCannotLeave) {
  record(swp1, host, toIn(group));
  record(swp1, host, block(group, {a}));
  learning->leave(swp1, host, group);
  EXPECT_TRUE(status->group().empty());
}

TEST_F(VlanLearningTest, PortAndGroupGoWithTheirLastMember) {
  learning->report(swp1, host, group);
  learning->report(swp1, otherHost, group);
  learning->report(swp2, host, group);
  record(swp1, host, toIn(group));
  endBatch();
  EXPECT_TRUE(member(swp1, otherHost));
  record(swp1, otherHost, toIn(group));
  endBatch();
  ASSERT_TRUE(status->group(group));
  EXPECT_FALSE(status->group(group)->intf(swp1));
  EXPECT_TRUE(member(swp2, host));
  record(swp2, host, toIn(group));
  endBatch();
  EXPECT_FALSE(status->group(group));
}

// ---- Timers

TEST_F(VlanLearningTest, MembershipExpiresAfterRobustnessTimesQueryIntervalPlusTwoResponseTimes) {
  SnoopingPolicy policy;
  policy.robustnessVariable = 3;
  policy.queryInterval = 20s;
  policy.queryMaxResponseTime = 5s;
  policyIs(policy);
  advanceTo(1000s);
  record(swp1, host, isIn(group, {a}));
  advanceTo(1070s - 1ms);
  EXPECT_TRUE(member(swp1, host));
  advanceTo(1070s);
  EXPECT_FALSE(member(swp1, host));
}

TEST_F(VlanLearningTest, DefaultLifetimeIs270Seconds) {
  learning->report(swp1, host, group);
  advanceTo(270s - 1ms);
  EXPECT_TRUE(member(swp1, host));
  advanceTo(270s);
  EXPECT_FALSE(member(swp1, host));
}

TEST_F(VlanLearningTest, EveryReportOfAReporterStartsItsTimerAnew) {
  learning->report(swp1, host, group);
  advanceTo(100s);
  learning->report(swp1, host, group);  // says nothing new
  advanceTo(200s);
  record(swp1, host, isEx(group, {a}));
  advanceTo(470s - 1ms);
  EXPECT_TRUE(member(swp1, host));
  advanceTo(470s);
  EXPECT_FALSE(member(swp1, host));
}

TEST_F(VlanLearningTest, TimersOfReportersAreTheirOwn) {
  learning->report(swp1, host, group);
  advanceTo(100s);
  learning->report(swp1, otherHost, group);
  advanceTo(270s);
  EXPECT_FALSE(member(swp1, host));
  EXPECT_TRUE(member(swp1, otherHost));
}

TEST_F(VlanLearningTest, LeaveShortensTheTimerToRobustnessTimesLastMemberQueryInterval) {
  SnoopingPolicy policy;
  policy.robustnessVariable = 3;
  policy.lastMemberQueryInterval = 2s;
  policyIs(policy);
  learning->report(swp1, host, group);
  learning->report(swp1, otherHost, group);
  advanceTo(10s);
  learning->leave(swp1, host, group);
  advanceTo(16s - 1ms);
  EXPECT_TRUE(member(swp1, host));
  advanceTo(16s);
  EXPECT_FALSE(member(swp1, host));
  EXPECT_TRUE(member(swp1, otherHost));
}

TEST_F(VlanLearningTest, LeaveNeverLengthensTheTimer) {
  learning->report(swp1, host, group);
  advanceTo(10s);
  learning->leave(swp1, host, group);
  advanceTo(11s);
  learning->leave(swp1, host, group);  // leaves are repeated
  advanceTo(12s);
  EXPECT_FALSE(member(swp1, host));
}

TEST_F(VlanLearningTest, ReportAfterALeaveTakesItBack) {
  learning->report(swp1, host, group);
  learning->leave(swp1, host, group);
  advanceTo(1s);
  learning->report(swp1, host, group);
  advanceTo(271s - 1ms);
  EXPECT_TRUE(member(swp1, host));
  advanceTo(271s);
  EXPECT_FALSE(member(swp1, host));
}

TEST_F(VlanLearningTest, FastLeaveRemovesTheReporterAtOnce) {
  SnoopingPolicy policy;
  policy.fastLeave = true;
  policyIs(policy);
  learning->report(swp1, host, group);
  learning->report(swp1, otherHost, group);
  learning->leave(swp1, host, group);
  endBatch();
  EXPECT_FALSE(member(swp1, host));
  EXPECT_TRUE(member(swp1, otherHost)) << "another reporter of the port has not left";
}

// ---- Policy

TEST_F(VlanLearningTest, ChangedPolicyKeepsMembershipsAndHoldsFromTheNextReportOn) {
  record(swp1, host, isIn(group, {a}));
  learning->report(swp1, otherHost, group);
  SnoopingPolicy policy;
  policy.queryInterval = 10s;
  policy.maxGroups = 1;
  learning->policyIs(policy);
  EXPECT_EQ(filter(swp1, host), include({a}));
  record(swp1, host, isIn(group, {a}));
  EXPECT_EQ(learning->report(swp1, host, otherGroup), IgnoreReason::tooManyGroups);
  advanceTo(40s);
  EXPECT_FALSE(member(swp1, host));
  advanceTo(270s - 1ms);
  EXPECT_TRUE(member(swp1, otherHost)) << "has its time from its report";
}

TEST_F(VlanLearningTest, GroupsBeyondALoweredLimitStay) {
  learning->report(swp1, host, group);
  learning->report(swp1, host, otherGroup);
  SnoopingPolicy policy;
  policy.maxGroups = 1;
  learning->policyIs(policy);
  EXPECT_TRUE(member(swp1, host, group));
  EXPECT_TRUE(member(swp1, host, otherGroup));
  EXPECT_EQ(learning->report(swp1, otherHost, otherGroup), std::nullopt);
}

TEST_F(VlanLearningTest, SourcesBeyondALoweredLimitStayWhileTheyAreRepeated) {
  record(swp1, host, isIn(group, {a, b}));
  SnoopingPolicy policy;
  policy.maxGroupSources = 1;
  learning->policyIs(policy);
  EXPECT_EQ(record(swp1, host, isIn(group, {a, b})), std::nullopt);
  EXPECT_EQ(record(swp1, host, isIn(group, {b, a})), std::nullopt);
  EXPECT_EQ(record(swp1, host, isIn(group, {a, c})), IgnoreReason::tooManySources);
  EXPECT_EQ(filter(swp1, host), include({a, b}));
  advanceTo(100s);
  EXPECT_EQ(record(swp1, host, allow(group, {a, c})), IgnoreReason::tooManySources);
  advanceTo(270s);
  EXPECT_EQ(filter(swp1, host), include({a})) << "what a refused report repeats is renewed";
}

// ---- Limits

TEST_F(VlanLearningTest, NoMoreGroupsThanAllowed) {
  SnoopingPolicy policy;
  policy.maxGroups = 1;
  policyIs(policy);
  EXPECT_EQ(learning->report(swp1, host, group), std::nullopt);
  EXPECT_EQ(learning->report(swp1, host, otherGroup), IgnoreReason::tooManyGroups);
  EXPECT_EQ(record(swp1, host, isIn(otherGroup, {a})), IgnoreReason::tooManyGroups);
  EXPECT_FALSE(status->group(otherGroup));
  EXPECT_EQ(record(swp1, host, toIn(otherGroup)), std::nullopt) << "wants no group";

  EXPECT_EQ(learning->report(swp2, otherHost, group), std::nullopt) << "no new group";
  EXPECT_EQ(record(swp1, host, isIn(group, {a})), std::nullopt);

  record(swp1, host, toIn(group));
  record(swp2, otherHost, toIn(group));
  EXPECT_EQ(learning->report(swp1, host, otherGroup), std::nullopt);
}

TEST_F(VlanLearningTest, NoMoreSourcesOfAReporterThanAllowed) {
  SnoopingPolicy policy;
  policy.maxGroupSources = 2;
  policyIs(policy);
  EXPECT_EQ(record(swp1, host, isIn(group, {a, b, c})), IgnoreReason::tooManySources);
  EXPECT_EQ(filter(swp1, host), include({a, b})) << "what goes beyond is refused, no more";
  EXPECT_EQ(record(swp1, host, isIn(group, {a, b})), std::nullopt);
  EXPECT_EQ(record(swp1, host, allow(group, {c})), IgnoreReason::tooManySources);
  EXPECT_EQ(filter(swp1, host), include({a, b}));
  EXPECT_EQ(record(swp1, host, toEx(group, {a, b, c})), IgnoreReason::tooManySources);
  EXPECT_EQ(filter(swp1, host), exclude({a, b})) << "wants more than it asks for";
  EXPECT_EQ(record(swp1, otherHost, isIn(group, {b, c})), std::nullopt) << "another reporter";
}

// ---- Turns

/// Reads the status as the proxy does: of groups it hears at once, of all below when activities
/// run. It writes down what it hears, and what memberships said at that time.
class Reader {
 public:
  using Log = std::vector<std::string>;

  explicit Reader(Kel::Ptr<IgmpContextStatus const> const& status)
      : status_(Kel::make<Status>(status, *this)) {}

  Log takeLog() { return std::exchange(log_, {}); }

 private:
  class Membership final : public IgmpMembership::NotifieeConst {
   public:
    Membership(Kel::Ptr<IgmpMembership const> const& membership, Reader& reader)
        : NotifieeConst(Delivery::byActivity), reader_(reader) {
      watch(membership);
      say("appears as ");
    }
    Kel::ActivityConfig* kelFwkActivity() const override { return reader_.activity_.get(); }
    void onFilterMode() override { say("says "); }
    void onSource(IpAddr /*source*/) override { say("says "); }

   private:
    void say(char const* verb) {
      std::ostringstream text;
      text << notifier()->addr() << ' ' << verb << filterOf(*notifier());
      reader_.note(text.str());
    }
    Reader& reader_;
  };

  class Intf final : public IgmpIntfStatus::NotifieeConst {
   public:
    Intf(Kel::Ptr<IgmpIntfStatus const> const& intf, Reader& reader)
        : NotifieeConst(Delivery::byActivity), reader_(reader) {
      watch(intf);
      for (IpAddr const reporter : intf->membership().keys()) onMembership(reporter);
    }
    Kel::ActivityConfig* kelFwkActivity() const override { return reader_.activity_.get(); }
    void onMembership(IpAddr reporter) override {
      if (Kel::Ptr<IgmpMembership const> const membership = notifier()->membership(reporter)) {
        memberships_.watch(reporter, membership,
                           [&] { return Kel::make<Membership>(membership, reader_); });
      } else {
        std::ostringstream text;
        text << reporter << " goes";
        reader_.note(text.str());
        memberships_.del(reporter);
      }
    }

   private:
    Reader& reader_;
    Kel::Reactors<IpAddr, Membership> memberships_;
  };

  class Group final : public IgmpGroup::NotifieeConst {
   public:
    Group(Kel::Ptr<IgmpGroup const> const& status, Reader& reader)
        : NotifieeConst(Delivery::byActivity), reader_(reader) {
      watch(status);
    }
    Kel::ActivityConfig* kelFwkActivity() const override { return reader_.activity_.get(); }
    void onIntf(IntfId intf) override {
      if (Kel::Ptr<IgmpIntfStatus const> const status = notifier()->intf(intf))
        intfs_.watch(intf, status, [&] { return Kel::make<Intf>(status, reader_); });
      else
        intfs_.del(intf);
    }

   private:
    Reader& reader_;
    Kel::Reactors<IntfId, Intf> intfs_;
  };

  class Status final : public IgmpContextStatus::NotifieeConst {
   public:
    Status(Kel::Ptr<IgmpContextStatus const> const& status, Reader& reader) : reader_(reader) {
      watch(status);
    }
    void onGroup(IpAddr address) override {
      if (Kel::Ptr<IgmpGroup const> const status = notifier()->group(address)) {
        reader_.note("group");
        groups_.watch(address, status, [&] { return Kel::make<Group>(status, reader_); });
      } else {
        reader_.note("no group");
        groups_.del(address);
      }
    }
    void onNewIgmpReport() override { reader_.log_.emplace_back("report"); }

   private:
    Reader& reader_;
    Kel::Reactors<IpAddr, Group> groups_;
  };

  /// What is heard several times in a row, once for each source, is written down once.
  void note(std::string const& text) {
    if (log_.empty() || log_.back() != text) log_.push_back(text);
  }

  Kel::Ptr<Kel::ActivityConfig> activity_ = Kel::make<Kel::ActivityConfig>();
  Log log_;
  Kel::Ptr<Status> status_;
};

class VlanLearningTurnTest : public VlanLearningTest {
 protected:
  Reader reader{status};
};

TEST_F(VlanLearningTurnTest, NewReporterAppearsBeforeItSaysAnythingAndTheReportComesLast) {
  record(swp1, host, isIn(group, {a, b}));
  EXPECT_THAT(reader.takeLog(), ElementsAre("group"));
  batch.publish();
  EXPECT_THAT(reader.takeLog(),
              ElementsAre("10.0.0.1 appears as include(192.0.2.1, 192.0.2.2)",
                          "10.0.0.1 says include(192.0.2.1, 192.0.2.2)", "report"));
}

TEST_F(VlanLearningTurnTest, ReporterOnAKnownPortAppearsBeforeItSaysAnything) {
  learning->report(swp1, host, group);
  batch.publish();
  reader.takeLog();
  record(swp1, otherHost, isIn(group, {a}));
  batch.publish();
  EXPECT_THAT(reader.takeLog(), ElementsAre("10.0.0.2 appears as include(192.0.2.1)",
                                            "10.0.0.2 says include(192.0.2.1)", "report"));
}

TEST_F(VlanLearningTurnTest, NewReporterThatWantsEverySourceSaysSo) {
  record(swp1, host, isEx(group, {a}));
  batch.publish();
  reader.takeLog();
  learning->report(swp1, otherHost, group);
  batch.publish();
  EXPECT_THAT(reader.takeLog(),
              ElementsAre("10.0.0.2 appears as exclude()", "10.0.0.2 says exclude()", "report"));
}

TEST_F(VlanLearningTurnTest, ChangeOfModeAndSourcesIsHeardAsOneState) {
  record(swp1, host, isIn(group, {a, b}));
  batch.publish();
  reader.takeLog();
  record(swp1, host, toEx(group, {b, c}));
  batch.publish();
  EXPECT_THAT(reader.takeLog(),
              ElementsAre("10.0.0.1 says exclude(192.0.2.2, 192.0.2.3)", "report"));
}

TEST_F(VlanLearningTurnTest, WhoLeavesWithdrawsWhatItSaidBeforeItGoes) {
  record(swp1, host, isEx(group, {a}));
  batch.publish();
  reader.takeLog();
  record(swp1, host, toIn(group));
  batch.publish();
  EXPECT_THAT(reader.takeLog(), ElementsAre("10.0.0.1 says include()", "no group", "report"));
}

TEST_F(VlanLearningTurnTest, WhoStaysOnThePortIsReadAgain) {
  record(swp1, host, isEx(group, {a}));
  record(swp1, otherHost, isEx(group, {a, b}));
  batch.publish();
  reader.takeLog();
  record(swp1, host, toIn(group));
  batch.publish();
  EXPECT_THAT(reader.takeLog(),
              ElementsAre("10.0.0.1 says include()", "10.0.0.1 goes",
                          "10.0.0.2 says exclude(192.0.2.1, 192.0.2.2)", "report"));
}

TEST_F(VlanLearningTurnTest, WhoTimesOutLeavesInTheSameTurns) {
  record(swp1, host, isIn(group, {a}));
  learning->report(swp2, otherHost, group);
  advanceTo(1s);
  learning->report(swp2, otherHost, group);
  batch.publish();
  reader.takeLog();
  wheel->advanceTo(270s);
  batch.publish();
  EXPECT_THAT(reader.takeLog(), ElementsAre("10.0.0.1 says include()", "10.0.0.1 goes", "report"));
}

TEST_F(VlanLearningTurnTest, KnownStateIsHeardByNobody) {
  record(swp1, host, isIn(group, {a, b}));
  batch.publish();
  reader.takeLog();
  record(swp1, host, isIn(group, {b, a}));
  record(swp1, host, allow(group, {a}));
  record(swp1, host, block(group, {c}));
  batch.publish();
  EXPECT_THAT(reader.takeLog(), IsEmpty());
}

TEST_F(VlanLearningTurnTest, ReportsOfABatchShareOneReportPerVlan) {
  auto const otherStatus = Kel::make<IgmpContextStatus>(Bridging::VlanId(20));
  VlanLearning otherLearning(otherStatus, {}, wheel, batch);
  Reader otherReader(otherStatus);
  learning->report(swp1, host, group);
  learning->report(swp1, otherHost, group);
  learning->report(swp2, host, otherGroup);
  otherLearning.report(swp1, host, group);
  EXPECT_THAT(reader.takeLog(), testing::Not(testing::Contains("report")));
  batch.publish();
  EXPECT_THAT(reader.takeLog(), testing::Contains("report").Times(1));
  EXPECT_THAT(otherReader.takeLog(), testing::Contains("report").Times(1));
  batch.publish();
  EXPECT_THAT(reader.takeLog(), IsEmpty());
}

TEST_F(VlanLearningTurnTest, IgnoredReportIsHeardByNobody) {
  SnoopingPolicy policy;
  policy.maxGroups = 1;
  policy.maxGroupSources = 1;
  policyIs(policy);
  learning->report(swp1, host, group);
  batch.publish();
  reader.takeLog();
  learning->report(swp1, host, otherGroup);
  record(swp1, host, block(group, {a}));
  batch.publish();
  reader.takeLog();
  record(swp1, host, block(group, {b}));
  batch.publish();
  EXPECT_THAT(reader.takeLog(), IsEmpty());
}

// ---- End

TEST_F(VlanLearningTest, LearningThatEndsForgetsEverythingAndStopsEveryTimer) {
  learning->report(swp1, host, group);
  learning->report(swp2, host, otherGroup);
  auto const held = status->group(group)->intf(swp1)->membership(host);
  learning.reset();
  EXPECT_TRUE(status->group().empty());
  EXPECT_EQ(wheel->nextExpiry(), std::nullopt);
  advanceTo(1000s);
  EXPECT_EQ(filterOf(*held), exclude({}));
}

// ---- Forgetting

class VlanLearningForgetTest : public VlanLearningTest {
 protected:
  VlanLearningForgetTest() {
    record(swp1, host, isIn(group, {a}));
    record(swp1, otherHost, isEx(group, {b}));
    record(swp2, host, isEx(group));
    record(swp1, host, isEx(otherGroup));
  }
};

TEST_F(VlanLearningForgetTest, GroupIsForgottenOnAllPorts) {
  learning->forgetGroup(group);
  endBatch();
  EXPECT_FALSE(status->group(group));
  EXPECT_TRUE(member(swp1, host, otherGroup));
}

TEST_F(VlanLearningForgetTest, PortIsForgottenInAllGroups) {
  learning->forgetPort(swp1);
  endBatch();
  EXPECT_FALSE(status->group(otherGroup));
  ASSERT_TRUE(status->group(group));
  EXPECT_FALSE(status->group(group)->intf(swp1));
  EXPECT_TRUE(member(swp2, host));
}

TEST_F(VlanLearningForgetTest, WhatIsUnknownIsForgottenWithoutAReport) {
  batch.publish();
  Reader reader(status);
  learning->forgetGroup(IpAddr(232, 9, 9, 9));
  learning->forgetPort(IntfId("swp9"));
  batch.publish();
  EXPECT_THAT(reader.takeLog(), IsEmpty());
  EXPECT_EQ(status->group().size(), 2u);
}

TEST_F(VlanLearningForgetTest, WhoIsForgottenMayComeBackAndNoTimerIsLeft) {
  learning->forgetPort(swp1);
  advanceTo(100s);
  learning->report(swp1, host, group);
  advanceTo(270s);
  EXPECT_TRUE(member(swp1, host)) << "the former membership's timer is gone";
}

TEST_F(VlanLearningForgetTest, AllWithdrawBeforeTheFirstOneGoesAndOneReportFollows) {
  endBatch();
  Reader reader(status);
  record(swp1, IpAddr(10, 0, 0, 3), isIn(IpAddr(232, 1, 1, 3), {a}));
  record(swp1, IpAddr(10, 0, 0, 4), isIn(IpAddr(232, 1, 1, 4), {a}));
  endBatch();
  reader.takeLog();
  learning->forgetGroup(IpAddr(232, 1, 1, 3));
  record(swp1, IpAddr(10, 0, 0, 4), toIn(IpAddr(232, 1, 1, 4)));
  endBatch();
  EXPECT_THAT(reader.takeLog(), ElementsAre("10.0.0.3 says include()", "10.0.0.4 says include()",
                                            "no group", "report"))
      << "a line that repeats is written down once";
}

TEST_F(VlanLearningForgetTest, WhoSpeaksUpInTheSameBatchStays) {
  record(swp2, host, toIn(group));
  EXPECT_FALSE(learning->hasMembers(swp2, group)) << "it wants nothing any more";
  record(swp2, host, toIn(group));
  record(swp2, host, block(group, {a}));
  EXPECT_FALSE(learning->hasMembers(swp2, group)) << "nor do these say that it wants something";
  learning->leave(swp2, host, group);
  record(swp2, host, allow(group, {c}));
  EXPECT_TRUE(learning->hasMembers(swp2, group));
  endBatch();
  EXPECT_EQ(filter(swp2, host), include({c}));
  advanceTo(270s - 1ms);
  EXPECT_TRUE(member(swp2, host));
  advanceTo(270s);
  EXPECT_FALSE(member(swp2, host));
}

TEST_F(VlanLearningForgetTest, GroupThatWasLeftMakesRoomInTheSameBatch) {
  SnoopingPolicy policy;
  policy.maxGroups = 2;
  learning->policyIs(policy);
  record(swp1, host, toIn(otherGroup));
  EXPECT_EQ(record(swp1, host, isEx(IpAddr(232, 1, 1, 3))), std::nullopt);
  EXPECT_EQ(record(swp1, host, isEx(otherGroup)), IgnoreReason::tooManyGroups);
  endBatch();
  EXPECT_EQ(status->group().size(), 2u);
}

TEST_F(VlanLearningForgetTest, WhoLeavesTwiceInABatchHasLeft) {
  record(swp1, host, toIn(otherGroup));
  record(swp1, host, toEx(otherGroup));
  record(swp1, host, toIn(otherGroup));
  learning->forgetPort(swp1);
  endBatch();
  EXPECT_FALSE(status->group(otherGroup));
  record(swp1, host, toEx(otherGroup));
  EXPECT_EQ(filter(swp1, host, otherGroup), exclude({}));
}

TEST_F(VlanLearningForgetTest, LearningMayEndBeforeTheBatch) {
  record(swp1, host, toIn(otherGroup));
  learning.reset();
  endBatch();
  EXPECT_TRUE(status->group().empty());
}

// ---- What is wanted for how long

TEST_F(VlanLearningForgetTest, TellsWhetherASourceIsWantedBeyondATime) {
  std::size_t looks = 100;
  EXPECT_TRUE(learning->wants(swp1, group, a, 269s, looks)) << "included, and not excluded";
  EXPECT_FALSE(learning->wants(swp1, group, a, 270s, looks));
  EXPECT_FALSE(learning->wants(swp1, group, b, 1s, looks))
      << "one includes another one, one excludes it";
  EXPECT_TRUE(learning->wants(swp1, group, c, 269s, looks));
  EXPECT_FALSE(learning->wants(swp2, otherGroup, a, 1s, looks));
  EXPECT_FALSE(learning->wants(swp1, IpAddr(232, 9, 9, 9), a, 1s, looks));
}

TEST_F(VlanLearningForgetTest, TellsWhetherEverySourceIsWantedBeyondATime) {
  std::size_t looks = 100;
  EXPECT_TRUE(learning->wantsEverySource(swp1, group, 269s, looks));
  EXPECT_FALSE(learning->wantsEverySource(swp1, group, 270s, looks));
  learning->forget(*learning->membership(swp1, otherHost, group));
  EXPECT_FALSE(learning->wantsEverySource(swp1, group, 1s, looks)) << "who is left includes one";
  EXPECT_FALSE(learning->wantsEverySource(swp2, otherGroup, 1s, looks));
}

}  // namespace
