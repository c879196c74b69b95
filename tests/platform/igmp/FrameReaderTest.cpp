#include <array>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "platform/igmp/wire/Checksum.h"
#include "platform/igmp/wire/FrameReader.h"
#include "tests/platform/igmp/FrameBuilder.h"

namespace {

using Bridging::VlanId;
using Igmp::IgnoreReason;
using IgmpTest::ByteVector;
using IgmpTest::FrameBuilder;
using Wirex::IpAddr;

constexpr IpAddr group{239, 1, 1, 1};

/// The cause why `frame` is not an IGMP datagram; fails if it is one.
IgnoreReason refusal(ByteVector const& frame) {
  auto const ethernet = Igmp::parseEthernet(frame);
  if (!ethernet) return ethernet.reason();
  auto const datagram = Igmp::parseDatagram(*ethernet);
  EXPECT_FALSE(datagram) << "accepted";
  return datagram ? IgnoreReason::notIgmp : datagram.reason();
}

/// What of the datagram in `frame` does not view the frame's bytes.
struct DatagramHeader {
  IpAddr source;
  IpAddr destination;
  unsigned ttl;
  bool routerAlert;
  std::size_t payloadSize;
};

DatagramHeader accepted(ByteVector const& frame) {
  auto const ethernet = Igmp::parseEthernet(frame);
  EXPECT_TRUE(ethernet);
  auto const datagram = Igmp::parseDatagram(*ethernet);
  EXPECT_TRUE(datagram) << datagram.reason();
  return {datagram->source, datagram->destination, datagram->ttl, datagram->routerAlert,
          datagram->payload.size()};
}

TEST(ChecksumTest, IsTheExampleOfRfc1071) {
  std::array<std::uint8_t, 8> const example{0x00, 0x01, 0xf2, 0x03, 0xf4, 0xf5, 0xf6, 0xf7};
  EXPECT_EQ(Igmp::checksum(example), 0xffff - 0xddf2);
}

TEST(ChecksumTest, OddByteCountsAsTheHighOneOfAWord) {
  std::array<std::uint8_t, 3> const odd{0x12, 0x34, 0x56};
  EXPECT_EQ(Igmp::checksum(odd), 0xffff - (0x1234 + 0x5600));
}

TEST(EthernetTest, UntaggedFrameHasNoVlan) {
  auto const bytes = FrameBuilder::reportV2(group).bytes();
  auto const frame = Igmp::parseEthernet(bytes);
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->vlan, std::nullopt);
  EXPECT_EQ(frame->etherType, Igmp::etherTypeIpv4);
  EXPECT_EQ(frame->payload.data(), bytes.data() + 14);
  EXPECT_EQ(frame->payload.size(), bytes.size() - 14);
}

TEST(EthernetTest, TagTellsTheVlanWhateverItsPriority) {
  for (unsigned const vlan : {1u, 10u, 4094u}) {
    auto const bytes = FrameBuilder::reportV2(group).vlan(vlan, 7).bytes();
    auto const frame = Igmp::parseEthernet(bytes);
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->vlan, VlanId(static_cast<std::uint16_t>(vlan)));
    EXPECT_EQ(frame->etherType, Igmp::etherTypeIpv4);
    EXPECT_EQ(frame->payload.size(), bytes.size() - 18);
  }
}

TEST(EthernetTest, PriorityTagLeavesTheFrameUntagged) {
  auto const bytes = FrameBuilder::reportV2(group).vlan(0, 6).bytes();
  auto const frame = Igmp::parseEthernet(bytes);
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->vlan, std::nullopt);
  EXPECT_EQ(frame->etherType, Igmp::etherTypeIpv4);
}

TEST(ProtocolTest, IsWhatTheHeaderNames) {
  auto const report = FrameBuilder::reportV2(group).bytes();
  EXPECT_EQ(Igmp::ipProtocolOf(*Igmp::parseEthernet(report)), Igmp::ipProtocolIgmp);
}

