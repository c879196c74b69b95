#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/igmp/IgmpHost.h"

namespace Igmp::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using Wirex::IpAddr;

IpAddr group(std::uint32_t number) {
  return IpAddr(0xef000000u + number);
}

Kel::Ptr<IgmpV3GroupRecord> shared(IpAddr of) {
  auto record = Kel::make<IgmpV3GroupRecord>(of);
  record->sharedIs(true);
  return record;
}

std::vector<IpAddr> groupsOf(IgmpHost const& host) {
  std::vector<IpAddr> groups;
  for (auto const& [address, record] : host.v3group()) groups.push_back(address);
  return groups;
}

/// Hosts that share the groups' numbers.
class HostGroupRecords : public ::testing::Test {
 protected:
  HostGroupRecords() {
    for (auto const& host : {one, other}) host->v3groupSharedIs(numbers);
  }

  Kel::Ptr<SharedRecords> const numbers = Kel::make<SharedRecords>();
  Kel::Ptr<IgmpHost> const one = Kel::make<IgmpHost>(Kel::Name("one"));
  Kel::Ptr<IgmpHost> const other = Kel::make<IgmpHost>(Kel::Name("other"));
  std::uint32_t number = SharedRecords::none;
};

TEST_F(HostGroupRecords, OfOneHostAreNotThoseOfAnother) {
  one->v3groupIs(group(1));
  other->v3groupIs(group(2));
  EXPECT_THAT(groupsOf(*one), ElementsAre(group(1)));
  EXPECT_THAT(groupsOf(*other), ElementsAre(group(2)));
  EXPECT_EQ(one->v3group(group(2)), nullptr);
  EXPECT_EQ(one->v3group().peek(group(2)), nullptr);
}

TEST_F(HostGroupRecords, ShareANumberThatIsFoundAgainWithoutASearch) {
  auto const common = shared(group(1));
  EXPECT_TRUE(one->v3groupShare(common, number));
  std::uint32_t const ofOne = number;
  EXPECT_TRUE(other->v3groupShare(common, number));
  EXPECT_EQ(number, ofOne);
  EXPECT_EQ(numbers->find(group(1)), ofOne);
}

TEST_F(HostGroupRecords, GiveANumberToAnotherGroupOnceNoHostHasItsRecord) {
  one->v3groupIs(group(1));
  other->v3groupIs(group(1));
  std::uint32_t const freed = numbers->find(group(1));
  one->v3groupDel(group(1));
  EXPECT_EQ(numbers->find(group(1)), freed);
  other->v3groupDel(group(1));
  EXPECT_EQ(numbers->find(group(1)), SharedRecords::none);
  one->v3groupIs(group(2));
  EXPECT_EQ(numbers->find(group(2)), freed);
}

TEST_F(HostGroupRecords, AreNotFoundByANumberThatAnotherGroupHasNow) {
  auto const former = shared(group(1));
  one->v3groupShare(former, number);
  one->v3groupDel(group(1));
  EXPECT_EQ(one->v3group().find(group(1), number), nullptr);
  one->v3groupIs(group(2));
  std::uint32_t stale = numbers->find(group(2));
  EXPECT_EQ(one->v3group().find(group(1), stale), nullptr);
  EXPECT_EQ(one->v3group().size(), 1u);
}

TEST_F(HostGroupRecords, KeepTheNumbersThatTheyHaveUntilNoneIsLeft) {
  auto const host = Kel::make<IgmpHost>(Kel::Name("late"));
  host->v3groupIs(group(1));
  host->v3groupSharedIs(numbers);
  host->v3groupIs(group(2));
  EXPECT_EQ(numbers->find(group(2)), SharedRecords::none);
  EXPECT_THAT(groupsOf(*host), ElementsAre(group(1), group(2)));
  host->v3groupDelAll();
  host->v3groupSharedIs(numbers);
  host->v3groupIs(group(3));
  EXPECT_NE(numbers->find(group(3)), SharedRecords::none);
}

TEST_F(HostGroupRecords, LetGoOfTheirNumbersWithTheHost) {
  {
    auto const passing = Kel::make<IgmpHost>(Kel::Name("passing"));
    passing->v3groupSharedIs(numbers);
    for (std::uint32_t i = 0; i < 100; ++i) passing->v3groupIs(group(i));
    EXPECT_NE(numbers->find(group(99)), SharedRecords::none);
  }
  for (std::uint32_t i = 0; i < 100; ++i)
    EXPECT_EQ(numbers->find(group(i)), SharedRecords::none) << i;
}

TEST_F(HostGroupRecords, OfAHostWithFewOfManyGroupsAreAllVisited) {
  for (std::uint32_t i = 0; i < 1000; ++i) one->v3groupIs(group(i));
  for (std::uint32_t const i : {999u, 3u, 500u, 31u, 32u}) other->v3groupIs(group(i));
  EXPECT_EQ(other->v3group().size(), 5u);
  EXPECT_THAT(groupsOf(*other),
              UnorderedElementsAre(group(3), group(31), group(32), group(500), group(999)));
  EXPECT_EQ(other->v3group().keys(), groupsOf(*other));
  other->v3groupDelAll();
  EXPECT_THAT(groupsOf(*other), IsEmpty());
  EXPECT_EQ(one->v3group().size(), 1000u);
}

TEST_F(HostGroupRecords, AreWalkedInPiecesWhileOthersComeAndGo) {
  for (std::uint32_t i = 0; i < 100; ++i) one->v3groupIs(group(i));
  std::vector<IpAddr> visited;
  std::uint32_t next = 0;
  auto const visit = [&](IpAddr address) { visited.push_back(address); };
  for (std::uint32_t i = 0; one->v3group().visitNext(next, visit); ++i) {
    one->v3groupDel(group(i));
    one->v3groupIs(group(1000 + i));
  }
  for (std::uint32_t i = 0; i < 100; ++i) EXPECT_THAT(visited, ::testing::Contains(group(i)));
}

TEST_F(HostGroupRecords, MayGoWhileTheyAreVisited) {
  for (std::uint32_t i = 0; i < 100; ++i) one->v3groupIs(group(i));
  std::uint32_t visits = 0;
  for (auto const& [address, record] : one->v3group()) {
    ++visits;
    one->v3groupDel(address);
    EXPECT_EQ(record->group(), address);
  }
  EXPECT_EQ(visits, 100u);
  EXPECT_TRUE(one->v3group().empty());
}

}  // namespace
}  // namespace Igmp::Testing
