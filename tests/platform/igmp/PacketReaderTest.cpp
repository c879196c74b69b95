#include <cstdint>
#include <memory>
#include <random>
#include <set>
#include <string_view>
#include <variant>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/igmp/wire/PacketReader.h"
#include "tests/platform/igmp/FrameBuilder.h"

namespace {

using namespace std::chrono_literals;
using namespace IgmpTest;
using Igmp::IgnoreReason;
using testing::ElementsAre;

constexpr IpAddr group{239, 1, 1, 1};
constexpr IpAddr sourceA{198, 51, 100, 1};
constexpr IpAddr sourceB{203, 0, 113, 2};

Igmp::Parsed<Igmp::Packet> parse(Igmp::Bytes bytes, Igmp::ReceivePolicy policy = {}) {
  auto const frame = Igmp::parseEthernet(bytes);
  if (!frame) return frame.reason();
  return Igmp::parsePacket(*frame, policy);
}

IgnoreReason refusal(ByteVector const& bytes, Igmp::ReceivePolicy policy = {}) {
  auto const packet = parse(bytes, policy);
  EXPECT_FALSE(packet) << "accepted";
  return packet.reason();
}

template <class Kind>
Kind message(Igmp::Parsed<Igmp::Packet> const& packet) {
  EXPECT_TRUE(packet) << packet.reason();
  EXPECT_TRUE(std::holds_alternative<Kind>(packet->message));
  return std::get<Kind>(packet->message);
}

/// Reads all that a packet says, so that a sanitizer sees every access; returns how many
/// addresses that was.
std::size_t readAll(Igmp::Message const& message) {
  std::size_t addresses = 0;
  auto const readSources = [&](Igmp::SourceList const& sources) {
    for (IpAddr const source : sources) addresses += source == IpAddr() ? 0 : 1;
  };
  if (auto const* query = std::get_if<Igmp::Query>(&message)) readSources(query->sources);
  if (auto const* report = std::get_if<Igmp::ReportV3>(&message)) {
    for (auto const& each : report->records) {
      readSources(each.sources);
      addresses += each.problem() ? 0 : 1;
    }
  }
  return addresses;
}

/// Parses a copy that ends where its heap block ends.
Igmp::Parsed<Igmp::Packet> parseAtTheEdge(Igmp::Bytes bytes) {
  // Not make_unique: the array must not be zeroed first, so that its every byte is the frame's.
  std::unique_ptr<std::uint8_t[]> const copy(new std::uint8_t[bytes.size()]);
  std::copy(bytes.begin(), bytes.end(), copy.get());
  auto const packet = parse({copy.get(), bytes.size()});
  if (packet) readAll(packet->message);
  return packet;
}

std::vector<ByteVector> framesOfEveryKind() {
  std::vector<ByteVector> frames;
  for (bool const tagged : {false, true}) {
    for (FrameBuilder builder :
         {FrameBuilder::queryV1(), FrameBuilder::queryV2(group, 10),
          FrameBuilder::queryV3({.group = group, .sources = {sourceA, sourceB}}),
          FrameBuilder::reportV1(group).withoutRouterAlert(), FrameBuilder::reportV2(group),
          FrameBuilder::leave(group),
          FrameBuilder::reportV3({isIn(group, {sourceA}),
                                  {4, group, {sourceA, sourceB}, 2},
                                  {9, group, {sourceB}, 1},
                                  toIn(group)})}) {
      if (tagged) builder.vlan(10);
      frames.push_back(builder.bytes());
    }
  }
  return frames;
}

TEST(PacketTest, TellsSenderAndDestination) {
  auto const bytes = FrameBuilder::leave(group).from({192, 0, 2, 7}).bytes();
  auto const packet = parse(bytes);
  ASSERT_TRUE(packet);
  EXPECT_EQ(packet->source, IpAddr(192, 0, 2, 7));
  EXPECT_EQ(packet->destination, IpAddr(224, 0, 0, 2));
  EXPECT_EQ(message<Igmp::Leave>(packet).group, group);
}

TEST(PacketTest, TtlOtherThanOneIsRefused) {
  for (unsigned const ttl : {0u, 2u, 64u, 255u}) {
    EXPECT_EQ(refusal(FrameBuilder::reportV2(group).ttl(ttl).bytes()), IgnoreReason::badTtl);
  }
}

TEST(PacketTest, RouterAlertIsAskedForOnlyWhereRequired) {
  auto const without = FrameBuilder::reportV2(group).withoutRouterAlert().bytes();
  auto const with = FrameBuilder::reportV2(group).bytes();
  EXPECT_TRUE(parse(without));
  EXPECT_TRUE(parse(with, {.requireRouterAlert = true}));
  EXPECT_EQ(refusal(without, {.requireRouterAlert = true}), IgnoreReason::noRouterAlert);
}

TEST(PacketTest, ReporterWithoutAnAddressIsAccepted) {
  auto const bytes = FrameBuilder::reportV3({toEx(group)}).from(IpAddr()).bytes();
  auto const packet = parse(bytes);
  ASSERT_TRUE(packet);
  EXPECT_EQ(packet->source, IpAddr());
}

TEST(PacketTest, SenderMustBeUnicast) {
  for (IpAddr const sender : {IpAddr(224, 0, 0, 0), IpAddr(239, 1, 1, 1), IpAddr(240, 0, 0, 1),
                              IpAddr(255, 255, 255, 255)}) {
    EXPECT_EQ(refusal(FrameBuilder::reportV2(group).from(sender).bytes()),
              IgnoreReason::sourceNotUnicast);
  }
  EXPECT_TRUE(parse(FrameBuilder::reportV2(group).from({223, 255, 255, 254}).bytes()));
}

TEST(PacketTest, RefusalsOfEveryLayerComeThrough) {
  EXPECT_EQ(refusal(FrameBuilder::reportV2(group).protocol(6).bytes()), IgnoreReason::notIgmp);
  EXPECT_EQ(refusal(FrameBuilder::reportV2(group).damageIpChecksum().bytes()),
            IgnoreReason::badIpChecksum);
  EXPECT_EQ(refusal(FrameBuilder::reportV2(group).damageIgmpChecksum().bytes()),
            IgnoreReason::badIgmpChecksum);
  EXPECT_EQ(refusal(FrameBuilder::reportV2({224, 0, 0, 5}).bytes()), IgnoreReason::groupLinkLocal);
}

TEST(PacketTest, FrameCutAnywhereIsTruncated) {
  for (ByteVector const& frame : framesOfEveryKind()) {
    ASSERT_TRUE(parseAtTheEdge(frame));
    for (std::size_t size = 0; size < frame.size(); ++size) {
      auto const packet = parseAtTheEdge(Igmp::Bytes(frame).first(size));
      ASSERT_FALSE(packet) << size << " of " << frame.size();
      EXPECT_EQ(packet.reason(), IgnoreReason::truncated) << size << " of " << frame.size();
    }
  }
}

TEST(PacketTest, CutPaddingDoesNotMatter) {
  auto const frame = FrameBuilder::reportV2(group).padded(0xff).bytes();
  ASSERT_EQ(frame.size(), 60u);
  for (std::size_t size = 14 + 24 + 8; size < frame.size(); ++size) {
    EXPECT_TRUE(parseAtTheEdge(Igmp::Bytes(frame).first(size)));
  }
}

TEST(PacketTest, MessageCutAnywhereWithARightChecksumIsNeverReadBeyondItsEnd) {
  ByteWriter igmp;
  igmp.u8(0x22).u8(0).u16(0).u16(0).u16(2);
  igmp.u8(1).u8(1).u16(2).address(group).address(sourceA).address(sourceB).u32(7);
  igmp.u8(4).u8(0).u16(0).address(group);
  for (std::size_t size = 0; size <= igmp.bytes().size(); ++size) {
    auto const end = igmp.bytes().begin() + static_cast<std::ptrdiff_t>(size);
    auto const frame = FrameBuilder::message({igmp.bytes().begin(), end}, group).bytes();
    auto const packet = parseAtTheEdge(frame);
    if (size == igmp.bytes().size()) {
      EXPECT_TRUE(packet);
    } else {
      ASSERT_FALSE(packet) << size;
      EXPECT_EQ(packet.reason(), IgnoreReason::inconsistentLength) << size;
    }
  }
}

TEST(PacketTest, EveryFlippedBitOfTheDatagramIsNoticed) {
  for (ByteVector const& original : framesOfEveryKind()) {
    std::size_t const ethernet = original[12] == 0x81 ? 18 : 14;
    for (std::size_t bit = ethernet * 8; bit < original.size() * 8; ++bit) {
      ByteVector frame = original;
      frame[bit / 8] ^= static_cast<std::uint8_t>(1u << bit % 8);
      EXPECT_FALSE(parseAtTheEdge(frame)) << "bit " << bit;
    }
  }
}

TEST(PacketTest, RandomDamageUnderRightChecksumsIsReadWithinTheFrame) {
  std::mt19937 random(1);
  auto const frames = framesOfEveryKind();
  int accepted = 0;
  for (int round = 0; round < 50'000; ++round) {
    ByteVector frame = frames[random() % frames.size()];
    std::size_t const ethernet = frame[12] == 0x81 ? 18 : 14;
    for (auto damage = random() % 4; damage > 0; --damage) {
      frame[ethernet + random() % (frame.size() - ethernet)] = static_cast<std::uint8_t>(random());
    }
    std::size_t const headerSize = (frame[ethernet] & 0x0fu) * std::size_t{4};
    if (headerSize >= 20 && ethernet + headerSize + 8 <= frame.size()) {
      writeChecksum(frame, ethernet, headerSize, 10);
      std::size_t const igmp = ethernet + headerSize;
      writeChecksum(frame, igmp, frame.size() - igmp, 2);
    }
    if (parseAtTheEdge(frame)) ++accepted;
  }
  EXPECT_GT(accepted, 5'000);
  EXPECT_LT(accepted, 45'000);
}

TEST(CauseTest, NamesAreDistinct) {
  std::set<std::string_view> names;
  for (std::size_t i = 0; i < Igmp::ignoreReasons; ++i) {
    names.insert(Igmp::name(static_cast<IgnoreReason>(i)));
  }
  EXPECT_EQ(names.size(), Igmp::ignoreReasons);
  EXPECT_EQ(names.count("unknown-cause"), 0u);
  EXPECT_EQ(testing::PrintToString(IgnoreReason::badIpChecksum), "bad-ip-checksum");
}

// Frames as hosts and routers send them, byte by byte.

TEST(RealFrameTest, HostJoinsWithVersionThree) {
  ByteVector const frame{
      0x01, 0x00, 0x5e, 0x00, 0x00, 0x16, 0x52, 0x54, 0x00, 0x12, 0x34, 0x56,  // Ethernet
      0x08, 0x00, 0x46, 0xc0, 0x00, 0x28, 0x00, 0x00, 0x40, 0x00, 0x01, 0x02,  // IPv4
      0x41, 0xef, 0xc0, 0x00, 0x02, 0x0a, 0xe0, 0x00, 0x00, 0x16, 0x94, 0x04,  // Router Alert
      0x00, 0x00, 0x22, 0x00, 0xe9, 0xfb, 0x00, 0x00, 0x00, 0x01, 0x04, 0x00,  // TO_EX({})
      0x00, 0x00, 0xef, 0x01, 0x01, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
  EXPECT_EQ(FrameBuilder::reportV3({toEx(group)}).padded().bytes().size(), frame.size());
  auto const packet = parse(frame, {.requireRouterAlert = true});
  auto const report = message<Igmp::ReportV3>(packet);
  EXPECT_EQ(packet->source, IpAddr(192, 0, 2, 10));
  EXPECT_EQ(packet->destination, IpAddr(224, 0, 0, 22));
  ASSERT_EQ(report.records.size(), 1u);
  auto const record = *report.records.begin();
  EXPECT_EQ(record.type, IgmpV3GroupRecordType::changeToExcludeMode);
  EXPECT_EQ(record.group, group);
  EXPECT_TRUE(record.sources.empty());
}

TEST(RealFrameTest, HostWithoutAddressReportsTwoRecords) {
  ByteVector const frame{
      0x01, 0x00, 0x5e, 0x00, 0x00, 0x16, 0x52, 0x54, 0x00, 0x12, 0x34, 0x56,  // Ethernet
      0x08, 0x00, 0x46, 0xc0, 0x00, 0x3c, 0x00, 0x00, 0x40, 0x00, 0x01, 0x02,  // IPv4
      0x03, 0xe6, 0x00, 0x00, 0x00, 0x00, 0xe0, 0x00, 0x00, 0x16, 0x94, 0x04,  // Router Alert
      0x00, 0x00, 0x22, 0x00, 0x5c, 0xbb, 0x00, 0x00, 0x00, 0x02, 0x01, 0x00,  // IS_IN
      0x00, 0x02, 0xe8, 0x00, 0x00, 0x01, 0xcb, 0x00, 0x71, 0x01, 0xcb, 0x00,
      0x71, 0x02, 0x06, 0x00, 0x00, 0x01, 0xef, 0x01, 0x01, 0x01, 0xc6, 0x33,  // BLOCK
      0x64, 0x01};
  auto const packet = parse(frame);
  auto const report = message<Igmp::ReportV3>(packet);
  EXPECT_EQ(packet->source, IpAddr());
  auto record = report.records.begin();
  EXPECT_EQ(record->type, IgmpV3GroupRecordType::modeIsInclude);
  EXPECT_EQ(record->group, IpAddr(232, 0, 0, 1));
  EXPECT_THAT(std::vector<IpAddr>(record->sources.begin(), record->sources.end()),
              ElementsAre(IpAddr(203, 0, 113, 1), IpAddr(203, 0, 113, 2)));
  ++record;
  EXPECT_EQ(record->type, IgmpV3GroupRecordType::blockOldSources);
  EXPECT_EQ(record->group, group);
  EXPECT_THAT(std::vector<IpAddr>(record->sources.begin(), record->sources.end()),
              ElementsAre(IpAddr(198, 51, 100, 1)));
}

TEST(RealFrameTest, HostReportsWithVersionTwoInATaggedVlan) {
  ByteVector const bytes{
      0x01, 0x00, 0x5e, 0x02, 0x02, 0x02, 0x52, 0x54, 0x00, 0x12, 0x34, 0x56,  // Ethernet
      0x81, 0x00, 0xe0, 0x0a, 0x08, 0x00, 0x46, 0xc0, 0x00, 0x20, 0x00, 0x00,  // 802.1Q, IPv4
      0x40, 0x00, 0x01, 0x02, 0x31, 0x09, 0xc0, 0x00, 0x02, 0x0a, 0xef, 0x02,
      0x02, 0x02, 0x94, 0x04, 0x00, 0x00, 0x16, 0x00, 0xf8, 0xfa, 0xef, 0x02,  // IGMP
      0x02, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
  EXPECT_EQ(message<Igmp::ReportV2>(parse(bytes)).group, IpAddr(239, 2, 2, 2));
  EXPECT_EQ(Igmp::parseEthernet(bytes)->vlan, Bridging::VlanId(10));
}

TEST(RealFrameTest, HostReportsWithVersionOneAndWithoutRouterAlert) {
  ByteVector const frame{
      0x01, 0x00, 0x5e, 0x03, 0x03, 0x03, 0x52, 0x54, 0x00, 0x12, 0x34, 0x56,  // Ethernet
      0x08, 0x00, 0x45, 0x00, 0x00, 0x1c, 0x1c, 0x2b, 0x00, 0x00, 0x01, 0x02,  // IPv4
      0xe9, 0xa3, 0xc0, 0x00, 0x02, 0x0b, 0xef, 0x03, 0x03, 0x03, 0x12, 0x00,  // IGMP
      0xfb, 0xf8, 0xef, 0x03, 0x03, 0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
  EXPECT_EQ(message<Igmp::ReportV1>(parse(frame)).group, IpAddr(239, 3, 3, 3));
}

TEST(RealFrameTest, HostLeavesWithVersionTwo) {
  ByteVector const frame{
      0x01, 0x00, 0x5e, 0x00, 0x00, 0x02, 0x52, 0x54, 0x00, 0x12, 0x34, 0x56,  // Ethernet
      0x08, 0x00, 0x46, 0xc0, 0x00, 0x20, 0x00, 0x00, 0x40, 0x00, 0x01, 0x02,  // IPv4
      0x42, 0x0b, 0xc0, 0x00, 0x02, 0x0a, 0xe0, 0x00, 0x00, 0x02, 0x94, 0x04,  // Router Alert
      0x00, 0x00, 0x17, 0x00, 0xf7, 0xfa, 0xef, 0x02, 0x02, 0x02, 0x00, 0x00,  // IGMP
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
  EXPECT_EQ(message<Igmp::Leave>(parse(frame)).group, IpAddr(239, 2, 2, 2));
}

TEST(RealFrameTest, RouterAsksForAllGroupsWithVersionThree) {
  ByteVector const frame{
      0x01, 0x00, 0x5e, 0x00, 0x00, 0x01, 0x52, 0x54, 0x00, 0xab, 0xcd, 0xef,  // Ethernet
      0x08, 0x00, 0x46, 0xc0, 0x00, 0x24, 0x00, 0x00, 0x40, 0x00, 0x01, 0x02,  // IPv4
      0x42, 0x11, 0xc0, 0x00, 0x02, 0x01, 0xe0, 0x00, 0x00, 0x01, 0x94, 0x04,  // Router Alert
      0x00, 0x00, 0x11, 0x64, 0xec, 0x1e, 0x00, 0x00, 0x00, 0x00, 0x02, 0x7d,  // IGMP
      0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
  auto const query = message<Igmp::Query>(parse(frame));
  EXPECT_EQ(query.version, Igmp::IgmpVersion::v3);
  EXPECT_TRUE(query.isGeneral());
  EXPECT_EQ(query.maxResponseTime, 10s);
  EXPECT_EQ(query.robustness, 2);
  EXPECT_EQ(query.queryInterval, 125s);
}

}  // namespace
