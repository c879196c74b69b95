#include "tests/platform/igmp/HostTesting.h"

/// How a host goes on in the place of another one.
namespace IgmpTest {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

class HostMemoryTest : public HostTest {
 protected:
  /// A state of which everything is told.
  HostMemoryTest() {
    writeState();
    Kel::runActivities();
    rest();
  }

  void writeState() {
    writeInclude(group(1), {source(1), source(2)});
    writeExclude(group(2), {source(3)});
  }

  /// Another machine, and another host that has these records before it can send.
  template <class WriteRecords>
  void succeed(WriteRecords writeRecords) {
    memory = machine->memory(host->name());
    begin(writeRecords);
  }
  template <class WriteRecords>
  void begin(WriteRecords writeRecords) {
    machine = nullptr;
    hosts->igmpHostDelAll();
    wire->sent.clear();
    machine = Kel::make<Igmp::IgmpHostDirSm>(nullptr, hosts, statuses, wheel);
    machine->memoryIs("Vlan10swp1", memory);
    host = hosts->igmpHostIs("Vlan10swp1");
    writeRecords();
    newHost("Vlan10swp1", 10);
  }
  void succeed() {
    succeed([this] { writeState(); });
  }

  Igmp::HostMemory memory;
};

TEST_F(HostMemoryTest, WhatWasToldAndStandsIsNotToldAgain) {
  succeed();
  EXPECT_THAT(sentWithin(seconds(100)), IsEmpty());
}

TEST_F(HostMemoryTest, WithoutMemoryEverythingIsTold) {
  begin([this] { writeState(); });
  EXPECT_THAT(
      sent(),
      ElementsAre(report({allow(group(1), {source(1), source(2)}), toEx(group(2), {source(3)})})));
}

TEST_F(HostMemoryTest, OnlyWhatHasChangedMeanwhileIsTold) {
  succeed([this] {
    writeInclude(group(1), {source(2), source(9)});
    writeExclude(group(2), {source(3)});
    writeExclude(group(5));
  });
  EXPECT_THAT(sent(), ElementsAre(report({allow(group(1), {source(9)}),
                                          block(group(1), {source(1)}), toEx(group(5))})));
}

TEST_F(HostMemoryTest, GroupThatIsGoneIsLeftWithinASecond) {
  succeed([this] { writeInclude(group(1), {source(1), source(2)}); });
  EXPECT_THAT(sent(), IsEmpty());
  EXPECT_THAT(sentWithin(seconds(1)), Contains(report({toIn(group(2))})));
}

TEST_F(HostMemoryTest, RecordsMayComeAfterTheHostCanSend) {
  succeed([] {});
  writeState();
  Kel::runActivities();
  EXPECT_THAT(sentWithin(seconds(100)), IsEmpty());
}

TEST_F(HostMemoryTest, WhatComesLaterIsToldAsEver) {
  succeed();
  exclude(group(2), {});
  EXPECT_THAT(sent(), ElementsAre(report({allow(group(2), {source(3)})})));
  drop(group(2));
  EXPECT_THAT(sent(), ElementsAre(report({toIn(group(2))})));
}

TEST_F(HostMemoryTest, EachChangeIsToldAsOftenAsItIsToBe) {
  robustnessIs(3);
  exclude(group(7));
  include(group(1), {source(2)});
  drop(group(2));
  EXPECT_THAT(sent(), SizeIs(3));
  succeed([this] {
    writeInclude(group(1), {source(2)});
    writeExclude(group(7));
  });
  std::vector<Record> left;
  pass(seconds(100));
  for (Sent const& each : takeSent())
    for (Record const& record : each.records()) left.push_back(record);
  Texts texts;
  for (Record const& each : left) texts.push_back(report({each}));
  EXPECT_THAT(texts, UnorderedElementsAre(report({toEx(group(7))}), report({toEx(group(7))}),
                                          report({block(group(1), {source(1)})}),
                                          report({block(group(1), {source(1)})}),
                                          report({toIn(group(2))}), report({toIn(group(2))})));
}

TEST_F(HostMemoryTest, ReportOfAnOlderVersionIsRepeatedAsOftenAsItIsToBe) {
  hears(FrameBuilder::queryV2({}, 100));
  rest();
  exclude(group(7));
  EXPECT_THAT(sent(), ElementsAre(v2Report(group(7))));
  memory = machine->memory(host->name());
  ASSERT_THAT(memory.told, SizeIs(3));
  for (auto const& told : memory.told)
    EXPECT_EQ(told.transmissions, told.group == group(7) ? 1 : 0) << told.group;
}

TEST_F(HostMemoryTest, WhatWasStillToBeToldAsNewIsTold) {
  reportsUnaskedIs(false);
  reportsUnaskedSinceQuery();  // at a random time
  succeed();
  EXPECT_THAT(
      sent(),
      ElementsAre(report({allow(group(1), {source(1), source(2)}), toEx(group(2), {source(3)})})));
}

TEST_F(HostMemoryTest, GeneralQueryIsAnsweredInTimeByWhoGoesOn) {
  hearsGeneralQuery();
  Horix::Time const latest = loop.now() + seconds(10);
  succeed();
  pass(seconds(10));
  auto const answers = takeSent();
  ASSERT_THAT(answers, SizeIs(1));
  EXPECT_EQ(answers.front().text(),
            report({isIn(group(1), {source(1), source(2)}), isEx(group(2), {source(3)})}));
  EXPECT_LE(answers.front().time, latest);
}

TEST_F(HostMemoryTest, QueriesForGroupsAndSourcesAreAnsweredByWhoGoesOn) {
  hearsQuery(group(1), {source(1), source(8)});
  hearsQuery(group(2));
  succeed();
  EXPECT_THAT(sentWithin(seconds(10)), UnorderedElementsAre(report({isIn(group(1), {source(1)})}),
                                                            report({isEx(group(2), {source(3)})})));
}

TEST_F(HostMemoryTest, HostThatReportsNothingUnaskedAnswersAllTheSame) {
  reportsUnaskedIs(false);
  hearsGeneralQuery();
  memory = machine->memory(host->name());
  EXPECT_THAT(memory.told, IsEmpty());
  EXPECT_THAT(memory.answers, SizeIs(1));
}

TEST_F(HostMemoryTest, OlderQueryIsAnsweredInItsVersionByWhoGoesOn) {
  hears(FrameBuilder::queryV2({}, 100));
  succeed();
  EXPECT_THAT(sentWithin(seconds(10)),
              UnorderedElementsAre(v2Report(group(1)), v2Report(group(2))));
}

TEST_F(HostMemoryTest, OlderQuerierCountsUntilItMustHaveGone) {
  hears(FrameBuilder::queryV2({}, 100));
  rest();
  succeed();
  exclude(group(7));
  EXPECT_THAT(sent(), ElementsAre(v2Report(group(7))));
  pass(seconds(250));  // 350 after it was heard
  EXPECT_EQ(status().compatibilityMode(), IgmpVersion::v3);
}

TEST_F(HostMemoryTest, HostThatCouldNotSendHasNothingToRemember) {
  host->blockedIs(true);
  EXPECT_EQ(machine->memory(host->name()), Igmp::HostMemory());
  EXPECT_EQ(machine->memory("none"), Igmp::HostMemory());
}

TEST_F(HostMemoryTest, MemoryEndsForWhoHasNotGoneOnByThen) {
  memory = machine->memory(host->name());
  machine = nullptr;
  hosts->igmpHostDelAll();
  machine = Kel::make<Igmp::IgmpHostDirSm>(nullptr, hosts, statuses, wheel);
  machine->memoryIs("Vlan10swp1", memory);
  host = hosts->igmpHostIs("Vlan10swp1");
  writeState();
  machine->memoryDelAll();
  newHost("Vlan10swp1", 10);
  EXPECT_THAT(sent(), SizeIs(1));
}

}  // namespace IgmpTest