TEST(ProtocolTest, FrameThatEndsBeforeItOrIsNoIpv4HasNone) {
  auto report = FrameBuilder::reportV2(group).bytes();
  Igmp::EthernetFrame const whole = *Igmp::parseEthernet(report);
  Igmp::EthernetFrame shortened = whole;
  shortened.payload = whole.payload.first(9);
  EXPECT_EQ(Igmp::ipProtocolOf(shortened), std::nullopt);
  Igmp::EthernetFrame ipv6 = whole;
  ipv6.etherType = 0x86dd;
  EXPECT_EQ(Igmp::ipProtocolOf(ipv6), std::nullopt);
}

TEST(EthernetTest, ReservedVlanIsRefused) {
  EXPECT_EQ(refusal(FrameBuilder::reportV2(group).vlan(4095).bytes()), IgnoreReason::reservedVlan);
}

TEST(EthernetTest, FrameWithoutWholeHeaderIsTruncated) {
  auto const tagged = FrameBuilder::reportV2(group).vlan(10).bytes();
  for (std::size_t size = 0; size < 18; ++size) {
    auto const frame = Igmp::parseEthernet(Igmp::Bytes(tagged).first(size));
    ASSERT_FALSE(frame) << size;
    EXPECT_EQ(frame.reason(), IgnoreReason::truncated) << size;
  }
}

TEST(DatagramTest, TellsTheHeader) {
  auto const datagram =
      accepted(FrameBuilder::reportV2(group).from({192, 0, 2, 77}).ttl(9).bytes());
  EXPECT_EQ(datagram.source, IpAddr(192, 0, 2, 77));
  EXPECT_EQ(datagram.destination, group);
  EXPECT_EQ(datagram.ttl, 9);
  EXPECT_TRUE(datagram.routerAlert);
  EXPECT_EQ(datagram.payloadSize, 8u);
}

TEST(DatagramTest, PaddingIsNotPayload) {
  for (unsigned const filler : {0x00u, 0xffu}) {
    EXPECT_EQ(accepted(FrameBuilder::reportV2(group).padded(filler).bytes()).payloadSize, 8u);
  }
}

TEST(DatagramTest, RouterAlertIsFoundAmongOtherOptions) {
  struct Case {
    ByteVector options;
    bool routerAlert;
  };
  ByteVector const timestamp{0x44, 0x08, 0x05, 0x00, 0x00, 0x00, 0x00, 0x00};
  ByteVector timestampAndAlert = timestamp;
  timestampAndAlert.insert(timestampAndAlert.end(), {0x94, 0x04, 0x00, 0x00});
  for (auto const& [options, routerAlert] : std::vector<Case>{
           {{}, false},
           {{0x94, 0x04, 0x00, 0x00}, true},
           {{0x01, 0x01, 0x94, 0x04, 0x00, 0x00, 0x01, 0x00}, true},
           {{0x00, 0x94, 0x04, 0x00, 0x00, 0x00, 0x00, 0x00}, false},  // after the end of options
           {{0x01, 0x01, 0x01, 0x01}, false},
           {{0x07, 0x04, 0x94, 0x04}, false},  // inside another option
           {timestamp, false},
           {timestampAndAlert, true},
       }) {
    auto const frame = FrameBuilder::reportV2(group).options(options).bytes();
    EXPECT_EQ(accepted(frame).routerAlert, routerAlert) << testing::PrintToString(options);
  }
}

TEST(DatagramTest, MalformedOptionsAreABadHeader) {
  for (ByteVector const& options : std::vector<ByteVector>{
           {0x94, 0x00, 0x00, 0x00},  // shorter than its own header
           {0x94, 0x01, 0x00, 0x00},
           {0x94, 0x05, 0x00, 0x00},  // longer than the header
           {0x01, 0x01, 0x01, 0x94},  // its length is missing
       }) {
    EXPECT_EQ(refusal(FrameBuilder::reportV2(group).options(options).bytes()),
              IgnoreReason::badIpHeader)
        << testing::PrintToString(options);
  }
}

