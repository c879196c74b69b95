#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "proxy/ProxyAdapterSm.h"
#include "tests/TraceCapture.h"
#include "tests/proxy/SnoopedVlan.h"

namespace Bridging::IgmpSnooping::Proxy::Testing {
namespace {

/// Watches the counts of a group, and acts inside the nth notification that they raise.
class Intruder : public SourceCount::NotifieeConst {
 public:
  Intruder(Kel::Ptr<SourceCount const> counts, int nth, std::function<void()> action)
      : countdown_(nth), action_(std::move(action)) {
    watch(std::move(counts));
  }

  void onStarGCount() override { notified(); }
  void onInclude(IpAddr) override { notified(); }
  void onExclude(IpAddr) override { notified(); }

  bool hasActed() const { return countdown_ == 0; }

 private:
  void notified() {
    if (countdown_ > 0 && --countdown_ == 0) action_();
  }

  int countdown_;
  std::function<void()> action_;
};

/// A group of two ports, one with two reporters.
struct CountedVlan : ProxiedVlan {
  CountedVlan() {
    proxyOn("up");
    port("swp1").reports(g1, r1).include({s1, s2});
    port("swp1").reports(g1, r2).include({s2});
    port("swp2").reports(g1, r1).exclude({s3});
    publish();
  }
};

struct Action {
  char const* name;
  void (*run)(CountedVlan&);
};

/// What changes the counts.
struct Cause {
  char const* name;
  void (*run)(CountedVlan&);
};

Action const actions[] = {
    {"TheGroupIsRemoved", [](CountedVlan& vlan) { vlan.status->groupDel(g1); }},
    {"ThePortIsRemoved",
     [](CountedVlan& vlan) {
       if (auto const group = vlan.adapter ? vlan.group() : nullptr)
         group->igmpIntfDel(IntfId("swp1"));
     }},
    {"AReporterIsRemoved",
     [](CountedVlan& vlan) {
       if (auto const port = vlan.intf("swp1")) port->membershipDel(r1);
     }},
    {"TheAdapterIsDropped", [](CountedVlan& vlan) { vlan.adapter = nullptr; }},
    {"TheRecordIsDeleted", [](CountedVlan& vlan) { vlan.group()->recordDel(); }},
    {"TheOtherReporterChanges", [](CountedVlan& vlan) { vlan.snooped("swp1", r2)->sourceIs(s4); }},
    {"AnEvaluationBegins",
     [](CountedVlan& vlan) {
       vlan.snooped("swp1", r2)->sourceIs(s4);
       vlan.intf("swp1")->portChangedInc(1);
     }},
};

Cause const causes[] = {
    {"AReporterIncludes",
     [](CountedVlan& vlan) {
       Reporter(vlan.snooped("swp1")).include({s1, s3, s4});
     }},
    {"AReporterExcludes",
     [](CountedVlan& vlan) {
       Reporter(vlan.snooped("swp1")).exclude({s1, s3});
     }},
    {"AReporterComes", [](CountedVlan& vlan) { vlan.port("swp1").reports(g1, r3); }},
    {"APortComes", [](CountedVlan& vlan) { vlan.port("swp3").reports(g1, r1); }},
    {"AReporterIsReplaced",
     [](CountedVlan& vlan) {
       auto const next = Kel::make<IgmpMembership>(r1);
       next->sourceIs(s2);
       vlan.status->group(g1)->intf(IntfId("swp1"))->membershipIs(next);
       Kel::runActivities();
     }},
    {"ASourceIsCountedByWhoDoesNotHoldThePort",
     [](CountedVlan& vlan) {
       KelIgmpIntf* const port = vlan.intf("swp1").get();
       port->portIncludeInc(s4, 1);
     }},
    {"ASourceIsDeletedByWhoDoesNotHoldThePort",
     [](CountedVlan& vlan) {
       KelIgmpIntf* const port = vlan.intf("swp1").get();
       port->portIncludeDel(s1);
     }},
};

using Interruption = std::tuple<Action, Cause, int, bool>;

std::string nameOf(Interruption const& interruption) {
  auto const& [action, cause, nth, traced] = interruption;
  return std::string(action.name) + "While" + cause.name + std::to_string(nth) +
         (traced ? "Traced" : "");
}

/// While the counts change, somebody who watches them does something, with traces off and on.
class WatchedCounts : public ::testing::TestWithParam<Interruption> {
 protected:
  void SetUp() override {
    auto const& [action, cause, nth, traced] = GetParam();
    if (traced) trace.emplace(std::initializer_list<int>{4});
    auto const act = [this, run = action.run] { run(vlan); };
    auto const intruder = Kel::make<Intruder>(vlan.group()->record(), nth, act);
    cause.run(vlan);
  }

