#include <chrono>
#include <optional>

#include <gtest/gtest.h>

#include "platform/igmp/wire/Pim.h"
#include "tests/platform/igmp/FrameBuilder.h"

namespace {

using namespace IgmpTest;
using namespace std::chrono_literals;
using Igmp::IgnoreReason;
using Igmp::PimHello;

constexpr IpAddr router{192, 0, 2, 3};

FrameBuilder pim(ByteVector message) {
  return FrameBuilder::message(std::move(message), Igmp::allPimRouters)
      .protocol(103)
      .from(router)
      .withoutRouterAlert();
}
FrameBuilder hello(ByteVector const& options, unsigned versionAndType = 0x20) {
  return pim(ByteWriter().u8(versionAndType).u8(0).u16(0).append(options).bytes());
}
ByteVector option(unsigned type, ByteVector const& value) {
  return ByteWriter().u16(type).u16(static_cast<unsigned>(value.size())).append(value).bytes();
}
ByteVector holdtime(unsigned seconds) {
  return option(1, ByteWriter().u16(seconds).bytes());
}

/// The hello of a frame, or why it is none.
Igmp::Parsed<PimHello> parsed(FrameBuilder const& frame) {
  ByteVector const bytes = frame.bytes();
  return Igmp::parsePimHello(*Igmp::parseEthernet(bytes));
}
std::optional<IgnoreReason> causeOf(FrameBuilder const& frame) {
  auto const hello = parsed(frame);
  return hello ? std::nullopt : std::optional(hello.reason());
}

TEST(PimTest, HelloSaysWhoSendsItAndForHowLongItHolds) {
  auto const parsedHello = parsed(hello(holdtime(90)));
  ASSERT_TRUE(parsedHello);
  EXPECT_EQ(parsedHello->source, router);
  EXPECT_EQ(parsedHello->holdtime, 90s);
}

TEST(PimTest, HelloWithoutHoldtimeHoldsForTheDefault) {
  EXPECT_EQ(parsed(hello({}))->holdtime, 105s);
  EXPECT_EQ(parsed(hello(option(19, {0, 0, 0, 1})))->holdtime, 105s);
}

TEST(PimTest, HoldtimeIsFoundAmongOtherOptions) {
  ByteVector const options = ByteWriter()
                                 .append(option(19, {0, 0, 0, 1}))  // DR priority
                                 .append(option(65001, {}))
                                 .append(holdtime(30))
                                 .append(option(20, {1, 2, 3, 4}))  // generation ID
                                 .bytes();
  EXPECT_EQ(parsed(hello(options))->holdtime, 30s);
}

TEST(PimTest, HoldtimeMayBeZeroOrForever) {
  EXPECT_EQ(parsed(hello(holdtime(0)))->holdtime, 0s);
  EXPECT_EQ(parsed(hello(holdtime(0xffff)))->holdtime, PimHello::forever);
}

TEST(PimTest, PaddingAndTagsAreNoPartOfAHello) {
  EXPECT_TRUE(parsed(hello(holdtime(90)).padded(0xff)));
  EXPECT_TRUE(parsed(hello(holdtime(90)).vlan(10)));
}

TEST(PimTest, OtherTrafficIsNone) {
  EXPECT_EQ(causeOf(hello({}).etherType(0x86dd)), IgnoreReason::notIgmp);
  EXPECT_EQ(causeOf(hello({}).protocol(17)), IgnoreReason::notIgmp);
  EXPECT_EQ(causeOf(FrameBuilder::queryV1()), IgnoreReason::notIgmp);
  EXPECT_EQ(causeOf(hello({}, 0x23).damageIgmpChecksum()), IgnoreReason::notIgmp) << "join/prune";
}

TEST(PimTest, DamageIsRefused) {
  EXPECT_EQ(causeOf(hello({}).damageIpChecksum()), IgnoreReason::badIpChecksum);
  EXPECT_EQ(causeOf(hello(holdtime(90)).damageIgmpChecksum()), IgnoreReason::badPimChecksum);
  EXPECT_EQ(causeOf(hello({}).flagsAndOffset(0x2000)), IgnoreReason::fragment);
  EXPECT_EQ(causeOf(hello({}).totalLength(1000)), IgnoreReason::truncated);
}

TEST(PimTest, LengthsThatDoNotAgreeAreRefused) {
  EXPECT_EQ(causeOf(pim({0x20, 0, 0})), IgnoreReason::inconsistentLength);
  EXPECT_EQ(causeOf(hello({0, 1})), IgnoreReason::inconsistentLength);
  EXPECT_EQ(causeOf(hello({0, 1, 0, 2, 0})), IgnoreReason::inconsistentLength);
  EXPECT_EQ(causeOf(hello(option(1, {0, 0, 0, 90}))), IgnoreReason::inconsistentLength);
}

TEST(PimTest, HelloFromElsewhereIsRefused) {
  EXPECT_EQ(causeOf(hello({}).ttl(2)), IgnoreReason::badTtl);
  EXPECT_EQ(causeOf(hello({}).from(IpAddr())), IgnoreReason::sourceNotUnicast);
  EXPECT_EQ(causeOf(hello({}).from(IpAddr(224, 0, 0, 13))), IgnoreReason::sourceNotUnicast);
}

TEST(PimTest, HelloOfAnotherVersionOrToSomebodyElseIsRefused) {
  EXPECT_EQ(causeOf(hello({}, 0x10)), IgnoreReason::badPimHello);
  EXPECT_EQ(causeOf(hello({}).to(IpAddr(224, 0, 0, 1))), IgnoreReason::badPimHello);
}

}  // namespace
