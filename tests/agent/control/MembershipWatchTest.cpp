#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/text/Wording.h"
#include "agent/watch/MembershipWatch.h"
#include "tests/agent/Addresses.h"
#include "tests/agent/FilterText.h"

namespace Agent {
namespace {

using namespace Bridging::IgmpSnooping;
using Bridging::VlanId;
using testing::ElementsAre;
using testing::IsEmpty;
using Wirex::IntfId;
using Wirex::IpAddr;

class MembershipWatchTest : public testing::Test {
 protected:
  Kel::Ptr<IgmpMembership> member(char const* intf, IpAddr reporter, IpAddr address = group) {
    return vlan->groupIs(address)->intfIs(IntfId(intf))->membershipIs(reporter);
  }

  std::vector<std::string> changes() {
    std::vector<std::string> texts;
    for (MembershipChange const& change : watch.takeChanges())
      texts.push_back(message(change.vlan, ' ', change.group, ' ', change.interface, ' ',
                              change.reporter, ": ", filterText(change.before), " -> ",
                              filterText(change.after)));
    return texts;
  }

  Kel::Ptr<IgmpProtocolStatus> status = Kel::make<IgmpProtocolStatus>();
  Kel::Ptr<IgmpContextStatus> vlan = status->contextStatusIs(VlanId(10));
  MembershipWatch watch{status};
};

TEST_F(MembershipWatchTest, NewMembershipIsToldOnceWithWhatItSettledAt) {
  auto const membership = member("swp1", tv);
  membership->filterModeIs(Gmp::Igmp::IgmpFilterMode::include);
  membership->sourceIs(a);
  EXPECT_THAT(changes(), ElementsAre("10 239.1.1.1 swp1 10.0.0.1: none -> include 192.0.2.1"));
  EXPECT_THAT(changes(), IsEmpty());
}

TEST_F(MembershipWatchTest, OnlyWhatIsSelectedIsWatched) {
  auto const others = Kel::make<IgmpProtocolStatus>();
  auto const of = [&](unsigned short vlanId, IpAddr address) {
    return others->contextStatusIs(VlanId(vlanId))->groupIs(address);
  };
  of(10, group)->intfIs(IntfId("swp2"))->membershipIs(tv);
  MembershipWatch ofOne(others, {VlanId(10), IntfId("swp1"), group});
  EXPECT_FALSE(ofOne.watchSome(100));
  of(10, group)->intfIs(IntfId("swp1"))->membershipIs(tv);
  of(10, group)->intfIs(IntfId("swp3"))->membershipIs(tv);
  of(10, otherGroup)->intfIs(IntfId("swp1"))->membershipIs(tv);
  of(20, group)->intfIs(IntfId("swp1"))->membershipIs(tv);
  auto const heard = ofOne.takeChanges();
  ASSERT_EQ(heard.size(), 1u);
  EXPECT_EQ(message(heard[0].vlan, ' ', heard[0].group, ' ', heard[0].interface),
            "10 239.1.1.1 swp1");
  EXPECT_FALSE(others->contextStatus(VlanId(20))->watched());
  EXPECT_FALSE(of(10, otherGroup)->watched());
  EXPECT_FALSE(of(10, group)->intf(IntfId("swp2"))->watched());
}

TEST_F(MembershipWatchTest, ChangeIsTold) {
  auto const membership = member("swp1", tv);
  changes();
  membership->sourceIs(a);
  EXPECT_THAT(changes(), ElementsAre("10 239.1.1.1 swp1 10.0.0.1: exclude -> exclude 192.0.2.1"));
  membership->sourceDel(a);
  membership->sourceIs(a);
  EXPECT_THAT(changes(), IsEmpty()) << "as it was";
}

TEST_F(MembershipWatchTest, MembershipsGoWithWhateverIsAboveThem) {
  member("swp1", tv);
  member("swp1", desk);
  member("swp2", tv);
  member("swp2", tv, otherGroup);
  changes();
  vlan->group(group)->intf(IntfId("swp1"))->membershipDel(tv);
  EXPECT_THAT(changes(), ElementsAre("10 239.1.1.1 swp1 10.0.0.1: exclude -> none"));
  vlan->group(group)->intfDel(IntfId("swp1"));
  EXPECT_THAT(changes(), ElementsAre("10 239.1.1.1 swp1 10.0.0.2: exclude -> none"));
  vlan->groupDel(group);
  EXPECT_THAT(changes(), ElementsAre("10 239.1.1.1 swp2 10.0.0.1: exclude -> none"));
  status->contextStatusDel(VlanId(10));
  EXPECT_THAT(changes(), ElementsAre("10 239.2.2.2 swp2 10.0.0.1: exclude -> none"));
}

TEST_F(MembershipWatchTest, WhatComesBackIsComparedAndWatchedAgain) {
  member("swp1", tv);
  changes();
  vlan->groupDel(group);
  auto const again = member("swp1", tv);
  EXPECT_THAT(changes(), IsEmpty());
  again->sourceIs(a);
  EXPECT_THAT(changes(), ElementsAre("10 239.1.1.1 swp1 10.0.0.1: exclude -> exclude 192.0.2.1"));
  vlan->groupDel(group);
  changes();
  member("swp1", tv);
  EXPECT_THAT(changes(), ElementsAre("10 239.1.1.1 swp1 10.0.0.1: none -> exclude"));
}

TEST_F(MembershipWatchTest, WhatCameAndWentWasNeverThere) {
  member("swp1", tv);
  vlan->groupDel(group);
  EXPECT_THAT(changes(), IsEmpty());
}

TEST_F(MembershipWatchTest, ChangesAreSorted) {
  member("swp10", tv);
  member("swp9", desk);
  member("swp9", tv);
  member("swp1", tv, otherGroup);
  EXPECT_THAT(changes(), ElementsAre("10 239.1.1.1 swp9 10.0.0.1: none -> exclude",
                                     "10 239.1.1.1 swp9 10.0.0.2: none -> exclude",
                                     "10 239.1.1.1 swp10 10.0.0.1: none -> exclude",
                                     "10 239.2.2.2 swp1 10.0.0.1: none -> exclude"));
}

TEST_F(MembershipWatchTest, GroupsAreTakenUpAFewAtATimeWhileTheyComeAndGo) {
  auto const address = [](int i) { return IpAddr(239, 1, 1, static_cast<std::uint8_t>(i)); };
  for (int i = 0; i < 10; ++i) member("swp1", tv, address(i));
  MembershipWatch later(status);
  EXPECT_TRUE(later.watchSome(3));
  vlan->groupDel(address(0));  // the last one takes its place
  vlan->groupDel(address(9));
  member("swp1", tv, address(10));
  EXPECT_TRUE(later.watchSome(3));
  EXPECT_FALSE(later.watchSome(100));

  EXPECT_THAT(later.takeChanges(), IsEmpty()) << "all of it is the first settled state";
  for (int i = 0; i < 11; ++i) member("swp1", tv, address(i))->sourceIs(a);
  std::size_t added = 0;
  for (MembershipChange const& change : later.takeChanges()) added += change.before ? 0u : 1u;
  EXPECT_EQ(added, 2u) << "those that had gone";
}

/// Learns in a VLAN as soon as it hears of it.
class QuickLearner final : public IgmpProtocolStatus::NotifieeConst {
 public:
  explicit QuickLearner(Kel::Ptr<IgmpProtocolStatus> status) : status_(std::move(status)) {
    watch(Kel::Ptr<IgmpProtocolStatus const>(status_));
  }
  void onContextStatus(VlanId id) override {
    status_->contextStatus(id)->groupIs(group)->intfIs(IntfId("swp1"))->membershipIs(tv);
  }

