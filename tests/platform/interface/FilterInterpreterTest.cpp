#include <gtest/gtest.h>

#include "platform/interface/FilterInterpreter.h"

namespace {

using Interface::FilterInterpreter;
using Interface::SocketFilter;
using PacketType = FilterInterpreter::PacketType;

constexpr std::uint16_t loadByte = 0x30;
constexpr std::uint16_t loadHalf = 0x28;
constexpr std::uint16_t loadWord = 0x20;
constexpr std::uint16_t jumpIfEqual = 0x15;
constexpr std::uint16_t accept = 0x06;
constexpr std::uint32_t ancillary = 0xfffff000;
constexpr std::uint32_t packetType = ancillary + 4;

/// Accepts if what is loaded is equal to `value`.
SocketFilter equals(std::uint16_t load, std::uint32_t from, std::uint32_t value) {
  return {
      {load, 0, 0, from}, {jumpIfEqual, 0, 1, value}, {accept, 0, 0, 0xffff}, {accept, 0, 0, 0}};
}

std::vector<std::uint8_t> const frame{1, 2, 3, 4, 5};

TEST(FilterInterpreterTest, AcceptsEverythingWithoutAProgram) {
  EXPECT_TRUE(FilterInterpreter({}).accepts(frame));
  EXPECT_TRUE(FilterInterpreter({}).accepts({}));
}

TEST(FilterInterpreterTest, ReturnValueDecides) {
  EXPECT_TRUE(FilterInterpreter({{accept, 0, 0, 1}}).accepts(frame));
  EXPECT_FALSE(FilterInterpreter({{accept, 0, 0, 0}}).accepts(frame));
}

TEST(FilterInterpreterTest, ProgramSeesTheFramesBytes) {
  EXPECT_TRUE(FilterInterpreter(equals(loadByte, 4, 5)).accepts(frame));
  EXPECT_FALSE(FilterInterpreter(equals(loadByte, 4, 6)).accepts(frame));
  EXPECT_TRUE(FilterInterpreter(equals(loadHalf, 3, 0x0405)).accepts(frame));
  EXPECT_TRUE(FilterInterpreter(equals(loadWord, 1, 0x02030405)).accepts(frame));
}

TEST(FilterInterpreterTest, LoadBeyondTheFrameDropsIt) {
  EXPECT_FALSE(FilterInterpreter({{loadByte, 0, 0, 5}, {accept, 0, 0, 1}}).accepts(frame));
  EXPECT_FALSE(FilterInterpreter({{loadHalf, 0, 0, 4}, {accept, 0, 0, 1}}).accepts(frame));
  EXPECT_FALSE(FilterInterpreter({{loadWord, 0, 0, 2}, {accept, 0, 0, 1}}).accepts(frame));
  EXPECT_FALSE(FilterInterpreter({{loadByte, 0, 0, 0}, {accept, 0, 0, 1}}).accepts({}));
}

TEST(FilterInterpreterTest, FramesAreMulticastUnlessToldOtherwise) {
  EXPECT_TRUE(FilterInterpreter(equals(loadByte, packetType, 2)).accepts(frame));
}

TEST(FilterInterpreterTest, ProgramSeesThatAFrameIsOutgoing) {
  EXPECT_TRUE(
      FilterInterpreter(equals(loadByte, packetType, 4), PacketType::outgoing).accepts(frame));
  EXPECT_FALSE(
      FilterInterpreter(equals(loadByte, packetType, 2), PacketType::outgoing).accepts(frame));
}

TEST(FilterInterpreterTest, PacketTypeIsSeenWhereverItIsLoaded) {
  SocketFilter program{{loadByte, 0, 0, 0}};
  for (auto const& instruction : equals(loadByte, packetType, 2)) program.push_back(instruction);
  EXPECT_TRUE(FilterInterpreter(program).accepts(frame));
}

TEST(FilterInterpreterTest, PacketTypeNeedsNoBytes) {
  EXPECT_TRUE(FilterInterpreter(equals(loadByte, packetType, 2)).accepts({}));
}

TEST(FilterInterpreterTest, OtherAncillaryBytesAreNotThere) {
  EXPECT_FALSE(FilterInterpreter({{loadByte, 0, 0, ancillary}, {accept, 0, 0, 1}}).accepts(frame));
}

TEST(FilterInterpreterTest, ConstantThatLooksLikeThePacketTypeIsNotTouched) {
  EXPECT_FALSE(FilterInterpreter({{loadWord, 0, 0, packetType}, {accept, 0, 0, 1}}).accepts(frame));
  EXPECT_TRUE(FilterInterpreter({{accept, 0, 0, packetType}}).accepts(frame));
}

}  // namespace
