#include <algorithm>
#include <numeric>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/kel/Exception.h"
#include "platform/wirex/Pkt.h"
#include "tests/platform/wirex/Wiring.h"

namespace {

using namespace WirexTest;
using testing::ElementsAre;
using Wirex::Pkt;

char const* const tooLong = "Pkt::size > PktManager::bufferSize not allowed";

TEST(PktTest, HasTheSizeThatWasAskedFor) {
  auto const pkt = Pkt::PktIs(std::size_t{100});
  EXPECT_EQ(pkt->size(), 100u);
  EXPECT_EQ(pkt->bytes().size(), 100u);
}

TEST(PktTest, EveryByteCanBeWritten) {
  auto const pkt = Pkt::PktIs(std::size_t{100});
  std::iota(pkt->bytes().begin(), pkt->bytes().end(), std::uint8_t{0});
  Pkt const& read = *pkt;
  for (std::size_t i = 0; i < 100; ++i) ASSERT_EQ(read.bytes()[i], i);
}

TEST(PktTest, MayBeEmpty) {
  EXPECT_EQ(Pkt::PktIs(std::size_t{0})->size(), 0u);
}

TEST(PktTest, HoldsACopyOfTheBytesGiven) {
  Frame bytes{1, 2, 3};
  auto const pkt = Pkt::PktIs(bytes);
  bytes[0] = 9;
  EXPECT_THAT(frameOf(pkt->bytes()), ElementsAre(1, 2, 3));
}

TEST(PktTest, IsAtFirstAsLongAsAnEthernetFrameAtMost) {
  EXPECT_EQ(Wirex::PktManager::instance().bufferSize(), 2048u);
}

TEST(PktTest, IsAsLongAsTheBufferSizeAtMost) {
  PacketBuffers const buffers(100);
  EXPECT_EQ(Pkt::PktIs(std::size_t{100})->size(), 100u);
  EXPECT_EQ(refusalOf<Kel::RangeException>([] { Pkt::PktIs(std::size_t{101}); }), tooLong);
}

TEST(PktTest, CopyIsAsLongAsTheBufferSizeAtMost) {
  PacketBuffers const buffers(100);
  EXPECT_EQ(Pkt::PktIs(Frame(100))->size(), 100u);
  EXPECT_EQ(refusalOf<Kel::RangeException>([] { Pkt::PktIs(Frame(101)); }), tooLong);
}

TEST(PktTest, GrowsWithTheBufferSize) {
  PacketBuffers const buffers(10004);
  EXPECT_EQ(Pkt::PktIs(std::size_t{10004})->size(), 10004u);
}

TEST(PktTest, HasRoomForEthernetTagAndTheLongestIpHeader) {
  EXPECT_EQ(Pkt::PktIs(std::size_t{1})->room(), 14u + 4u + 60u);
}

TEST(PktTest, GrowsAtTheFront) {
  auto const pkt = Pkt::PktIs(Frame{1, 2, 3});
  auto const added = pkt->prepend(2);
  ASSERT_EQ(added.size(), 2u);
  std::fill(added.begin(), added.end(), std::uint8_t{7});
  EXPECT_EQ(pkt->size(), 5u);
  EXPECT_EQ(pkt->room(), Pkt::headroom - 2);
  EXPECT_THAT(frameOf(pkt->bytes()), ElementsAre(7, 7, 1, 2, 3));
}

TEST(PktTest, GrowsUntilItsRoomIsUsedUp) {
  auto const pkt = Pkt::PktIs(Frame{1, 2, 3});
  auto const added = pkt->prepend(pkt->room());
  std::fill(added.begin(), added.end(), std::uint8_t{7});
  EXPECT_EQ(pkt->room(), 0u);
  EXPECT_EQ(pkt->size(), Pkt::headroom + 3);
  EXPECT_THAT(frameOf(pkt->bytes().subspan(Pkt::headroom)), ElementsAre(1, 2, 3));
}

TEST(PktTest, RoomDoesNotCountAsSize) {
  PacketBuffers const buffers(3);
  auto const pkt = Pkt::PktIs(Frame{1, 2, 3});
  EXPECT_EQ(pkt->prepend(10).size(), 10u);
  EXPECT_EQ(pkt->size(), 13u);
}

}  // namespace