 private:
  Kel::Ptr<IgmpProtocolStatus> status_;
};

TEST_F(MembershipWatchTest, VlanThatHasGroupsWhenItIsHeardOfIsFollowedAtOnce) {
  auto const learner = Kel::make<QuickLearner>(status);
  MembershipWatch later(status);
  EXPECT_FALSE(later.watchSome(1));
  status->contextStatusIs(VlanId(20));
  EXPECT_EQ(later.takeChanges().size(), 1u);
}

TEST_F(MembershipWatchTest, GroupsAreGivenUpAFewAtATimeAndTouchNothing) {
  auto const membership = member("swp1", tv);
  member("swp1", tv, otherGroup);
  EXPECT_EQ(changes().size(), 2u);
  membership->sourceIs(a);
  EXPECT_TRUE(watch.unwatchSome(1));
  member("swp1", desk);
  member("swp1", desk, otherGroup);
  member("swp1", desk, IpAddr(239, 3, 3, 3));
  EXPECT_FALSE(watch.unwatchSome(1)) << "what is new is not followed any more";
}

TEST_F(MembershipWatchTest, MayEndBeforeAndAfterWhatItWatches) {
  auto const membership = member("swp1", tv);
  { MembershipWatch const shortLived(status); }
  membership->sourceIs(a);
  auto longLived = std::make_unique<MembershipWatch>(status);
  longLived->watchSome(1);
  status->contextStatusDelAll();
  vlan = nullptr;
  status = nullptr;
  EXPECT_EQ(longLived->takeChanges().size(), 1u);
}

}  // namespace
}  // namespace Agent
