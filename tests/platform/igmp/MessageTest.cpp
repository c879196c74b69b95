#include <chrono>
#include <cstdint>
#include <optional>
#include <variant>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/igmp/wire/Message.h"
#include "tests/platform/igmp/FrameBuilder.h"

namespace {

using namespace std::chrono_literals;
using namespace IgmpTest;
using Igmp::Deciseconds;
using Igmp::IgmpVersion;
using Igmp::IgnoreReason;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr IpAddr group{239, 1, 1, 1};
constexpr IpAddr otherGroup{232, 2, 2, 2};
constexpr IpAddr sourceA{198, 51, 100, 1};
constexpr IpAddr sourceB{203, 0, 113, 2};

// "leaving 1464 octets for source addresses, which limits the number of source addresses to 366"
static_assert((1500 - Igmp::queryV3HeaderSize - 24) / Igmp::addressSize == 366);
static_assert((1500 - 24 - Igmp::reportV3HeaderSize - Igmp::groupRecordHeaderSize) /
                  Igmp::addressSize ==
              365);
static_assert(Igmp::messageSize == 8);
static_assert(Igmp::queryV3HeaderSize == 12);

/// An IGMP message with a right checksum, which the views of what is parsed from it point into.
class Payload {
 public:
  explicit Payload(FrameBuilder const& frame) {
    ByteVector const datagram = frame.bytes();
    std::size_t const headers = 14 + 24;
    bytes_.assign(datagram.begin() + headers, datagram.end());
  }

  Igmp::Bytes bytes() const { return bytes_; }
  Igmp::Parsed<Igmp::Message> parsed() const { return Igmp::parseMessage(bytes_); }

  template <class Kind>
  Kind as() const {
    auto const message = parsed();
    EXPECT_TRUE(message) << message.reason();
    EXPECT_TRUE(std::holds_alternative<Kind>(*message));
    return std::get<Kind>(*message);
  }

  IgnoreReason refusal() const {
    auto const message = parsed();
    EXPECT_FALSE(message) << "accepted";
    return message.reason();
  }

