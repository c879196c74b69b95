#include <functional>
#include <ostream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "proxy/ProxyAdapterSm.h"
#include "tests/TraceCapture.h"
#include "tests/proxy/SnoopedVlan.h"

namespace Bridging::IgmpSnooping::Proxy::Testing {
namespace {

/// Watches hosts, their records and the records' source lists, and acts inside the nth
/// notification that any of them raises. It may stop watching before it acts.
class Intruder {
 public:
  Intruder(int nth, bool leaves, std::function<void()> action)
      : countdown_(nth), leaves_(leaves), action_(std::move(action)) {}

  void watch(Kel::Ptr<Igmp::IgmpHost> const& host) {
    reactors_.push_back(Kel::make<OfHost>(host, *this));
    for (auto const& [address, record] : host->v3group()) watch(record);
  }

  bool hasActed() const { return countdown_ == 0; }

 private:
  struct OfList : Igmp::IgmpV3HostGroupSourceList::NotifieeConst {
    OfList(Kel::Ptr<Igmp::IgmpV3HostGroupSourceList const> list, Intruder& owner) : owner_(owner) {
      NotifieeConst::watch(std::move(list));
    }
    void onSourceIp(IpAddr) override { owner_.notified(); }
    Intruder& owner_;
  };
  struct OfRecord : Igmp::IgmpV3GroupRecord::NotifieeConst {
    OfRecord(Kel::Ptr<Igmp::IgmpV3GroupRecord const> record, Intruder& owner) : owner_(owner) {
      NotifieeConst::watch(std::move(record));
    }
    void onFilterMode() override { owner_.notified(); }
    void onSource() override {
      if (notifier()->source()) owner_.watch(notifier()->source());
      owner_.notified();
    }
    Intruder& owner_;
  };
  struct OfHost : Igmp::IgmpHost::NotifieeConst {
    OfHost(Kel::Ptr<Igmp::IgmpHost const> host, Intruder& owner) : owner_(owner) {
      NotifieeConst::watch(std::move(host));
    }
    void onV3group(IpAddr group) override {
      if (auto const record = notifier()->v3group(group)) owner_.watch(record);
      owner_.notified();
    }
    Intruder& owner_;
  };

  void watch(Kel::Ptr<Igmp::IgmpV3GroupRecord const> const& record) {
    reactors_.push_back(Kel::make<OfRecord>(record, *this));
    if (record->source()) watch(record->source());
  }
  void watch(Kel::Ptr<Igmp::IgmpV3HostGroupSourceList> const& list) {
    reactors_.push_back(Kel::make<OfList>(list, *this));
  }
  void notified() {
    if (countdown_ == 0 || --countdown_ > 0) return;
    if (leaves_) reactors_.clear();
    action_();
  }

  int countdown_;
  bool leaves_;
  std::function<void()> action_;
  std::vector<Kel::Ptr<Kel::Notifiee>> reactors_;
};

constexpr std::array hostPorts{"up1", "up2", "swp1"};

/// Two member ports, one of which has a host too, and two hosts without listeners.
struct BusyVlan : ProxiedVlan {
  BusyVlan() {
    for (auto const* const name : hostPorts) proxyOn(name);
    for (IpAddr const address : {g1, g2, g3}) {
      port("swp1").reports(address).include({s1, s2});
      port("swp2").reports(address).include({s3});
    }
    publish();
  }

  void flag(std::initializer_list<IpAddr> groups) const {
    for (IpAddr const address : groups)
      if (auto const reactor = adapter ? group(address) : nullptr) reactor->igmpHostChangedIs(true);
  }

  void goOverToAnotherStatus() {
    status = Kel::make<IgmpContextStatus>(vlanId);
    port("swp2").reports(g2).include({s4});
    if (adapter) adapter->coreStatusIs(status);
  }

