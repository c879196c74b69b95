#include "platform/igmp/SentRecords.h"
#include "tests/platform/igmp/HostTesting.h"

namespace IgmpTest {

using Type = Wirex::IgmpV3GroupRecordType;

/// What a host last sent of a group.
class SentRecords : public HostTest {
 protected:
  std::optional<Igmp::SentRecords::Sent> lastSent(IpAddr of) const {
    return machine->lastSent(host->name(), of);
  }
};

TEST_F(SentRecords, TellTheLatestRecordOfTheGroupAndWhenItWasSent) {
  include(group(1), {source(1), source(2)});
  pass(seconds(20));
  Horix::Time const before = loop.now();
  include(group(1), {source(1), source(2), source(3)});
  exclude(group(2));
  auto const last = lastSent(group(1));
  ASSERT_TRUE(last);
  EXPECT_EQ(last->message, Igmp::MessageType::reportV3);
  EXPECT_EQ(last->record, Type::allowNewSources);
  EXPECT_EQ(last->sources, 1);
  EXPECT_EQ(last->time, before);
  EXPECT_EQ(lastSent(group(2))->record, Type::changeToExcludeMode);
}

TEST_F(SentRecords, TellAnAnswerToAQuery) {
  exclude(group(1), {source(1)});
  rest();
  hearsGeneralQuery();
  pass(seconds(11));
  EXPECT_EQ(lastSent(group(1))->record, Type::modeIsExclude);
  EXPECT_EQ(lastSent(group(1))->sources, 1);
}

TEST_F(SentRecords, TellMessagesOfAnOlderVersion) {
  host->igmpVersionIs(IgmpVersion::v2);
  exclude(group(1));
  EXPECT_EQ(lastSent(group(1))->message, Igmp::MessageType::reportV2);
  drop(group(1));
  EXPECT_EQ(lastSent(group(1))->message, Igmp::MessageType::leave);
}

TEST_F(SentRecords, TellNothingOfAGroupThatWasNeverSentNorOfAnotherHost) {
  exclude(group(1));
  EXPECT_FALSE(lastSent(group(2)));
  EXPECT_FALSE(machine->lastSent("Vlan99swp9", group(1)));
}

TEST_F(SentRecords, AreNotThoseOfAFormerHostOfTheName) {
  exclude(group(1));
  Kel::Name const name = host->name();
  host = nullptr;
  hosts->igmpHostDel(name);
  hosts->igmpHostIs(name);
  EXPECT_FALSE(machine->lastSent(name, group(1)));
}

TEST(SentRecordsOfManyGroups, ForgetThoseThatWereSentLongestAgo) {
  auto const records = Kel::make<Igmp::SentRecords>();
  std::uint32_t const host = records->newHost();
  constexpr std::uint32_t groups = 1000000;
  for (std::uint32_t number = 0; number < groups; ++number)
    records->note(host, IpAddr(0xe8000000u + number), {.time = std::chrono::milliseconds(number)});
  std::uint32_t known = 0;
  for (std::uint32_t number = 0; number < groups; ++number)
    if (records->find(host, IpAddr(0xe8000000u + number))) ++known;
  EXPECT_EQ(known, 4u * 4096u);
  EXPECT_TRUE(records->find(host, IpAddr(0xe8000000u + groups - 1)));
  EXPECT_FALSE(records->find(host, IpAddr(0xe8000000u)));
}

}  // namespace IgmpTest