 private:
  ByteVector bytes_;
};

std::vector<IpAddr> listed(Igmp::SourceList const& sources) {
  std::vector<IpAddr> addresses(sources.begin(), sources.end());
  EXPECT_EQ(addresses.size(), sources.size());
  EXPECT_EQ(addresses.empty(), sources.empty());
  return addresses;
}

TEST(CodeValueTest, BelowAHundredAndTwentyEightIsTheNumberItself) {
  EXPECT_EQ(Igmp::codeValue(0), 0);
  EXPECT_EQ(Igmp::codeValue(100), 100);
  EXPECT_EQ(Igmp::codeValue(127), 127);
}

TEST(CodeValueTest, AboveItIsMantissaAndExponent) {
  EXPECT_EQ(Igmp::codeValue(0x80), 128);
  EXPECT_EQ(Igmp::codeValue(0x81), 136);
  EXPECT_EQ(Igmp::codeValue(0x8f), 248);
  EXPECT_EQ(Igmp::codeValue(0x90), 256);
  EXPECT_EQ(Igmp::codeValue(0xff), 31744);
}

TEST(CodeValueTest, NeverFallsAsTheCodeGrows) {
  for (int code = 1; code <= 0xff; ++code) {
    EXPECT_GT(Igmp::codeValue(static_cast<std::uint8_t>(code)),
              Igmp::codeValue(static_cast<std::uint8_t>(code - 1)));
  }
}

TEST(QueryTest, EightBytesWithoutResponseTimeAreVersionOne) {
  auto const query = Payload(FrameBuilder::queryV1()).as<Igmp::Query>();
  EXPECT_EQ(query.version, IgmpVersion::v1);
  EXPECT_TRUE(query.isGeneral());
  EXPECT_EQ(query.maxResponseTime, 10s);
  EXPECT_EQ(query.robustness, 0);
  EXPECT_EQ(query.queryInterval, 0s);
}

TEST(QueryTest, VersionOneIgnoresTheGroupField) {
  auto const query = Payload(FrameBuilder::queryV2(group, 0)).as<Igmp::Query>();
  EXPECT_EQ(query.version, IgmpVersion::v1);
  EXPECT_TRUE(query.isGeneral());
}

TEST(QueryTest, EightBytesWithResponseTimeAreVersionTwo) {
  auto const query = Payload(FrameBuilder::queryV2(IpAddr(), 100)).as<Igmp::Query>();
  EXPECT_EQ(query.version, IgmpVersion::v2);
  EXPECT_TRUE(query.isGeneral());
  EXPECT_EQ(query.maxResponseTime, 10s);
}

TEST(QueryTest, VersionTwoMayAskForOneGroup) {
  auto const query = Payload(FrameBuilder::queryV2(group, 10)).as<Igmp::Query>();
  EXPECT_EQ(query.group, group);
  EXPECT_FALSE(query.isGeneral());
  EXPECT_EQ(query.maxResponseTime, 1s);
}

TEST(QueryTest, ResponseTimeOfVersionTwoIsLinear) {
  auto const query = Payload(FrameBuilder::queryV2(IpAddr(), 255)).as<Igmp::Query>();
  EXPECT_EQ(query.maxResponseTime, Deciseconds(255));
}

TEST(QueryTest, TwelveBytesAreVersionThree) {
  auto const query = Payload(FrameBuilder::queryV3({})).as<Igmp::Query>();
  EXPECT_EQ(query.version, IgmpVersion::v3);
  EXPECT_TRUE(query.isGeneral());
  EXPECT_EQ(query.maxResponseTime, 10s);
  EXPECT_EQ(query.robustness, 2);
  EXPECT_FALSE(query.suppressesRouters);
  EXPECT_EQ(query.queryInterval, 125s);
  EXPECT_THAT(listed(query.sources), IsEmpty());
}

TEST(QueryTest, VersionThreeWithoutResponseTimeStaysVersionThree) {
  auto const query = Payload(FrameBuilder::queryV3({.maxResponseCode = 0})).as<Igmp::Query>();
  EXPECT_EQ(query.version, IgmpVersion::v3);
  EXPECT_EQ(query.maxResponseTime, 0s);
}

TEST(QueryTest, VersionThreeTellsFlagsTimesAndSources) {
  Payload const payload(FrameBuilder::queryV3({.group = group,
                                               .maxResponseCode = 0x8a,
                                               .flagsAndRobustness = 0xff,
                                               .queryIntervalCode = 0x9b,
                                               .sources = {sourceA, sourceB}}));
  auto const query = payload.as<Igmp::Query>();
  EXPECT_EQ(query.group, group);
  EXPECT_EQ(query.maxResponseTime, Deciseconds((0x0a | 0x10) << 3));
  EXPECT_TRUE(query.suppressesRouters);
  EXPECT_EQ(query.robustness, 7);
  EXPECT_EQ(query.queryInterval, std::chrono::seconds((0x0b | 0x10) << 4));
  EXPECT_THAT(listed(query.sources), ElementsAre(sourceA, sourceB));
}

TEST(QueryTest, NineToElevenBytesAreNoVersion) {
  for (std::size_t extra = 1; extra <= 3; ++extra) {
    EXPECT_EQ(Payload(FrameBuilder::queryV2(IpAddr(), 100).trailer(ByteVector(extra))).refusal(),
              IgnoreReason::inconsistentLength);
  }
}

TEST(QueryTest, SourcesBeyondTheMessageAreRefused) {
  ByteWriter igmp;
  igmp.u8(0x11).u8(100).u16(0).address(group).u8(2).u8(125).u16(2).address(sourceA);
  EXPECT_EQ(Payload(FrameBuilder::message(igmp.bytes(), group)).refusal(),
            IgnoreReason::inconsistentLength);
}

TEST(QueryTest, BytesAfterTheSourcesAreIgnored) {
  Payload const payload(
      FrameBuilder::queryV3({.group = group, .sources = {sourceA}}).trailer({1, 2, 3}));
  EXPECT_THAT(listed(payload.as<Igmp::Query>().sources), ElementsAre(sourceA));
}

TEST(QueryTest, GroupMustBeOneThatIsSnooped) {
  EXPECT_EQ(Payload(FrameBuilder::queryV2({10, 0, 0, 1}, 10)).refusal(),
            IgnoreReason::groupNotMulticast);
  EXPECT_EQ(Payload(FrameBuilder::queryV3({.group = {224, 0, 0, 251}})).refusal(),
            IgnoreReason::groupLinkLocal);
}

TEST(QueryTest, SourcesWithoutAGroupAreRefused) {
  EXPECT_EQ(Payload(FrameBuilder::queryV3({.sources = {sourceA}})).refusal(),
            IgnoreReason::groupNotMulticast);
}

TEST(QueryTest, SourcesMustBeUnicast) {
  EXPECT_EQ(Payload(FrameBuilder::queryV3({.group = group, .sources = {group}})).refusal(),
            IgnoreReason::sourceNotUnicast);
}

TEST(GroupMessageTest, ReportsAndLeaveTellTheirGroup) {
  EXPECT_EQ(Payload(FrameBuilder::reportV1(group)).as<Igmp::ReportV1>().group, group);
  EXPECT_EQ(Payload(FrameBuilder::reportV2(group)).as<Igmp::ReportV2>().group, group);
  EXPECT_EQ(Payload(FrameBuilder::leave(group)).as<Igmp::Leave>().group, group);
}

TEST(GroupMessageTest, BytesAfterTheGroupAreIgnored) {
  Payload const payload(FrameBuilder::reportV2(group).trailer({1, 2, 3, 4, 5}));
  EXPECT_EQ(payload.as<Igmp::ReportV2>().group, group);
}

TEST(GroupMessageTest, GroupThatIsNotMulticastIsRefused) {
  for (IpAddr const notMulticast : {IpAddr(), IpAddr(10, 1, 1, 1), IpAddr(223, 255, 255, 255),
                                    IpAddr(240, 0, 0, 0), IpAddr(255, 255, 255, 255)}) {
    EXPECT_EQ(Payload(FrameBuilder::reportV1(notMulticast)).refusal(),
              IgnoreReason::groupNotMulticast);
    EXPECT_EQ(Payload(FrameBuilder::reportV2(notMulticast)).refusal(),
              IgnoreReason::groupNotMulticast);
    EXPECT_EQ(Payload(FrameBuilder::leave(notMulticast)).refusal(),
              IgnoreReason::groupNotMulticast);
  }
}

TEST(GroupMessageTest, LinkLocalGroupIsRefusedAndItsNeighbourIsNot) {
  for (IpAddr const linkLocal : {IpAddr(224, 0, 0, 0), IpAddr(224, 0, 0, 255)}) {
    EXPECT_EQ(Payload(FrameBuilder::reportV1(linkLocal)).refusal(), IgnoreReason::groupLinkLocal);
    EXPECT_EQ(Payload(FrameBuilder::reportV2(linkLocal)).refusal(), IgnoreReason::groupLinkLocal);
    EXPECT_EQ(Payload(FrameBuilder::leave(linkLocal)).refusal(), IgnoreReason::groupLinkLocal);
  }
  IpAddr const neighbour(224, 0, 1, 0);
  EXPECT_EQ(Payload(FrameBuilder::reportV2(neighbour)).as<Igmp::ReportV2>().group, neighbour);
}

TEST(MessageTest, ShorterThanEightBytesIsRefused) {
  for (std::size_t size = 0; size < 8; ++size) {
    ByteVector const bytes(size, 0x11);
    EXPECT_EQ(Payload(FrameBuilder::message(bytes, group)).refusal(),
              IgnoreReason::inconsistentLength);
  }
}

TEST(MessageTest, WrongChecksumIsRefusedInEveryKind) {
  for (FrameBuilder frame :
       {FrameBuilder::queryV1(), FrameBuilder::queryV2(group, 10), FrameBuilder::queryV3({}),
        FrameBuilder::reportV1(group), FrameBuilder::reportV2(group), FrameBuilder::leave(group),
        FrameBuilder::reportV3({toEx(group)})}) {
    EXPECT_EQ(Payload(frame.damageIgmpChecksum()).refusal(), IgnoreReason::badIgmpChecksum);
  }
}

TEST(MessageTest, ChecksumCoversBytesAfterTheMessage) {
  Payload const payload(FrameBuilder::reportV2(group).trailer({0, 0, 0, 0}));
  ByteVector bytes(payload.bytes().begin(), payload.bytes().end());
  bytes.back() = 1;
  auto const message = Igmp::parseMessage(bytes);
  ASSERT_FALSE(message);
  EXPECT_EQ(message.reason(), IgnoreReason::badIgmpChecksum);
}

TEST(MessageTest, OtherTypesAreUnknown) {
  for (unsigned type = 0; type <= 0xff; ++type) {
    if (type == 0x11 || type == 0x12 || type == 0x16 || type == 0x17 || type == 0x22) continue;
    ByteWriter igmp;
    igmp.u8(type).u8(0).u16(0).address(group);
    EXPECT_EQ(Payload(FrameBuilder::message(igmp.bytes(), group)).refusal(),
              IgnoreReason::unknownType);
  }
}

TEST(ReportV3Test, TellsRecordsOfEveryTypeInOrder) {
  Payload const payload(FrameBuilder::reportV3(
      {isIn(group, {sourceA}), isEx(group, {sourceA, sourceB}), toIn(otherGroup), toEx(otherGroup),
       allow(group, {sourceB}), block(group, {sourceA})}));
  auto const report = payload.as<Igmp::ReportV3>();
  EXPECT_EQ(report.records.size(), 6u);

  struct Expected {
    IgmpV3GroupRecordType type;
    IpAddr group;
    std::vector<IpAddr> sources;
  };
  using enum IgmpV3GroupRecordType;
  std::vector<Expected> const expected{
      {modeIsInclude, group, {sourceA}},     {modeIsExclude, group, {sourceA, sourceB}},
      {changeToIncludeMode, otherGroup, {}}, {changeToExcludeMode, otherGroup, {}},
      {allowNewSources, group, {sourceB}},   {blockOldSources, group, {sourceA}}};
  std::size_t i = 0;
  for (auto const& record : report.records) {
    ASSERT_LT(i, expected.size());
    EXPECT_EQ(record.type, expected[i].type);
    EXPECT_EQ(record.group, expected[i].group);
    EXPECT_EQ(listed(record.sources), expected[i].sources);
    EXPECT_EQ(record.problem(), std::nullopt);
    ++i;
  }
  EXPECT_EQ(i, expected.size());
}

TEST(ReportV3Test, MayHaveNoRecords) {
  Payload const payload(FrameBuilder::reportV3({}));
  auto const report = payload.as<Igmp::ReportV3>();
  EXPECT_EQ(report.records.size(), 0u);
  EXPECT_TRUE(report.records.begin() == report.records.end());
}

TEST(ReportV3Test, AuxiliaryDataIsSkippedByItsLengthInWords) {
  Record withAuxiliaryData = toEx(group, {sourceA});
  for (unsigned const words : {1u, 3u, 255u}) {
    withAuxiliaryData.auxiliaryWords = words;
    Payload const payload(FrameBuilder::reportV3({withAuxiliaryData, toIn(otherGroup, {sourceB})}));
    auto const report = payload.as<Igmp::ReportV3>();
    auto record = report.records.begin();
    EXPECT_EQ(record->group, group);
    EXPECT_THAT(listed(record->sources), ElementsAre(sourceA));
    ++record;
    EXPECT_EQ(record->group, otherGroup);
    EXPECT_THAT(listed(record->sources), ElementsAre(sourceB));
  }
}

TEST(ReportV3Test, BytesAfterTheLastRecordAreIgnored) {
  Payload const payload(FrameBuilder::reportV3({toEx(group)}).trailer({9, 9, 9, 9, 9}));
  EXPECT_EQ(payload.as<Igmp::ReportV3>().records.size(), 1u);
}

TEST(ReportV3Test, MoreRecordsThanBytesAreRefused) {
  ByteWriter igmp;
  igmp.u8(0x22).u8(0).u16(0).u16(0).u16(2).u8(4).u8(0).u16(0).address(group);
  EXPECT_EQ(Payload(FrameBuilder::message(igmp.bytes(), group)).refusal(),
            IgnoreReason::inconsistentLength);
}

TEST(ReportV3Test, MoreSourcesThanBytesAreRefused) {
  ByteWriter igmp;
  igmp.u8(0x22).u8(0).u16(0).u16(0).u16(1).u8(1).u8(0).u16(0xffff).address(group).address(sourceA);
  EXPECT_EQ(Payload(FrameBuilder::message(igmp.bytes(), group)).refusal(),
            IgnoreReason::inconsistentLength);
}

TEST(ReportV3Test, MoreAuxiliaryDataThanBytesIsRefused) {
  ByteWriter igmp;
  igmp.u8(0x22).u8(0).u16(0).u16(0).u16(1).u8(4).u8(2).u16(0).address(group).u32(0);
  EXPECT_EQ(Payload(FrameBuilder::message(igmp.bytes(), group)).refusal(),
            IgnoreReason::inconsistentLength);
}

/// The problems of a report's records, in order.
std::vector<std::optional<IgnoreReason>> problems(std::vector<Record> const& records) {
  Payload const payload(FrameBuilder::reportV3(records));
  auto const report = payload.as<Igmp::ReportV3>();
  std::vector<std::optional<IgnoreReason>> found;
  for (auto const& each : report.records) found.push_back(each.problem());
  return found;
}

TEST(ReportV3Test, RecordOfUnknownTypeIsSkippedWholeAndTheRestIsUsed) {
  Record const unknown{7, group, {sourceA, sourceB}, 2};
  Record const zero{0, group, {}, 0};
  EXPECT_THAT(problems({toEx(group), unknown, zero, toEx(otherGroup)}),
              ElementsAre(std::nullopt, IgnoreReason::unknownRecordType,
                          IgnoreReason::unknownRecordType, std::nullopt));
}

TEST(ReportV3Test, BadGroupConcernsItsRecordOnly) {
  EXPECT_THAT(problems({toEx({224, 0, 0, 251}), toEx(group), toEx({192, 0, 2, 1}), toEx(group)}),
              ElementsAre(IgnoreReason::groupLinkLocal, std::nullopt,
                          IgnoreReason::groupNotMulticast, std::nullopt));
}

TEST(ReportV3Test, BadSourceConcernsItsRecordOnly) {
  for (IpAddr const bad :
       {IpAddr(), IpAddr(224, 0, 0, 0), group, IpAddr(240, 0, 0, 1), IpAddr(255, 255, 255, 255)}) {
    EXPECT_THAT(problems({isIn(group, {sourceA, bad}), isIn(group, {sourceA})}),
                ElementsAre(IgnoreReason::sourceNotUnicast, std::nullopt))
        << bad;
  }
}

}  // namespace