  /// No host has a record of a group that has gone, and none without a key has any record. Not so
  /// where a host is missing, at which clearing stops, and where a key went with the adapter.
  void expectNoStaleRecord() const {
    for (auto const& [key, value] : config->hostKey())
      if (!hosts->igmpHost(key.hostName())) return;
    for (auto const* const name : hostPorts) {
      bool const hasKey = config->hostKey().contains(key(name));
      if (!adapter && !hasKey) continue;
      for (auto const& [address, record] : host(name)->v3group()) {
        EXPECT_TRUE(hasKey) << name << " has no key";
        EXPECT_TRUE(adapter && group(address) && !group(address)->isZombie())
            << name << " has kept a record of " << address;
      }
    }
  }

  /// Writing the records of unchanged groups once more changes none of them.
  void expectRecordsAsCounted() const {
    if (!adapter) return;
    for (auto const* const name : hostPorts) {
      if (!config->hostKey(key(name))) continue;
      for (auto const& [address, reactor] : adapter->igmpGroup()) {
        if (reactor->isZombie()) continue;
        auto const before = record(name, address);
        adapter->processSplitHorizon(key(name), address);
        EXPECT_EQ(before, record(name, address)) << name << ' ' << address;
      }
    }
  }
};

/// What a callback does to those who called it. Some change counts or records that were written
/// already; counts are meant to change while activities run, never in the middle of an update.
struct Action {
  char const* name;
  void (*run)(BusyVlan&);
  bool outdatesRecords = false;
};

/// What makes the adapter write or clear records.
struct Cause {
  char const* name;
  void (*run)(BusyVlan&);
};

Action const actions[] = {
    {"DeletesTheGroup", [](BusyVlan& vlan) { vlan.status->groupDel(g1); }},
    {"DeletesAnotherGroup", [](BusyVlan& vlan) { vlan.status->groupDel(g3); }},
    {"DeletesEveryGroup", [](BusyVlan& vlan) { vlan.status->groupDelAll(); }},
    {"ReplacesTheGroup",
     [](BusyVlan& vlan) {
       vlan.status->groupDel(g1);
       vlan.status->groupIs(g1)->intfIs(IntfId("swp1"))->membershipIs(r2);
     }},
    {"DeletesTheHostsKey", [](BusyVlan& vlan) { vlan.config->hostKeyDel(vlan.key("up1")); }},
    {"DeletesTheNextHostsKey", [](BusyVlan& vlan) { vlan.config->hostKeyDel(vlan.key("up2")); }},
    {"DeletesEveryKey", [](BusyVlan& vlan) { vlan.config->hostKeyDelAll(); }},
    {"AddsAKey", [](BusyVlan& vlan) { vlan.proxyOn("up3"); }},
    {"DeletesTheHost",
     [](BusyVlan& vlan) { vlan.hosts->igmpHostDel(vlan.key("up1").stringvalue()); }},
    {"DropsEveryHost", [](BusyVlan& vlan) { vlan.hosts->igmpHostDelAll(); }},
    {"DropsTheHostsRecords", [](BusyVlan& vlan) { vlan.host("up1")->v3groupDelAll(); }, true},
    {"DropsTheAdapter", [](BusyVlan& vlan) { vlan.adapter = nullptr; }},
    {"RetiresTheAdapter",
     [](BusyVlan& vlan) {
       if (vlan.adapter) vlan.adapter->kelDoZombieReactors(true);
     }},
    {"RetiresAndDropsTheAdapter",
     [](BusyVlan& vlan) {
       if (vlan.adapter) vlan.adapter->kelDoZombieReactors(true);
       vlan.adapter = nullptr;
     }},
    {"ChangesAMembership",
     [](BusyVlan& vlan) {
       if (vlan.status->group(g1)) vlan.snooped("swp1")->sourceIs(s4);
     }},
    {"RaisesAReportAgain", [](BusyVlan& vlan) { vlan.status->newIgmpReportNotify(); }},
    {"ChangesAMembershipAndRaisesAReportAgain",
     [](BusyVlan& vlan) {
       if (vlan.status->group(g2)) vlan.snooped("swp2", r1, g2)->filterModeIs(FilterMode::exclude);
       vlan.status->newIgmpReportNotify();
     }},
    {"AddsAGroup", [](BusyVlan& vlan) { vlan.status->groupIs(IpAddr(239, 1, 1, 9)); }},
    {"GoesOverToAnotherStatus", [](BusyVlan& vlan) { vlan.goOverToAnotherStatus(); }, true},
};

Cause const causes[] = {
    {"ReportRaised",
     [](BusyVlan& vlan) {
       vlan.flag({g1, g2, g3});
       vlan.status->newIgmpReportNotify();
     }},
    {"ModesChanged",
     [](BusyVlan& vlan) {
       for (IpAddr const address : {g1, g2})
         for (auto const* const name : {"swp1", "swp2"})
           vlan.port(name).reports(address).exclude({s1});
       vlan.status->newIgmpReportNotify();
     }},
    {"HostsRenewed",
     [](BusyVlan& vlan) {
       for (auto const* const name : {"up1", "up2"}) vlan.host(name)->v3groupDelAll();
       vlan.flag({g1, g2, g3});
       vlan.status->newIgmpReportNotify();
     }},
    {"LastListenersGone",
     [](BusyVlan& vlan) {
       for (auto const* const name : {"swp1", "swp2"}) vlan.port(name).reports(g1).include({});
       vlan.status->newIgmpReportNotify();
     }},
    {"KeyNotified", [](BusyVlan& vlan) { vlan.config->hostKeyNotify(vlan.key("up1")); }},
    {"KeyRemoved", [](BusyVlan& vlan) { vlan.config->hostKeyDel(vlan.key("up1")); }},
    {"KeysRemoved", [](BusyVlan& vlan) { vlan.config->hostKeyDelAll(); }},
    {"GroupRemoved", [](BusyVlan& vlan) { vlan.status->groupDel(g1); }},
    {"GroupsRemoved", [](BusyVlan& vlan) { vlan.status->groupDelAll(); }},
    {"StatusReplaced",
     [](BusyVlan& vlan) {
       vlan.flag({g1, g2});
       vlan.goOverToAnotherStatus();
     }},
    {"AdapterDropped", [](BusyVlan& vlan) { vlan.adapter = nullptr; }},
};

class Reentrancy : public ::testing::TestWithParam<std::tuple<Cause, Action>> {};

void PrintTo(std::tuple<Cause, Action> const& tested, std::ostream* out) {
  *out << std::get<Action>(tested).name << " in " << std::get<Cause>(tested).name;
}

INSTANTIATE_TEST_SUITE_P(Adapter, Reentrancy,
                         ::testing::Combine(::testing::ValuesIn(causes),
                                            ::testing::ValuesIn(actions)),
                         [](auto const& tested) {
                           return std::string(std::get<Cause>(tested.param).name) +
                                  std::get<Action>(tested.param).name;
                         });

/// Returns whether there are so many notifications that the action took place.
bool interrupt(Cause const& cause, Action const& action, int nth, bool intruderLeaves) {
  BusyVlan vlan;
  Intruder intruder(nth, intruderLeaves, [&] { action.run(vlan); });
  for (auto const* const name : hostPorts) intruder.watch(vlan.host(name));
  cause.run(vlan);
  if (!intruder.hasActed()) return false;
  vlan.expectNoStaleRecord();
  vlan.publish();
  vlan.expectNoStaleRecord();
  if (!action.outdatesRecords) vlan.expectRecordsAsCounted();
  return true;
}

TEST_P(Reentrancy, InAnyNotificationLeavesNothingDanglingAndNoStaleRecord) {
  auto const& [cause, action] = GetParam();
  for (bool const intruderLeaves : {false, true}) {
    int nth = 1;
    for (; !HasFailure(); ++nth) {
      SCOPED_TRACE("in notification " + std::to_string(nth));
      if (!interrupt(cause, action, nth, intruderLeaves)) break;
    }
    EXPECT_GT(nth, 1) << "the cause raises no notification";
  }
}

TEST(ReentrantUpdate, GroupsThatANestedReportHasWrittenAreNotWrittenAgain) {
  BusyVlan vlan;
  vlan.flag({g1, g2});
  Intruder intruder(1, true, [&vlan] { vlan.status->newIgmpReportNotify(); });
  intruder.watch(vlan.host("up1"));
  TraceCapture const trace({8});
  vlan.status->newIgmpReportNotify();
  ASSERT_TRUE(intruder.hasActed());
  std::vector<std::string> writesOfSecondGroup;
  for (auto const& line : trace.lines())
    if (line.text.find("g: 239.1.1.2 ") != std::string::npos)
      writesOfSecondGroup.push_back(line.text);
  EXPECT_EQ(writesOfSecondGroup.size(), hostPorts.size());
}

TEST(ReentrantUpdate, GroupThatIsFlaggedFurtherOnHasItsTurn) {
  BusyVlan vlan;
  vlan.flag({g1, g3});
  vlan.group(g2)->recordIs()->includeIs(s4, 1);
  Intruder intruder(1, true, [&vlan] { vlan.flag({g2}); });
  intruder.watch(vlan.host("up1"));
  vlan.status->newIgmpReportNotify();
  ASSERT_TRUE(intruder.hasActed());
  EXPECT_EQ(vlan.record("up1", g2), including({s1, s2, s3, s4}));
  for (IpAddr const address : {g1, g2, g3}) EXPECT_FALSE(vlan.changed(address)) << address;
}

TEST(ReentrantUpdate, GroupThatIsFlaggedFurtherBackWaitsForTheNextReport) {
  BusyVlan vlan;
  vlan.flag({g2});
  Intruder intruder(1, true, [&vlan] { vlan.flag({g1}); });
  intruder.watch(vlan.host("up1"));
  vlan.status->newIgmpReportNotify();
  ASSERT_TRUE(intruder.hasActed());
  EXPECT_TRUE(vlan.changed(g1));
  vlan.status->newIgmpReportNotify();
  EXPECT_FALSE(vlan.changed(g1));
}

TEST(ReentrantClearing, HostThatGoesWithItsKeyDoesNotStopIt) {
  BusyVlan vlan;
  Intruder intruder(1, false, [&vlan] {
    vlan.config->hostKeyDel(vlan.key("up2"));
    vlan.hosts->igmpHostDel(vlan.key("up2").stringvalue());
  });
  intruder.watch(vlan.host("up1"));
  vlan.status->groupDel(g1);
  ASSERT_TRUE(intruder.hasActed());
  EXPECT_EQ(vlan.record("swp1", g1), nothing);
}

/// A change of status is interrupted by another one.
class ReentrantRepointing : public ::testing::Test {
 protected:
  Kel::Ptr<IgmpContextStatus> statusWithGroup(IpAddr address) const {
    auto const made = Kel::make<IgmpContextStatus>(vlan.vlanId);
    made->groupIs(address);
    return made;
  }