  std::optional<TraceCapture> trace;
  CountedVlan vlan;
};

TEST_P(WatchedCounts, WhatIsLeftCountsOn) {
  if (!vlan.adapter) return;
  if (auto const group = vlan.group(); group && !group->igmpIntf(IntfId("swp1"))) return;
  vlan.port("swp1").reports(g1, r2).include({s2, s4});
  auto const wanted = vlan.snooped("swp1", r2)->source().keys();
  vlan.publish();
  ASSERT_TRUE(vlan.intf("swp1"));
  for (IpAddr const source : wanted) {
    bool const excludes = vlan.intf("swp1")->mode() == FilterMode::exclude;
    EXPECT_TRUE(excludes || vlan.intf("swp1")->portInclude(source) != 0) << source;
  }
}

INSTANTIATE_TEST_SUITE_P(Interruptions, WatchedCounts,
                         ::testing::Combine(::testing::ValuesIn(actions),
                                            ::testing::ValuesIn(causes), ::testing::Range(1, 6),
                                            ::testing::Bool()),
                         [](auto const& tested) { return nameOf(tested.param); });

class CountWatcherTest : public SnoopedVlan {};

TEST_F(CountWatcherTest, ChangeOfAReporterInsideANotificationIsEvaluated) {
  port("swp1").reports(g1, r1).include({s1});
  port("swp1").reports(g1, r2).include({s2});
  auto const other = snooped("swp1", r2);
  auto const intruder = Kel::make<Intruder>(group()->record(), 1, [other] { other->sourceIs(s4); });
  Reporter(snooped("swp1", r1)).include({s1, s3});
  EXPECT_TRUE(intruder->hasActed());
  EXPECT_EQ(countsOf(intf("swp1")->portInclude()),
            (CountBySource{{s1, 1}, {s2, 1}, {s3, 1}, {s4, 1}}));
}

TEST_F(CountWatcherTest, EvaluationTellsOfEachSourceOnce) {
  port("swp1").reports(g1, r1).include({s1, s2});
  int notifications = 0;
  struct Counter : SourceCount::NotifieeConst {
    Counter(Kel::Ptr<SourceCount const> counts, int& heard) : heard_(heard) {
      watch(std::move(counts));
    }
    void onInclude(IpAddr) override { ++heard_; }
    int& heard_;
  };
  auto const watcher = Kel::make<Counter>(group()->record(), notifications);
  Reporter(snooped("swp1", r1)).include({s3});
  EXPECT_EQ(notifications, 3);
}

TEST_F(CountWatcherTest, GroupReactorThatOutlivesItsAdapterLeavesItAlone) {
  port("swp1").reports(g1);
  auto const reactor = adapter->newIgmpGroup(status->group(g1));
  EXPECT_TRUE(reactor->igmpHostChanged());
  reactor->igmpHostChangedIs(false);
  adapter = nullptr;
  reactor->igmpHostChangedIs(true);
  EXPECT_TRUE(reactor->igmpHostChanged());
  reactor->kelDoZombieReactors(true);
  EXPECT_FALSE(reactor->igmpHostChanged());
}

TEST_F(CountWatcherTest, GroupReactorThatWasNeverInsertedMayGoWhileItIsFlagged) {
  port("swp1").reports(g1);
  adapter->newIgmpGroup(status->group(g1));
  publish();
  EXPECT_FALSE(changed());
}

TEST_F(CountWatcherTest, ThreadThatOnlyNotifiesEvaluates) {
  port("swp1").reports(g1).include({s1});
  intf("swp1")->portIncludeDel(s1);
  auto const membership = snooped("swp1");
  std::thread([membership] {
    membership->filterModeNotify();
    Kel::runActivities();
  }).join();
  EXPECT_EQ(countsOf(intf("swp1")->portInclude()), (CountBySource{{s1, 1}}));
}

TEST_F(CountWatcherTest, AdapterMayRunOnASecondThread) {
  std::thread([this] {
    proxyOn("up");
    port("swp1").reports(g1).include({s1});
    publish();
    EXPECT_EQ(record("up"), including({s1}));
    adapter = nullptr;
  }).join();
  EXPECT_EQ(adapter, nullptr);
}

}  // namespace
}  // namespace Bridging::IgmpSnooping::Proxy::Testing
