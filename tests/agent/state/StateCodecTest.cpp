#include <chrono>
#include <string>

#include <gtest/gtest.h>

#include "agent/state/StateCodec.h"

namespace Agent {
namespace {

using Bridging::VlanId;
using Horix::Time;
using std::chrono::milliseconds;
using std::chrono::seconds;
using Wirex::IntfId;
using Wirex::IpAddr;

KeptMembership includer() {
  KeptMembership membership{VlanId(10), IntfId("swp1"), IpAddr(239, 1, 1, 1), IpAddr(10, 0, 0, 1)};
  membership.requested = {{IpAddr(192, 0, 2, 1), seconds(250)}, {IpAddr(192, 0, 2, 2), seconds(2)}};
  return membership;
}

KeptMembership excluder() {
  KeptMembership membership{VlanId(4094), IntfId("swp2"), IpAddr(239, 255, 255, 255), IpAddr()};
  membership.excludes = true;
  membership.until = seconds(1'000'000);
  membership.excluded = {IpAddr(192, 0, 2, 9)};
  return membership;
}

std::string bytesOf(std::vector<KeptEntry> const& entries) {
  StateWriter writer;
  for (KeptEntry const& entry : entries) writer.put(entry);
  return writer.bytes();
}

std::vector<KeptEntry> entriesIn(StateReader& reader) {
  std::vector<KeptEntry> entries;
  while (auto entry = reader.next()) entries.push_back(std::move(*entry));
  return entries;
}

TEST(StateCodec, TakesOutWhatWasPutIn) {
  std::vector<KeptEntry> const entries{
      includer(),
      excluder(),
      KeptRouter{VlanId(1), IntfId("swp1"), true, IpAddr(10, 0, 0, 254), Time::max()},
      KeptRouter{VlanId(1), IntfId("swp3"), false, IpAddr(10, 0, 0, 253), seconds(255)},
      KeptQuerier{VlanId(1),
                  IntfId("swp3"),
                  IpAddr(10, 0, 0, 253),
                  {2, 0, 0, 0, 0xff, 7},
                  Igmp::IgmpVersion::v2,
                  7,
                  seconds(31744),
                  seconds(255)},
      KeptOlderVersion{VlanId(1), Igmp::IgmpVersion::v1, IpAddr(10, 0, 0, 253), seconds(400)},
      KeptQueryCourse{
          VlanId(1), seconds(60), 2, {{VlanId(1), IntfId("swp1")}, {VlanId(2), IntfId("swp9")}}},
      KeptTold{{VlanId(1), IntfId("swp3")},
               IpAddr(239, 1, 1, 1),
               true,
               {IpAddr(192, 0, 2, 1)},
               1,
               {{IpAddr(192, 0, 2, 7), 2}}},
      KeptAnswer{{VlanId(1), IntfId("swp3")}, IpAddr(), {IpAddr(192, 0, 2, 1)}, seconds(3)},
      KeptHostVersion{
          {VlanId(1), IntfId("swp3")}, Igmp::IgmpVersion::v2, IpAddr(10, 0, 0, 253), seconds(4)},
      KeptSince{seconds(7), {}},
      KeptSince{{}, seconds(100'000)}};
  std::string const bytes = bytesOf(entries);
  StateReader reader(bytes);
  EXPECT_EQ(entriesIn(reader), entries);
  EXPECT_FALSE(reader.failed());
}

TEST(StateCodec, RoundsTimesUpToATenthOfASecond) {
  KeptMembership membership = includer();
  membership.until = milliseconds(100'001);
  std::string const bytes = bytesOf({membership});
  StateReader reader(bytes);
  EXPECT_EQ(std::get<KeptMembership>(*reader.next()).until, milliseconds(100'100));
}

TEST(StateCodec, TimesBeyondWhatCanBeToldAreReadAsTheNearest) {
  for (Time const time : {Time(-1), Time::min(), Time::max() - Time(1)}) {
    KeptMembership membership = includer();
    membership.until = time;
    std::string const bytes = bytesOf({membership});
    StateReader reader(bytes);
    auto const read = reader.next();
    ASSERT_TRUE(read) << time.count();
    Time const until = std::get<KeptMembership>(*read).until;
    EXPECT_EQ(until, time < Time()
                         ? Time(milliseconds(100))
                         : Time(std::chrono::floor<std::chrono::duration<std::int64_t, std::deci>>(
                               Time::max())));
  }
}

TEST(StateCodec, NamesAnInterfaceOnce) {
  std::size_t const one = bytesOf({includer()}).size();
  std::size_t const two = bytesOf({includer(), includer()}).size();
  EXPECT_EQ(two - one, one - std::string("4swp1").size());
}

TEST(StateCodec, TakesTwentyBytesForAMembershipWithoutSources) {
  KeptMembership membership = excluder();
  membership.excluded.clear();
  membership.until = std::chrono::hours(24 * 365);  // a machine that has run for a year
  std::size_t const one = bytesOf({membership}).size();
  EXPECT_LE(bytesOf({membership, membership}).size() - one, 20u);
  KeptSince const since{std::chrono::hours(24 * 365)};
  EXPECT_LE(bytesOf({membership, since, membership}).size() - one, 27u);
}

TEST(StateCodec, FailsOnBytesThatEndTooEarly) {
  std::string const bytes = bytesOf({includer()});
  for (std::size_t size = 1; size < bytes.size(); ++size) {
    StateReader reader(std::string_view(bytes).substr(0, size));
    EXPECT_EQ(reader.next(), std::nullopt) << size;
    EXPECT_TRUE(reader.failed()) << size;
  }
}

TEST(StateCodec, GivesWhatStandsBeforeAnInconsistency) {
  std::string bytes = bytesOf({includer()});
  bytes += '\x7f';  // no kind of entry
  StateReader reader(bytes);
  EXPECT_EQ(entriesIn(reader).size(), 1u);
  EXPECT_TRUE(reader.failed());
}

TEST(StateCodec, RefusesVlansThatAreNone) {
  for (std::string const& vlan : {std::string(1, '\0'), std::string("\xff\x1f")}) {
    std::string const bytes = std::string(1, '\1') + vlan + std::string(20, '\0');
    StateReader reader(bytes);
    EXPECT_EQ(reader.next(), std::nullopt);
    EXPECT_TRUE(reader.failed());
  }
}

TEST(StateCodec, RefusesNumbersWithoutEnd) {
  std::string const bytes(64, '\xff');
  StateReader reader(bytes);
  EXPECT_EQ(reader.next(), std::nullopt);
  EXPECT_TRUE(reader.failed());
}

TEST(StateCodec, DoesNotBelieveInMoreSourcesThanThereAreBytes) {
  KeptMembership membership = excluder();
  membership.excluded.clear();
  std::string bytes = bytesOf({membership});
  bytes.back() = '\x7f';
  StateReader reader(bytes);
  EXPECT_EQ(reader.next(), std::nullopt);
  EXPECT_TRUE(reader.failed());
}

TEST(StateCodec, EndsOnWhateverBytes) {
  std::string const good = bytesOf({includer(), excluder()});
  for (std::size_t at = 0; at < good.size(); ++at) {
    for (int value = 0; value < 256; ++value) {
      std::string bytes = good;
      bytes[at] = static_cast<char>(value);
      StateReader reader(bytes);
      EXPECT_LE(entriesIn(reader).size(), bytes.size());
    }
  }
}

}  // namespace
}  // namespace Agent