TEST(DatagramTest, OtherProtocolsAreNotIgmp) {
  EXPECT_EQ(refusal(FrameBuilder::reportV2(group).etherType(0x86dd).bytes()),
            IgnoreReason::notIgmp);
  EXPECT_EQ(refusal(FrameBuilder::reportV2(group).etherType(0x0806).bytes()),
            IgnoreReason::notIgmp);
  EXPECT_EQ(refusal(FrameBuilder::reportV2(group).protocol(17).bytes()), IgnoreReason::notIgmp);
  EXPECT_EQ(refusal(FrameBuilder::reportV2(group).protocol(103).bytes()), IgnoreReason::notIgmp);
}

TEST(DatagramTest, LlcFrameIsNotIgmp) {
  EXPECT_EQ(refusal(FrameBuilder::reportV2(group).etherType(0x0026).bytes()),
            IgnoreReason::notIgmp);
}

TEST(DatagramTest, DoubleTaggedFrameIsNotIgmp) {
  EXPECT_EQ(refusal(FrameBuilder::reportV2(group).vlan(10).vlan(20).bytes()),
            IgnoreReason::notIgmp);
  EXPECT_EQ(refusal(FrameBuilder::reportV2(group).etherType(0x88a8).bytes()),
            IgnoreReason::notIgmp);
}

TEST(DatagramTest, DamageOfOtherProtocolsIsNotIgmpsDamage) {
  EXPECT_EQ(refusal(FrameBuilder::reportV2(group).protocol(17).damageIpChecksum().bytes()),
            IgnoreReason::notIgmp);
  EXPECT_EQ(refusal(FrameBuilder::reportV2(group).protocol(17).totalLength(1500).bytes()),
            IgnoreReason::notIgmp);
}

TEST(DatagramTest, OtherIpVersionIsABadHeader) {
  EXPECT_EQ(refusal(FrameBuilder::reportV2(group).ipVersion(6).bytes()), IgnoreReason::badIpHeader);
}

TEST(DatagramTest, HeaderShorterThanItsFixedPartIsABadHeader) {
  for (unsigned const words : {0u, 1u, 4u}) {
    EXPECT_EQ(refusal(FrameBuilder::reportV2(group).headerWords(words).bytes()),
              IgnoreReason::badIpHeader);
  }
}

TEST(DatagramTest, HeaderBeyondTheCaptureIsTruncated) {
  EXPECT_EQ(refusal(FrameBuilder::reportV2(group).headerWords(15).bytes()),
            IgnoreReason::truncated);
}

TEST(DatagramTest, TotalLengthShorterThanTheHeaderIsABadHeader) {
  EXPECT_EQ(refusal(FrameBuilder::reportV2(group).totalLength(23).bytes()),
            IgnoreReason::badIpHeader);
  EXPECT_EQ(accepted(FrameBuilder::reportV2(group).totalLength(24).bytes()).payloadSize, 0u);
}

TEST(DatagramTest, TotalLengthBeyondTheCaptureIsTruncated) {
  EXPECT_EQ(refusal(FrameBuilder::reportV2(group).totalLength(33).bytes()),
            IgnoreReason::truncated);
  EXPECT_EQ(refusal(FrameBuilder::reportV2(group).totalLength(65535).bytes()),
            IgnoreReason::truncated);
}

TEST(DatagramTest, WrongHeaderChecksumIsRefused) {
  EXPECT_EQ(refusal(FrameBuilder::reportV2(group).damageIpChecksum().bytes()),
            IgnoreReason::badIpChecksum);
}

TEST(DatagramTest, FragmentsAreRefusedAndDontFragmentIsNone) {
  unsigned const dontFragment = 0x4000;
  unsigned const moreFragments = 0x2000;
  EXPECT_EQ(refusal(FrameBuilder::reportV2(group).flagsAndOffset(moreFragments).bytes()),
            IgnoreReason::fragment);
  EXPECT_EQ(refusal(FrameBuilder::reportV2(group).flagsAndOffset(1).bytes()),
            IgnoreReason::fragment);
  EXPECT_EQ(refusal(FrameBuilder::reportV2(group).flagsAndOffset(0x1000).bytes()),
            IgnoreReason::fragment);
  accepted(FrameBuilder::reportV2(group).flagsAndOffset(dontFragment).bytes());
}

}  // namespace
