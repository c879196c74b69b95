#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/config/Wording.h"
#include "agent/control/MembershipWatch.h"

namespace Agent {
namespace {

using namespace Bridging::IgmpSnooping;
using Bridging::VlanId;
using testing::ElementsAre;
using testing::IsEmpty;
using Wirex::IntfId;
using Wirex::IpAddr;

constexpr IpAddr group{239, 1, 1, 1};
constexpr IpAddr otherGroup{239, 2, 2, 2};
constexpr IpAddr tv{10, 0, 0, 1};
constexpr IpAddr desk{10, 0, 0, 2};
constexpr IpAddr a{192, 0, 2, 1};

std::string text(std::optional<SourceFilter> const& filter) {
  if (!filter) return "none";
  std::string result = message(filter->mode);
  for (IpAddr const source : filter->sources) result += message(' ', source);
  return result;
}

class MembershipWatchTest : public testing::Test {
 protected:
  Kel::Ptr<IgmpMembership> member(char const* intf, IpAddr reporter, IpAddr address = group) {
    return vlan->groupIs(address)->intfIs(IntfId(intf))->membershipIs(reporter);
  }

  std::vector<std::string> changes() {
    std::vector<std::string> texts;
    for (MembershipChange const& change : watch.takeChanges())
      texts.push_back(message(change.vlan, ' ', change.group, ' ', change.interface, ' ',
                              change.reporter, ": ", text(change.before), " -> ",
                              text(change.after)));
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

TEST_F(MembershipWatchTest, MayEndBeforeAndAfterWhatItWatches) {
  auto const membership = member("swp1", tv);
  { MembershipWatch const shortLived(status); }
  membership->sourceIs(a);
  auto longLived = std::make_unique<MembershipWatch>(status);
  status->contextStatusDelAll();
  vlan = nullptr;
  status = nullptr;
  EXPECT_EQ(longLived->takeChanges().size(), 1u);
}

}  // namespace
}  // namespace Agent
