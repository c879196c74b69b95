#include <cerrno>
#include <memory>
#include <utility>
#include <variant>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/interface/InheritedSockets.h"
#include "tests/platform/interface/FakeSystemCalls.h"
#include "tests/platform/interface/PamTesting.h"

namespace {

using namespace InterfaceTest;
using Interface::EthDevSettings;
using Interface::InheritedSockets;
using Interface::IntfStatusAndDeviceName;
using Interface::PacketSocket;
using Interface::SocketOpener;
using testing::ElementsAre;
using testing::IsEmpty;

/// A program that has a device open, and the one that takes its place.
class InheritedSocketsTest : public testing::Test {
 protected:
  static EthDevSettings settings() {
    EthDevSettings settings;
    settings.bufferSize = LongPackets::bufferSize;
    settings.protocol = 3;
    settings.filter = {{0x28, 0, 0, 12}, {0x15, 0, 1, 0x800}, {6, 0, 0, 0xffff}, {6, 0, 0, 0}};
    return settings;
  }

  InheritedSocketsTest() { former.open(device, settings()); }

  /// As executing a program does: nothing of the former one's memory is left.
  void restart(PacketSocket::PassedOn const& passed) {
    auto const direct = std::make_shared<Interface::DirectSocketOpener>(system);
    heir = std::make_unique<InheritedSockets>(direct, std::vector{passed}, system);
    system.journal.clear();
  }
  void restart() { restart(former.passedOn()); }

  bool open(EthDevSettings const& with = settings(),
            IntfStatusAndDeviceName const& on = {"swp1", 7}) {
    auto const request = heir->open(on, with, [&](SocketOpener::Result result) {
      if (auto* const opened = std::get_if<std::unique_ptr<PacketSocket>>(&result))
        socket = std::move(*opened);
    });
    return socket != nullptr;
  }
  bool wasOpenedAnew() const { return testing::Value(system.journal, testing::Contains("socket")); }
  void arrive(std::uint8_t content) {
    ASSERT_TRUE(system.socketOn(7).arrive({frameOf(60, content)}));
  }
  static std::vector<Frame> framesOf(PacketSocket& from) {
    std::vector<Frame> frames;
    while (auto const pkt = from.receive()) {
      auto const bytes = (*pkt)->bytes();
      frames.emplace_back(bytes.begin(), bytes.end());
    }
    return frames;
  }

  LongPackets const longPackets;
  FakeSystemCalls system;
  IntfStatusAndDeviceName const device{"swp1", 7};
  PacketSocket former{system};
  std::unique_ptr<InheritedSockets> heir;
  std::unique_ptr<PacketSocket> socket;
};

TEST_F(InheritedSocketsTest, FramesThatCameMeanwhileAreHeardAndNoneTwice) {
  arrive(1);
  arrive(2);
  EXPECT_THAT(framesOf(former), ElementsAre(frameOf(60, 1), frameOf(60, 2)));
  arrive(3);
  restart();
  arrive(4);
  ASSERT_TRUE(open());
  arrive(5);
  EXPECT_THAT(framesOf(*socket), ElementsAre(frameOf(60, 3), frameOf(60, 4), frameOf(60, 5)));
  EXPECT_FALSE(wasOpenedAnew());
}

TEST_F(InheritedSocketsTest, RingThatIsFullIsReadFromItsOldestFrameOn) {
  for (int i = 0; i < 100; ++i) arrive(0);
  framesOf(former);
  for (std::size_t i = 0; i < PacketSocket::mostWaiting; ++i) arrive(static_cast<std::uint8_t>(i));
  restart();
  ASSERT_TRUE(open());
  auto const frames = framesOf(*socket);
  ASSERT_EQ(frames.size(), PacketSocket::mostWaiting);
  EXPECT_EQ(frames.front(), frameOf(60, 0));
  EXPECT_EQ(frames.back(), frameOf(60, static_cast<std::uint8_t>(frames.size() - 1)));
}

TEST_F(InheritedSocketsTest, SocketGoesToOneDeviceOnly) {
  restart();
  ASSERT_TRUE(open());
  auto const first = std::exchange(socket, nullptr);
  ASSERT_TRUE(open());
  EXPECT_TRUE(wasOpenedAnew());
}

TEST_F(InheritedSocketsTest, DeviceOfAnotherIndexIsOpenedAnew) {
  restart();
  ASSERT_TRUE(open(settings(), {"swp1", 8}));
  EXPECT_TRUE(wasOpenedAnew());
}

TEST_F(InheritedSocketsTest, DeviceThatWasMadeAgainUnderItsIndexIsOpenedAnew) {
  restart();
  system.socketOn(7).loseInterface();
  ASSERT_TRUE(open());
  EXPECT_TRUE(wasOpenedAnew());
  EXPECT_THAT(system.journal, testing::Contains("close")) << "of what was inherited";
}

TEST_F(InheritedSocketsTest, DeviceIsOpenedAnewForAnotherProtocol) {
  restart();
  auto other = settings();
  other.protocol = 4;
  ASSERT_TRUE(open(other));
  EXPECT_TRUE(wasOpenedAnew());
}

TEST_F(InheritedSocketsTest, DeviceIsOpenedAnewForAnotherFilter) {
  auto changed = settings();
  changed.filter.back().k = 1;
  auto longer = settings();
  longer.filter.push_back({6, 0, 0, 0});
  auto none = settings();
  none.filter.clear();
  for (auto const& other : {changed, longer, none}) {
    restart();
    ASSERT_TRUE(open(other));
    EXPECT_TRUE(wasOpenedAnew());
    socket = nullptr;
    former.open(device, settings());
  }
}

TEST_F(InheritedSocketsTest, SocketWithoutAFilterIsTakenUpForNone) {
  auto none = settings();
  none.filter.clear();
  PacketSocket unfiltered(system);
  unfiltered.open(device, none);
  restart(unfiltered.passedOn());
  ASSERT_TRUE(open(none));
  EXPECT_FALSE(wasOpenedAnew());
}

TEST_F(InheritedSocketsTest, SocketThatWasSetUpInAnotherMannerIsOpenedAnew) {
  auto other = former.passedOn();
  ++other.manner;
  restart(other);
  ASSERT_TRUE(open());
  EXPECT_TRUE(wasOpenedAnew());
}

TEST_F(InheritedSocketsTest, SlotBeyondTheRingIsNotBelieved) {
  auto other = former.passedOn();
  other.nextSlot = PacketSocket::mostWaiting;
  restart(other);
  ASSERT_TRUE(open());
  EXPECT_TRUE(wasOpenedAnew());
}

TEST_F(InheritedSocketsTest, DeviceWhoseRingCannotBeMappedIsOpenedAnew) {
  restart();
  system.failNext("mmap", ENOMEM);
  ASSERT_TRUE(open());
  EXPECT_TRUE(wasOpenedAnew());
}

TEST_F(InheritedSocketsTest, DescriptorThatIsNoSocketIsOpenedAnew) {
  auto other = former.passedOn();
  other.descriptor = 9999;
  restart(other);
  ASSERT_TRUE(open());
  EXPECT_TRUE(wasOpenedAnew());
}

TEST_F(InheritedSocketsTest, WhatNobodyAsksForIsClosed) {
  restart();
  heir->closeRest();
  EXPECT_EQ(system.openSockets(), 0u);
  ASSERT_TRUE(open());
  EXPECT_TRUE(wasOpenedAnew());
}

}  // namespace