  void goOverTwice(std::initializer_list<IpAddr> changedGroups) {
    vlan.flag(changedGroups);
    Intruder intruder(1, false, [this] { vlan.adapter->coreStatusIs(last); });
    intruder.watch(vlan.host("up1"));
    vlan.adapter->coreStatusIs(first);
    ASSERT_TRUE(intruder.hasActed());
  }

  void expectGroupsOfTheLastStatus() const {
    EXPECT_EQ(vlan.adapter->coreStatus(), last);
    ASSERT_EQ(vlan.adapter->igmpGroup().size(), 1u);
    ASSERT_TRUE(vlan.group(g3));
    EXPECT_EQ(vlan.group(g3)->notifier(), last->group(g3));
  }

  BusyVlan vlan;
  Kel::Ptr<IgmpContextStatus> first = statusWithGroup(IpAddr(239, 1, 1, 4));
  Kel::Ptr<IgmpContextStatus> last = statusWithGroup(g3);
};

TEST_F(ReentrantRepointing, LastStatusPrevailsWhereTheUpdateIsInterrupted) {
  goOverTwice({g1});
  expectGroupsOfTheLastStatus();
}

TEST_F(ReentrantRepointing, LastStatusPrevailsWhereTheClearingOfAGroupIsInterrupted) {
  goOverTwice({});
  expectGroupsOfTheLastStatus();
}

}  // namespace
}  // namespace Bridging::IgmpSnooping::Proxy::Testing
