#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/interface/CaptureEthDevPams.h"
#include "tests/platform/wirex/Wiring.h"

namespace {

using namespace Interface;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using Wirex::IntfId;
using WirexTest::Frame;
using WirexTest::InputListener;

/// Takes frames that begin with 1.
SocketFilter const ones{{0x30, 0, 0, 0}, {0x15, 0, 1, 1}, {6, 0, 0, 0xffff}, {6, 0, 0, 0}};

class CaptureEthDevPamsTest : public testing::Test {
 protected:
  Kel::Ptr<EthDevPam> open(char const* intf, EthDevSettings const& settings = {2048, 3, {}}) {
    return devices->pam(IntfId(intf), {intf, 0}, settings);
  }
  void receive(char const* intf, Frame const& frame) { devices->receive(IntfId(intf), frame); }

  std::optional<CaptureEthDevPams> devices{std::in_place};
};

TEST_F(CaptureEthDevPamsTest, FrameIsReceivedOnItsInterface) {
  auto const swp1 = Kel::make<InputListener>(open("swp1"));
  auto const swp2 = Kel::make<InputListener>(open("swp2"));
  receive("swp1", {1, 2, 3});
  EXPECT_THAT(swp1->heard, ElementsAre(Frame{1, 2, 3}));
  EXPECT_THAT(swp2->heard, IsEmpty());
  EXPECT_EQ(open("swp1")->counters().received, 1u);
  EXPECT_EQ(open("swp2")->counters().received, 0u);
}

TEST_F(CaptureEthDevPamsTest, FrameIsIgnoredWhereNothingIsOpen) {
  auto const swp1 = Kel::make<InputListener>(open("swp1"));
  receive("swp2", {1});
  EXPECT_THAT(swp1->heard, IsEmpty());
}

TEST_F(CaptureEthDevPamsTest, FrameIsIgnoredOnceTheDeviceIsClosed) {
  auto hearer = Kel::make<InputListener>(open("swp1"));
  hearer = nullptr;
  receive("swp1", {1});
  EXPECT_EQ(open("swp1")->counters().received, 0u);
}

TEST_F(CaptureEthDevPamsTest, FrameHasToPassTheFilter) {
  auto const pam = open("swp1", {2048, 3, ones});
  auto const hearer = Kel::make<InputListener>(pam);
  receive("swp1", {2});
  receive("swp1", {1});
  EXPECT_THAT(hearer->heard, ElementsAre(Frame{1}));
  EXPECT_EQ(pam->counters().received, 1u);
}

TEST_F(CaptureEthDevPamsTest, FramesAreNotOutgoing) {
  SocketFilter const incoming{
      {0x30, 0, 0, 0xfffff004}, {0x15, 1, 0, 4}, {6, 0, 0, 1}, {6, 0, 0, 0}};
  auto const hearer = Kel::make<InputListener>(open("swp1", {2048, 3, incoming}));
  receive("swp1", {1});
  EXPECT_THAT(hearer->heard, ElementsAre(Frame{1}));
}

TEST_F(CaptureEthDevPamsTest, DeviceWithoutAProtocolReceivesNothing) {
  auto const pam = open("swp1", {2048, 0, {}});
  auto const hearer = Kel::make<InputListener>(pam);
  receive("swp1", {1});
  EXPECT_THAT(hearer->heard, IsEmpty());
  EXPECT_EQ(pam->counters().received, 0u);
}

TEST_F(CaptureEthDevPamsTest, FrameMayFillTheBuffer) {
  auto const pam = open("swp1", {3, 3, {}});
  auto const hearer = Kel::make<InputListener>(pam);
  receive("swp1", {1, 2, 3});
  EXPECT_THAT(hearer->heard, ElementsAre(Frame{1, 2, 3}));
  EXPECT_EQ(pam->counters().receiveTruncated, 0u);
}

TEST_F(CaptureEthDevPamsTest, FrameThatDoesNotFitIsCountedAndIgnored) {
  auto const pam = open("swp1", {3, 3, {}});
  auto const hearer = Kel::make<InputListener>(pam);
  receive("swp1", {1, 2, 3, 4});
  EXPECT_THAT(hearer->heard, IsEmpty());
  EXPECT_EQ(pam->counters().receiveTruncated, 1u);
  EXPECT_EQ(pam->counters().received, 0u);
}

TEST_F(CaptureEthDevPamsTest, FrameThatIsLongerThanPacketsMayBeIsCountedAndIgnored) {
  WirexTest::PacketBuffers const packets(3);
  auto const pam = open("swp1");
  auto const hearer = Kel::make<InputListener>(pam);
  receive("swp1", {1, 2, 3, 4});
  receive("swp1", {1, 2, 3});
  EXPECT_THAT(hearer->heard, ElementsAre(Frame{1, 2, 3}));
  EXPECT_EQ(pam->counters().receiveTruncated, 1u);
}

TEST_F(CaptureEthDevPamsTest, FrameThatDoesNotPassTheFilterIsNotCountedAsTooLong) {
  auto const pam = open("swp1", {3, 3, ones});
  receive("swp1", {2, 2, 2, 2});
  EXPECT_EQ(pam->counters().receiveTruncated, 0u);
}

TEST_F(CaptureEthDevPamsTest, FrameIsReceivedByEachKindOfUse) {
  auto const all = Kel::make<InputListener>(open("swp1"));
  auto const some = Kel::make<InputListener>(open("swp1", {2048, 3, ones}));
  receive("swp1", {1});
  receive("swp1", {2});
  EXPECT_THAT(all->heard, ElementsAre(Frame{1}, Frame{2}));
  EXPECT_THAT(some->heard, ElementsAre(Frame{1}));
}

TEST_F(CaptureEthDevPamsTest, UsersOfTheSameDeviceAllHear) {
  auto const first = Kel::make<InputListener>(open("swp1"));
  auto const second = Kel::make<InputListener>(open("swp1"));
  receive("swp1", {1});
  EXPECT_THAT(first->heard, ElementsAre(Frame{1}));
  EXPECT_THAT(second->heard, ElementsAre(Frame{1}));
  EXPECT_EQ(open("swp1")->counters().received, 1u) << "one device";
}

TEST_F(CaptureEthDevPamsTest, FramesThatAreSentGoToAFunction) {
  std::vector<std::pair<std::string, Frame>> sent;
  devices->sentIs([&](IntfId const& intf, Wirex::Bytes frame) {
    sent.emplace_back(intf.stringValue().view(), Frame(frame.begin(), frame.end()));
  });
  auto const pam = open("swp2");
  pam->outputPktIs(Wirex::Pkt::PktIs(Frame{1, 2, 3}));
  EXPECT_THAT(sent, ElementsAre(Pair("swp2", Frame{1, 2, 3})));
  EXPECT_EQ(pam->counters().sent, 1u);
}

TEST_F(CaptureEthDevPamsTest, FramesAreSentAlsoIfNobodyLooks) {
  auto const pam = open("swp1");
  pam->outputPktIs(Wirex::Pkt::PktIs(Frame{1}));
  EXPECT_EQ(pam->counters().sent, 1u);
}

TEST_F(CaptureEthDevPamsTest, WhatIsSentIsNotReceived) {
  auto const pam = open("swp1");
  auto const hearer = Kel::make<InputListener>(pam);
  pam->outputPktIs(Wirex::Pkt::PktIs(Frame{1}));
  EXPECT_THAT(hearer->heard, IsEmpty());
}

TEST_F(CaptureEthDevPamsTest, NothingIsSentOnceTheyAreGone) {
  bool sent = false;
  devices->sentIs([&](IntfId const&, Wirex::Bytes) { sent = true; });
  auto const pam = open("swp1");
  devices.reset();
  pam->outputPktIs(Wirex::Pkt::PktIs(Frame{1}));
  EXPECT_FALSE(sent);
  EXPECT_EQ(pam->counters().sent, 0u);
}

// ---- What a receiver may do

TEST_F(CaptureEthDevPamsTest, ReceiverMayCloseItsDevice) {
  auto hearer = Kel::make<InputListener>(open("swp1"));
  hearer->reaction = [&] { hearer = nullptr; };
  receive("swp1", {1});
  EXPECT_EQ(hearer, nullptr);
  EXPECT_EQ(open("swp1")->counters().received, 0u) << "a new one";
}

TEST_F(CaptureEthDevPamsTest, ReceiverMayCloseTheNextDeviceToHear) {
  auto first = Kel::make<InputListener>(open("swp1"));
  auto second = Kel::make<InputListener>(open("swp1", {2048, 3, ones}));
  std::size_t heard = 0;
  for (auto* const hearer : {&first, &second})
    (*hearer)->reaction = [&] {
      ++heard;
      first = nullptr;
      second = nullptr;
    };
  receive("swp1", {1});
  EXPECT_EQ(heard, 1u);
}

TEST_F(CaptureEthDevPamsTest, ReceiverMayOpenAnotherDevice) {
  Kel::Ptr<InputListener> added;
  auto const hearer = Kel::make<InputListener>(open("swp1"));
  hearer->reaction = [&] { added = Kel::make<InputListener>(open("swp1", {2048, 3, ones})); };
  receive("swp1", {1});
  EXPECT_THAT(added->heard, IsEmpty()) << "it came after the frame";
}

TEST_F(CaptureEthDevPamsTest, ReceiverMaySend) {
  std::vector<Frame> sent;
  devices->sentIs(
      [&](IntfId const&, Wirex::Bytes frame) { sent.emplace_back(frame.begin(), frame.end()); });
  auto const pam = open("swp1");
  auto const hearer = Kel::make<InputListener>(pam);
  hearer->reaction = [&] { pam->outputPktIs(Wirex::Pkt::PktIs(Frame{9})); };
  receive("swp1", {1});
  EXPECT_THAT(sent, ElementsAre(Frame{9}));
}

TEST_F(CaptureEthDevPamsTest, WatcherOfSentFramesMayCloseTheDevice) {
  auto pam = open("swp1");
  devices->sentIs([&](IntfId const&, Wirex::Bytes) { pam = nullptr; });
  pam->outputPktIs(Wirex::Pkt::PktIs(Frame{1}));
  EXPECT_EQ(open("swp1")->counters().sent, 0u) << "a new one";
}

}  // namespace
