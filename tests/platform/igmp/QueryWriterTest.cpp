#include <chrono>
#include <cstdint>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/igmp/wire/FrameWriter.h"
#include "platform/igmp/wire/Message.h"
#include "platform/igmp/wire/QueryWriter.h"
#include "platform/wirex/PktManager.h"
#include "tests/platform/igmp/FrameBuilder.h"

namespace {

using namespace IgmpTest;
using namespace std::chrono_literals;
using Igmp::codeFor;
using Igmp::codeValue;
using Igmp::IgmpVersion;
using Igmp::queryMessage;
using Igmp::QueryToSend;
using testing::ElementsAre;

constexpr IpAddr group{232, 1, 2, 3};

// ---- Codes

TEST(QueryWriterTest, CodeOfWhatACodeStandsForIsThatCode) {
  for (unsigned code = 0; code <= 0xff; ++code)
    EXPECT_EQ(codeFor(codeValue(static_cast<std::uint8_t>(code))), code);
}

TEST(QueryWriterTest, CodeOfAnythingElseIsTheNextLowerOne) {
  for (std::int32_t value = 0; value < codeValue(0xff); ++value) {
    std::uint8_t const code = codeFor(value);
    ASSERT_LE(codeValue(code), value);
    ASSERT_GT(codeValue(static_cast<std::uint8_t>(code + 1)), value);
  }
}

TEST(QueryWriterTest, CodesEndAtTheirHighestAndLowest) {
  EXPECT_EQ(codeFor(codeValue(0xff) + 1), 0xff);
  EXPECT_EQ(codeFor(INT64_MAX), 0xff);
  EXPECT_EQ(codeFor(-1), 0);
}

// ---- Messages

TEST(QueryWriterTest, Version1HasNoResponseTime) {
  QueryToSend query;
  query.version = IgmpVersion::v1;
  query.maxResponseTime = 10s;
  EXPECT_THAT(queryMessage(query), ElementsAre(0x11, 0, 0, 0, 0, 0, 0, 0));
}

TEST(QueryWriterTest, Version2SaysTenthsOfASecondAsTheyAre) {
  QueryToSend query;
  query.version = IgmpVersion::v2;
  query.group = group;
  query.maxResponseTime = 20s;
  EXPECT_THAT(queryMessage(query), ElementsAre(0x11, 200, 0, 0, 232, 1, 2, 3));
  query.maxResponseTime = 100s;
  EXPECT_EQ(queryMessage(query)[1], 255);
  query.maxResponseTime = 0s;
  EXPECT_EQ(queryMessage(query)[1], 1) << "0 would be IGMPv1";
}

TEST(QueryWriterTest, Version3SaysItAll) {
  std::vector<IpAddr> const sources{IpAddr(192, 0, 2, 1), IpAddr(192, 0, 2, 2)};
  QueryToSend query;
  query.group = group;
  query.maxResponseTime = 25s;
  query.suppressesRouters = true;
  query.robustness = 7;
  query.queryInterval = 125s;
  query.sources = sources;
  EXPECT_THAT(queryMessage(query), ElementsAre(0x11, 0x8f, 0, 0, 232, 1, 2, 3, 0x0f, 125, 0, 2,  //
                                               192, 0, 2, 1, 192, 0, 2, 2));
}

TEST(QueryWriterTest, ReadsAsWhatWasWritten) {
  std::vector<IpAddr> const sources{IpAddr(192, 0, 2, 1)};
  QueryToSend query;
  query.group = group;
  query.maxResponseTime = 1s;
  query.robustness = 2;
  query.queryInterval = 1024s;
  query.sources = sources;
  auto message = queryMessage(query);
  writeChecksum(message, 0, message.size(), 2);
  auto const parsed = Igmp::parseMessage(message);
  ASSERT_TRUE(parsed);
  auto const& read = std::get<Igmp::Query>(*parsed);
  EXPECT_EQ(read.version, IgmpVersion::v3);
  EXPECT_EQ(read.group, group);
  EXPECT_EQ(read.maxResponseTime, 1s);
  EXPECT_FALSE(read.suppressesRouters);
  EXPECT_EQ(read.robustness, 2);
  EXPECT_EQ(read.queryInterval, 1024s);
  EXPECT_THAT(std::vector<IpAddr>(read.sources.begin(), read.sources.end()),
              ElementsAre(IpAddr(192, 0, 2, 1)));
}

TEST(QueryWriterTest, RobustnessBeyondTheFieldIsNotTold) {
  QueryToSend query;
  query.robustness = 8;
  EXPECT_EQ(queryMessage(query)[8], 0);
}

TEST(QueryWriterTest, AQueryHoldsAsManySourcesAsTheLinkAllows) {
  EXPECT_EQ(Igmp::sourcesPerQuery(1500), 366u);
  EXPECT_EQ(Igmp::sourcesPerQuery(68), 8u);
  EXPECT_EQ(Igmp::sourcesPerQuery(10), 8u) << "no link is that short, and none stops the rest";
}

TEST(QueryWriterTest, AQueryOnTheLongestLinkFitsAPacket) {
  std::vector<IpAddr> const sources(Igmp::sourcesPerQuery(65535), IpAddr(192, 0, 2, 1));
  QueryToSend query;
  query.group = group;
  query.sources = sources;
  auto const message = queryMessage(query);
  EXPECT_NO_THROW(Igmp::igmpFrame({}, group, message));
  EXPECT_GT(message.size() + 4, Wirex::PktManager::instance().bufferSize());
}

}  // namespace
