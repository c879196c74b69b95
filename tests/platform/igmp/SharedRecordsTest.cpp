#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/igmp/IgmpHost.h"

namespace Igmp::Testing {
namespace {

using Wirex::IpAddr;
using Record = Igmp::SharedRecords::Record;

IpAddr const g1(239, 1, 1, 1);
IpAddr const g2(239, 1, 1, 2);

Record newCommon(IpAddr group) {
  auto record = Kel::make<IgmpV3GroupRecord>(group);
  record->sharedIs(true);
  return record;
}

/// Hosts of one VLAN.
class SharedRecords : public ::testing::Test {
 protected:
  using Renewal = Igmp::SharedRecords::Renewal;

  Kel::Ptr<IgmpHost> newHost() {
    auto host = Kel::make<IgmpHost>(Kel::Name("host"));
    host->v3groupSharedIs(shared);
    return host;
  }

  static IgmpV3GroupRecord const* recordOf(Kel::Ptr<IgmpHost> const& host, IpAddr group = g1) {
    return host->v3group().peek(group);
  }

  bool reaches(Renewal& renewal, Kel::Ptr<IgmpHost> const& host) const {
    return renewal.reaches(host->v3groupNumberIn(*shared));
  }

  /// Has every host share it, whatever it had.
  void shareInAll(Record const& common, std::vector<Kel::Ptr<IgmpHost>> const& hosts) {
    Renewal renewal(shared, common->group(), common, number);
    for (auto const& host : hosts)
      if (!reaches(renewal, host)) host->v3groupShare(common, number);
  }

