#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "proxy/ProxyAdapterSm.h"
#include "tests/TraceCapture.h"
#include "tests/proxy/SnoopedVlan.h"

namespace Bridging::IgmpSnooping::Proxy::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// The object behind a key is replaced by another one, at each of the levels: the reactor of the
/// key stays, goes over to the new object, and takes its children along.
class Repointing : public SnoopedVlan {
 protected:
  static Kel::Ptr<IgmpMembership> membership(IpAddr reporter, FilterMode mode, Sources sources) {
    auto const made = Kel::make<IgmpMembership>(reporter);
    made->filterModeIs(mode);
    for (IpAddr const source : sources) made->sourceIs(source);
    return made;
  }
  static Kel::Ptr<IgmpIntfStatus> snoopedPort(
      char const* name, std::initializer_list<Kel::Ptr<IgmpMembership>> memberships) {
    auto const made = Kel::make<IgmpIntfStatus>(IntfId(name));
    for (auto const& reporter : memberships) made->membershipIs(reporter);
    return made;
  }
  static Kel::Ptr<IgmpGroup> snoopedGroup(IpAddr address,
                                          std::initializer_list<Kel::Ptr<IgmpIntfStatus>> ports) {
    auto const made = Kel::make<IgmpGroup>(address);
    for (auto const& intf : ports) made->intfIs(intf);
    return made;
  }
  Kel::Ptr<IgmpContextStatus> statusWith(std::initializer_list<Kel::Ptr<IgmpGroup>> groups) const {
    auto const made = Kel::make<IgmpContextStatus>(vlanId);
    for (auto const& snooped : groups) made->groupIs(snooped);
    return made;
  }
};

// ---- membership

using Repointing_Membership = Repointing;

TEST_F(Repointing_Membership, KeepsTheReactorAndCountsWhatTheNewMembershipAsksFor) {
  port("swp1").reports(g1).include({s1});
  auto const reactor = intf("swp1")->membership(r1);
  auto const next = membership(r1, FilterMode::include, {s2});
  status->group(g1)->intf(IntfId("swp1"))->membershipIs(next);
  EXPECT_EQ(counts(), (Counts{0, {{s1, 1}}, {}})) << "not before the activity runs";
  Kel::runActivities();
  EXPECT_EQ(intf("swp1")->membership(r1), reactor);
  EXPECT_EQ(reactor->notifier(), next);
  EXPECT_EQ(counts(), (Counts{0, {{s2, 1}}, {}}));
}

TEST_F(Repointing_Membership, FollowsTheNewMembershipAndForgetsTheFormerOne) {
  auto const former = port("swp1").reports(g1).include({s1});
  auto const next = membership(r1, FilterMode::include, {s2});
  status->group(g1)->intf(IntfId("swp1"))->membershipIs(next);
  Kel::runActivities();
  auto const changes = intf("swp1")->portChanged();
  former.include({s3});
  EXPECT_EQ(intf("swp1")->portChanged(), changes);
  next->sourceIs(s4);
  Kel::runActivities();
  EXPECT_EQ(counts(), (Counts{0, {{s2, 1}, {s4, 1}}, {}}));
}

TEST_F(Repointing_Membership, CallsOffWhatWasPendingFromTheFormerOne) {
  port("swp1").reports(g1).include({s1});
  auto const snooped = status->group(g1)->intf(IntfId("swp1"));
  snooped->membership(r1)->sourceIs(s3);
  intf("swp1")->membershipIs(membership(r1, FilterMode::include, {s2}));
  EXPECT_EQ(Kel::runActivities(), 0u);
  EXPECT_EQ(counts(), (Counts{0, {{s2, 1}}, {}}));
}

// ---- port

using Repointing_Port = Repointing;

TEST_F(Repointing_Port, KeepsTheReactorAndReconcilesItsReporters) {
  port("swp1").reports(g1, r1).include({s1});
  port("swp1").reports(g1, r2).include({s2});
  auto const reactor = intf("swp1");
  auto const kept = reactor->membership(r1);
  auto const next = snoopedPort("swp1", {membership(r1, FilterMode::include, {s3}),
                                         membership(r3, FilterMode::include, {s4})});
  status->group(g1)->intfIs(next);
  Kel::runActivities();
  EXPECT_EQ(intf("swp1"), reactor);
  EXPECT_EQ(reactor->notifier(), next);
  EXPECT_EQ(reactor->membership(r1), kept);
  EXPECT_EQ(reactor->membership(r2), nullptr);
  EXPECT_NE(reactor->membership(r3), nullptr);
  EXPECT_EQ(reactor->membership().size(), 2u);
}

TEST_F(Repointing_Port, StaysConsistentWithWhatItHasCounted) {
  auto const former = port("swp1").reports(g1).include({s1});
  auto const next = snoopedPort("swp1", {membership(r1, FilterMode::include, {s2})});
  status->group(g1)->intfIs(next);
  Kel::runActivities();
  EXPECT_EQ(counts(), (Counts{0, {{s2, 1}}, {}}));
  former.exclude({s3});
  EXPECT_EQ(counts(), (Counts{0, {{s2, 1}}, {}}));
  next->membership(r1)->sourceDel(s2);
  Kel::runActivities();
  EXPECT_EQ(counts(), Counts());
}

TEST_F(Repointing_Port, ReporterThatItGainsCountsAsStarGUntilItsFirstChange) {
  port("swp1").reports(g1).include({s1});
  status->group(g1)->intfIs(snoopedPort("swp1", {membership(r3, FilterMode::include, {s2})}));
  Kel::runActivities();
  EXPECT_EQ(counts(), (Counts{1, {{s1, 1}}, {}}));
}

// ---- group

using Repointing_Group = Repointing;

TEST_F(Repointing_Group, KeepsTheReactorAndReconcilesItsPortsAtOnce) {
  proxyOn("up1");
  port("swp1").reports(g1).include({s1});
  port("swp2").reports(g1).include({s2});
  publish();
  auto const reactor = group();
  auto const kept = intf("swp1");
  auto const record1 = reactor->record();
  auto const next =
      snoopedGroup(g1, {snoopedPort("swp1", {membership(r1, FilterMode::include, {s3})}),
                        snoopedPort("swp3", {membership(r1, FilterMode::exclude, {})})});
  status->groupIs(next);
  EXPECT_EQ(group(), reactor);
  EXPECT_EQ(reactor->notifier(), next);
  EXPECT_EQ(reactor->record(), record1);
  EXPECT_EQ(intf("swp1"), kept);
  EXPECT_EQ(intf("swp2"), nullptr);
  EXPECT_NE(intf("swp3"), nullptr);
  EXPECT_TRUE(changed());
  EXPECT_EQ(counts(), (Counts{1, {{s2, 1}, {s3, 1}}, {}})) << "swp2 takes nothing back";
}

TEST_F(Repointing_Group, DoesNotClearTheGroupFromTheHosts) {
  proxyOn("up1");
  port("swp1").reports(g1).include({s1});
  publish();
  TraceCapture const trace({9});
  status->groupIs(snoopedGroup(g1, {}));
  EXPECT_EQ(record("up1"), including({s1}));
  EXPECT_THAT(trace.texts(), IsEmpty());
}

TEST_F(Repointing_Group, FollowsTheNewGroupAndForgetsTheFormerOne) {
  auto const former = status->groupIs(g1);
  auto const next = snoopedGroup(g1, {});
  status->groupIs(next);
  former->intfIs(IntfId("swp1"));
  Kel::runActivities();
  EXPECT_EQ(intf("swp1"), nullptr);
  next->intfIs(IntfId("swp2"));
  Kel::runActivities();
  EXPECT_NE(intf("swp2"), nullptr);
}

// ---- status

using Repointing_Status = Repointing;

TEST_F(Repointing_Status, UpdatesTheHostsFirstAndReconcilesTheGroupsThen) {
  proxyOn("up1");
  port("swp1").reports(g1).include({s1});
  port("swp1").reports(g2).include({s2});
  ASSERT_TRUE(changed(g1) && changed(g2));
  auto const next = statusWith(
      {snoopedGroup(g2, {snoopedPort("swp1", {membership(r1, FilterMode::include, {s3})})}),
       snoopedGroup(g3, {})});
  TraceCapture const trace({8, 9});
  adapter->coreStatusIs(next);
  EXPECT_THAT(
      trace.texts(),
      ElementsAre("9 AdapterSm::updateIgmpHost",
                  "8 KelIgmpIntf::processSplitHorizon() g: 239.1.1.1 hostKey Vlan10up1",
                  "8 KelIgmpIntf::processSplitHorizon() g: 239.1.1.2 hostKey Vlan10up1",
                  "9 KelMembership::handleFilterMode",  // g2 goes over
                  "9 KelIgmpGroup::handleInitialized",  // g3
                  "9 KelIgmpGroup::handleDelete 239.1.1.1", "9 AdapterSm::clearGroup 239.1.1.1"));
  EXPECT_EQ(adapter->coreStatus(), next);
  EXPECT_EQ(record("up1", g1), nothing);
  EXPECT_EQ(record("up1", g2), including({s2})) << "written before the groups were reconciled";
  EXPECT_TRUE(changed(g2));
}

TEST_F(Repointing_Status, KeepsTheReactorsOfGroupsThatBothHave) {
  port("swp1").reports(g1).include({s1});
  port("swp1").reports(g2);
  auto const kept = group(g1);
  auto const next = statusWith(
      {snoopedGroup(g1, {snoopedPort("swp1", {membership(r1, FilterMode::include, {s2})})})});
  adapter->coreStatusIs(next);
  EXPECT_EQ(group(g1), kept);
  EXPECT_EQ(kept->notifier(), next->group(g1));
  EXPECT_EQ(group(g2), nullptr);
  EXPECT_EQ(counts(g1), (Counts{0, {{s2, 1}}, {}}));
}

TEST_F(Repointing_Status, FollowsTheNewStatusAndForgetsTheFormerOne) {
  proxyOn("up1");
  auto const next = statusWith({});
  adapter->coreStatusIs(next);
  port("swp1").reports(g1);
  EXPECT_EQ(group(g1), nullptr);
  next->groupIs(g2)->intfIs(IntfId("swp1"))->membershipIs(r1);
  Kel::runActivities();
  ASSERT_NE(group(g2), nullptr);
  status->newIgmpReportNotify();
  EXPECT_EQ(record("up1", g2), nothing);
  next->newIgmpReportNotify();
  EXPECT_EQ(record("up1", g2), everything);
}

TEST_F(Repointing_Status, SameStatusIsNoChange) {
  port("swp1").reports(g1);
  TraceCapture const trace = TraceCapture::ofEveryLevel();
  adapter->coreStatusIs(status);
  EXPECT_THAT(trace.texts(), IsEmpty());
}

TEST_F(Repointing_Status, NewStatusOfAnEmptyVlanClearsAllGroups) {
  auto const up = proxyOn("up1");
  port("swp1").reports(g1);
  port("swp1").reports(g2);
  publish();
  adapter->coreStatusIs(statusWith({}));
  EXPECT_TRUE(adapter->igmpGroup().empty());
  EXPECT_TRUE(up->v3group().empty());
}

}  // namespace
}  // namespace Bridging::IgmpSnooping::Proxy::Testing