  Kel::Ptr<Igmp::SharedRecords> const shared = Kel::make<Igmp::SharedRecords>();
  Kel::Ptr<IgmpHost> const one = newHost();
  Kel::Ptr<IgmpHost> const other = newHost();
  std::uint32_t number = Igmp::SharedRecords::none;
  Record const former = newCommon(g1);
  Record const renewed = newCommon(g1);
};

TEST_F(SharedRecords, AreRenewedInOneHostAfterTheOther) {
  shareInAll(former, {one, other});
  Renewal renewal(shared, g1, renewed, number);
  EXPECT_EQ(recordOf(one), former.get());
  EXPECT_TRUE(reaches(renewal, one));
  EXPECT_EQ(recordOf(one), renewed.get());
  EXPECT_EQ(recordOf(other), former.get());
}

TEST_F(SharedRecords, StayInHostsThatARenewalDoesNotReach) {
  shareInAll(former, {one, other});
  {
    Renewal renewal(shared, g1, renewed, number);
    reaches(renewal, one);
  }
  EXPECT_EQ(recordOf(one), renewed.get());
  EXPECT_EQ(recordOf(other), former.get());
  EXPECT_EQ(other->v3group().size(), 1u);
}

TEST_F(SharedRecords, DoNotComeToHostsThatARenewalDoesNotReach) {
  {
    Renewal renewal(shared, g1, renewed, number);
    EXPECT_TRUE(renewal.isOfPresence());
    EXPECT_TRUE(reaches(renewal, one));
  }
  EXPECT_EQ(recordOf(one), renewed.get());
  EXPECT_EQ(recordOf(other), nullptr);
  EXPECT_TRUE(other->v3group().empty());
}

TEST_F(SharedRecords, AreCountedAsTheyAreInTheMiddleOfARenewal) {
  shareInAll(former, {one, other});
  Renewal renewal(shared, g1, nullptr, number);
  reaches(renewal, one);
  EXPECT_EQ(one->v3group().size(), 0u);
  EXPECT_EQ(other->v3group().size(), 1u);
  reaches(renewal, other);
  EXPECT_EQ(other->v3group().size(), 0u);
}

TEST_F(SharedRecords, AreNotThoseOfAHostThatWasLookedAt) {
  shareInAll(former, {one, other});
  Kel::Ptr<IgmpV3GroupRecord> const own = one->v3group(g1);
  Renewal renewal(shared, g1, renewed, number);
  EXPECT_FALSE(reaches(renewal, one));
  EXPECT_TRUE(reaches(renewal, other));
  EXPECT_EQ(recordOf(one), own.get());
  EXPECT_EQ(one->v3group().size(), 1u);
}

TEST_F(SharedRecords, AreJoinedByAHostThatNobodyLooksAtAnyMore) {
  shareInAll(former, {one, other});
  one->v3group(g1);
  shareInAll(renewed, {one, other});
  EXPECT_EQ(recordOf(one), renewed.get());
  Renewal renewal(shared, g1, former, number);
  EXPECT_TRUE(reaches(renewal, one));
}

TEST_F(SharedRecords, AreNotRenewedByARenewalWithinOneOfTheSameGroup) {
  shareInAll(former, {one, other});
  Renewal outer(shared, g1, renewed, number);
  std::uint32_t innerNumber = number;
  Renewal inner(shared, g1, newCommon(g1), innerNumber);
  EXPECT_FALSE(reaches(inner, one));
  EXPECT_EQ(recordOf(one), former.get());
  EXPECT_TRUE(reaches(outer, one));
  EXPECT_EQ(recordOf(one), renewed.get());
}

TEST_F(SharedRecords, OfAnotherGroupAreRenewedWithinARenewal) {
  shareInAll(former, {one, other});
  auto const ofOther = newCommon(g2);
  std::uint32_t otherNumber = Igmp::SharedRecords::none;
  Renewal outer(shared, g1, nullptr, number);
  {
    Renewal inner(shared, g2, ofOther, otherNumber);
    for (auto const& host : {one, other})
      if (!reaches(inner, host)) host->v3groupShare(ofOther, otherNumber);
    EXPECT_EQ(one->v3group().size(), 2u);
  }
  reaches(outer, one);
  EXPECT_EQ(one->v3group().size(), 1u);
  EXPECT_EQ(recordOf(one, g2), ofOther.get());
  EXPECT_EQ(recordOf(other), former.get());
}

TEST_F(SharedRecords, GiveTheirNumberFreeWhenNoHostHasThemAnyMore) {
  shareInAll(former, {one, other});
  one->v3groupDel(g1);
  EXPECT_NE(shared->find(g1), Igmp::SharedRecords::none);
  {
    Renewal renewal(shared, g1, nullptr, number);
    reaches(renewal, other);
  }
  EXPECT_EQ(shared->find(g1), Igmp::SharedRecords::none);
}

TEST_F(SharedRecords, ThatEveryHostHasPartedFromGoWithTheNextRenewal) {
  shareInAll(former, {one, other});
  one->v3groupIs(g1);
  other->v3groupIs(g1);
  { Renewal const renewal(shared, g1, renewed, number); }
  one->v3groupDel(g1);
  other->v3groupDel(g1);
  EXPECT_EQ(shared->find(g1), Igmp::SharedRecords::none);
}

TEST_F(SharedRecords, AreNotThoseOfAHostThatComesLater) {
  shareInAll(former, {one, other});
  auto const late = newHost();
  EXPECT_TRUE(late->v3group().empty());
  Renewal renewal(shared, g1, renewed, number);
  EXPECT_FALSE(reaches(renewal, late));
  EXPECT_TRUE(late->v3group().empty());
}

TEST_F(SharedRecords, AreNotThoseOfAHostThatTakesThePlaceOfOneThatWent) {
  auto passing = std::make_optional(newHost());
  shareInAll(former, {one, *passing});
  std::uint32_t const place = (*passing)->v3groupNumberIn(*shared);
  Renewal renewal(shared, g1, renewed, number);
  passing.reset();
  auto const late = newHost();
  ASSERT_EQ(late->v3groupNumberIn(*shared), place);
  EXPECT_TRUE(late->v3group().empty());
  EXPECT_FALSE(reaches(renewal, late));
}

TEST_F(SharedRecords, AreThoseOfHundredsOfHosts) {
  std::vector<Kel::Ptr<IgmpHost>> hosts{one, other};
  while (hosts.size() < 64) hosts.push_back(newHost());
  shareInAll(former, hosts);
  Renewal renewal(shared, g1, renewed, number);
  for (auto const& host : hosts) EXPECT_TRUE(reaches(renewal, host));
  while (hosts.size() < 200) {
    hosts.push_back(newHost());
    EXPECT_TRUE(hosts.back()->v3group().empty());
    EXPECT_TRUE(hosts.back()->v3groupShare(renewed, number));
  }
  for (auto const& host : hosts) EXPECT_EQ(recordOf(host), renewed.get());
  hosts[130]->v3groupDel(g1);
  EXPECT_EQ(recordOf(hosts[130]), nullptr);
  EXPECT_EQ(recordOf(hosts[131]), renewed.get());
}

}  // namespace
}  // namespace Igmp::Testing
