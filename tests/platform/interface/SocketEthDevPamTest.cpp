#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <linux/if_packet.h>
#include <map>
#include <optional>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/kel/Exception.h"
#include "platform/interface/SocketEthDevPams.h"
#include "tests/platform/interface/FakeSystemCalls.h"
#include "tests/platform/interface/PamTesting.h"

namespace {

using namespace InterfaceTest;
using namespace std::chrono_literals;
using Interface::EthDevPam;
using Interface::EthDevSettings;
using Interface::SocketEthDevPams;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using Frames = std::vector<Frame>;

constexpr std::size_t longFrame = 9000;

class SocketEthDevPamTest : public testing::Test {
 protected:
  static constexpr int swp1 = 7;
  static constexpr int swp2 = 8;

  static EthDevSettings settings() {
    EthDevSettings settings;
    settings.bufferSize = LongPackets::bufferSize;
    settings.protocol = 3;
    settings.filter = {{0x28, 0, 0, 12}, {0x15, 0, 1, 0x800}, {6, 0, 0, 0xffff}, {6, 0, 0, 0}};
    return settings;
  }

  Kel::Ptr<EthDevPam> open(int index = swp1, EthDevSettings const& with = settings()) {
    auto const name = "swp" + std::to_string(index - swp1 + 1);
    return devices->pam(Wirex::IntfId(name.c_str()),
                        {Kel::format("eth%d", index), static_cast<std::uint32_t>(index)}, with);
  }

  FakeSocket& socket(int index = swp1) { return system.socketOn(index); }

  void turn() {
    system.updateReadiness();
    loop.turn(Horix::Time::zero());
  }

  void pass(Horix::Time time) { loop.advanceTo(loop.now() + time); }

  Receiver recorder(Kel::Ptr<EthDevPam> const& of) {
    return Receiver(of, [this](Frame const& frame) { received.push_back(frame); });
  }

  /// What a device hands over of what arrives.
  Frames receivedOf(std::vector<Arrival> const& arrivals, EthDevSettings const& with = settings()) {
    pam = open(swp1, with);
    auto const receiver = recorder(pam);
    for (Arrival const& arrival : arrivals) socket().arrive(arrival);
    turn();
    return received;
  }

  static void send(EthDevPam& on, std::uint8_t content) {
    on.outputPktIs(Wirex::Pkt::PktIs(frameOf(60, content)));
  }
  static void send(EthDevPam& on, std::uint8_t first, std::uint8_t last) {
    for (unsigned content = first; content <= last; ++content)
      send(on, static_cast<std::uint8_t>(content));
  }
  static Frames sentFrames(std::uint8_t first, std::uint8_t last) {
    Frames frames;
    for (unsigned content = first; content <= last; ++content)
      frames.push_back(frameOf(60, static_cast<std::uint8_t>(content)));
    return frames;
  }

  LongPackets longPackets;
  FakeSystemCalls system;
  Kel::Ptr<Horix::VirtualClock> clock = Kel::make<Horix::VirtualClock>();
  Horix::EventLoop loop{Kel::make<Horix::TimerWheel>(clock)};
  std::optional<SocketEthDevPams> devices{std::in_place, loop, system};
  Kel::Ptr<EthDevPam> pam;
  Frames received;
};

TEST_F(SocketEthDevPamTest, NothingIsReceivedBeforeEverythingIsSetUp) {
  pam = open();
  EXPECT_THAT(system.journal,
              ElementsAre("socket", "SO_ATTACH_FILTER", "PACKET_IGNORE_OUTGOING", "PACKET_VERSION",
                          "PACKET_COPY_THRESH", "SO_RCVBUF", "PACKET_RX_RING", "mmap",
                          "PACKET_ADD_MEMBERSHIP", "bind"));
  EXPECT_EQ(socket().address.sll_protocol, htons(3));
  EXPECT_EQ(socket().address.sll_ifindex, swp1);
}

TEST_F(SocketEthDevPamTest, FilterIsGivenToTheKernelAsItIs) {
  pam = open();
  auto const filter = settings().filter;
  ASSERT_THAT(socket().filter, SizeIs(filter.size() * sizeof filter[0]));
  EXPECT_EQ(std::memcmp(socket().filter.data(), filter.data(), socket().filter.size()), 0);
}

TEST_F(SocketEthDevPamTest, WithoutFilterNoneIsAttached) {
  auto unfiltered = settings();
  unfiltered.filter.clear();
  pam = open(swp1, unfiltered);
  EXPECT_TRUE(pam);
  EXPECT_THAT(system.journal, Not(testing::Contains("SO_ATTACH_FILTER")));
}

TEST_F(SocketEthDevPamTest, FramesToEveryGroupReachTheSocket) {
  pam = open();
  EXPECT_EQ(socket().membership.mr_type, PACKET_MR_ALLMULTI);
  EXPECT_EQ(socket().membership.mr_ifindex, swp1);
}

TEST_F(SocketEthDevPamTest, DeviceOfUnknownNumberIsLookedUpByItsName) {
  pam = devices->pam(Wirex::IntfId("swp1"), {"eth7", 0}, settings());
  EXPECT_EQ(system.journal.front(), "if_nametoindex eth7");
  EXPECT_EQ(socket(77).membership.mr_ifindex, 77);
}

TEST_F(SocketEthDevPamTest, LastUserClosesTheSocket) {
  pam = open();
  system.journal.clear();
  pam = nullptr;
  EXPECT_THAT(system.journal, ElementsAre("munmap", "close"));
  EXPECT_EQ(system.openSockets(), 0u);
}

TEST_F(SocketEthDevPamTest, SameDeviceWithTheSameSettingsIsOpenedOnce) {
  pam = open();
  EXPECT_EQ(open(), pam);
  auto shorter = settings();
  shorter.bufferSize = 2048;
  auto const other = open(swp1, shorter);
  EXPECT_NE(other, pam);
  EXPECT_EQ(system.openSockets(), 2u);
}

class SocketEthDevPamOpening : public SocketEthDevPamTest,
                               public testing::WithParamInterface<char const*> {};

TEST_P(SocketEthDevPamOpening, FailureIsToldToTheOperatorAndTriedAgain) {
  TracedAt const traced(0);
  system.failNext(GetParam(), EPERM);
  pam = open();
  EXPECT_EQ(system.openSockets(), 0u);
  EXPECT_THAT(traced.texts(), ElementsAre(testing::AllOf(
                                  HasSubstr("eth7"), HasSubstr("swp1"), HasSubstr(GetParam()),
                                  HasSubstr(std::strerror(EPERM)), HasSubstr("CAP_NET_RAW"))));
  EXPECT_THAT(pam->deafness(), HasSubstr(GetParam()));
  pass(1s);
  EXPECT_THAT(pam->deafness(), IsEmpty());
  EXPECT_THAT(traced.texts().back(), HasSubstr("is open now"));
  auto const receiver = recorder(pam);
  socket().arrive({frameOf(60)});
  turn();
  EXPECT_THAT(received, SizeIs(1));
}

INSTANTIATE_TEST_SUITE_P(EachCall, SocketEthDevPamOpening,
                         testing::Values("socket", "SO_ATTACH_FILTER", "PACKET_IGNORE_OUTGOING",
                                         "PACKET_VERSION", "PACKET_COPY_THRESH", "SO_RCVBUF",
                                         "PACKET_RX_RING", "mmap", "PACKET_ADD_MEMBERSHIP",
                                         "bind"));

TEST_F(SocketEthDevPamTest, DeviceThatStaysMissingIsToldToTheOperatorOnce) {
  TracedAt const traced(0);
  system.failAll("if_nametoindex eth7", ENODEV);
  pam = devices->pam(Wirex::IntfId("swp1"), {"eth7", 0}, settings());
  EXPECT_THAT(traced.texts(), IsEmpty()) << "it may just be made again";
  pass(100s);
  EXPECT_THAT(traced.texts(),
              ElementsAre(testing::AllOf(HasSubstr("eth7"), HasSubstr(std::strerror(ENODEV)),
                                         HasSubstr("ip link"))));
}

TEST_F(SocketEthDevPamTest, PausesBetweenTriesGrow) {
  system.failAll("socket", EMFILE);
  pam = open();
  EXPECT_THAT(pam->deafness(), HasSubstr("raise the limit of open files"));
  system.journal.clear();
  pass(1s);
  EXPECT_THAT(system.journal, SizeIs(2));
  pass(60s);
  EXPECT_THAT(system.journal, SizeIs(testing::Le(10)));
  system.failAll("socket", 0);
  pass(30s);
  EXPECT_THAT(pam->deafness(), IsEmpty());
}

TEST_F(SocketEthDevPamTest, PacketsWaitWhileTheDeviceIsDeaf) {
  system.failNext("bind", ENOBUFS);
  pam = open();
  send(*pam, 1, 3);
  loop.endBatch();
  pass(1s);
  send(*pam, 4);
  loop.endBatch();
  EXPECT_EQ(socket().sent, sentFrames(1, 4));
  EXPECT_EQ(pam->counters().sendDropped, 0u);
}

TEST_F(SocketEthDevPamTest, OldestPacketsAreDroppedWhenTooManyWaitForADeafDevice) {
  system.failNext("bind", ENOBUFS);
  pam = open();
  for (unsigned i = 0; i < 1030; ++i) send(*pam, static_cast<std::uint8_t>(i < 6 ? 0 : 1));
  EXPECT_EQ(pam->counters().sendDropped, 6u);
  pass(1s);
  EXPECT_EQ(socket().sent, Frames(1024, frameOf(60, 1)));
}

TEST_F(SocketEthDevPamTest, DeafDeviceMayBeLetGo) {
  system.failAll("bind", ENOBUFS);
  pam = open();
  pam = nullptr;
  system.journal.clear();
  pass(1s);
  EXPECT_THAT(system.journal, IsEmpty());
}

TEST_F(SocketEthDevPamTest, SocketThatHasLostItsInterfaceIsOpenedAnew) {
  pam = open();
  auto const receiver = recorder(pam);
  socket().dropped = 5;
  socket().loseInterface();
  turn();
  EXPECT_THAT(pam->deafness(), HasSubstr("deleted"));
  send(*pam, 1);
  loop.endBatch();
  pass(1s);
  EXPECT_THAT(pam->deafness(), IsEmpty());
  EXPECT_EQ(socket().sent, sentFrames(1, 1));
  EXPECT_EQ(system.openSockets(), 1u);
  socket().arrive({frameOf(60)});
  turn();
  EXPECT_THAT(received, SizeIs(1));
  EXPECT_EQ(pam->counters().receiveDropped, 5u) << "what was counted stays";
}

TEST_F(SocketEthDevPamTest, SocketMayLoseItsInterfaceWhileItIsRead) {
  pam = open();
  FakeSocket& first = socket();
  Receiver const receiver(pam, [&](Frame const&) {
    first.loseInterface();
    first.sendResults = {-ENETDOWN};
    send(*pam, 1, 64);  // which leave at once, and are told
  });
  socket().arrive({frameOf(60)});
  socket().arrive({frameOf(60)});
  turn();
  pass(1s);
  EXPECT_THAT(pam->deafness(), IsEmpty());
}

TEST_F(SocketEthDevPamTest, FrameIsHandedOverAsItArrived) {
  EXPECT_THAT(receivedOf({{frameOf(60)}}), ElementsAre(frameOf(60)));
  EXPECT_EQ(pam->counters().received, 1u);
}

TEST_F(SocketEthDevPamTest, TagThatTheKernelTookOutIsPutBack) {
  EXPECT_THAT(receivedOf({{frameOf(60), 0x600a}}), ElementsAre(tagged(frameOf(60), 0x600a)));
}

TEST_F(SocketEthDevPamTest, TagKeepsItsType) {
  EXPECT_THAT(receivedOf({{frameOf(60), 20, 0x88a8}}),
              ElementsAre(tagged(frameOf(60), 20, 0x88a8)));
}

TEST_F(SocketEthDevPamTest, TagZeroIsATagToo) {
  EXPECT_THAT(receivedOf({{frameOf(60), 0}}), ElementsAre(tagged(frameOf(60), 0)));
}

TEST_F(SocketEthDevPamTest, FrameTooLongForTheRingIsWhole) {
  EXPECT_THAT(receivedOf({{frameOf(longFrame)}}), ElementsAre(frameOf(longFrame)));
  EXPECT_EQ(pam->counters().receiveTruncated, 0u);
}

TEST_F(SocketEthDevPamTest, TagIsPutBackIntoAFrameTooLongForTheRing) {
  EXPECT_THAT(receivedOf({{frameOf(longFrame), 10}}), ElementsAre(tagged(frameOf(longFrame), 10)));
}

TEST_F(SocketEthDevPamTest, LongAndShortFramesKeepTheirOrder) {
  EXPECT_THAT(receivedOf({{frameOf(60, 1)},
                          {frameOf(longFrame, 2)},
                          {frameOf(60, 3)},
                          {frameOf(longFrame, 4)},
                          {frameOf(longFrame, 5)}}),
              ElementsAre(frameOf(60, 1), frameOf(longFrame, 2), frameOf(60, 3),
                          frameOf(longFrame, 4), frameOf(longFrame, 5)));
}

TEST_F(SocketEthDevPamTest, FrameAsLongAsTheBufferIsReceivedAndALongerOneCounted) {
  constexpr std::size_t longest = LongPackets::bufferSize;
  TracedAt const traced(8);
  EXPECT_THAT(receivedOf({{frameOf(longest, 1)}, {frameOf(longest + 1, 2)}, {frameOf(longest, 3)}}),
              ElementsAre(frameOf(longest, 1), frameOf(longest, 3)));
  EXPECT_EQ(pam->counters().received, 2u);
  EXPECT_EQ(pam->counters().receiveTruncated, 1u);
  EXPECT_THAT(traced.texts(), ElementsAre(HasSubstr("swp1")));
}

TEST_F(SocketEthDevPamTest, BufferHoldsTheTagToo) {
  constexpr std::size_t longest = LongPackets::bufferSize;
  EXPECT_THAT(receivedOf({{frameOf(longest - 3), 10}, {frameOf(longest - 4), 10}}),
              ElementsAre(tagged(frameOf(longest - 4), 10)));
  EXPECT_EQ(pam->counters().receiveTruncated, 1u);
}

TEST_F(SocketEthDevPamTest, SmallBufferIgnoresFramesThatTheRingCouldHold) {
  auto small = settings();
  small.bufferSize = 1000;
  EXPECT_THAT(receivedOf({{frameOf(1001)}, {frameOf(1000)}}, small), ElementsAre(frameOf(1000)));
  EXPECT_EQ(pam->counters().receiveTruncated, 1u);
}

TEST_F(SocketEthDevPamTest, FrameLongerThanAPacketMayBeIsCounted) {
  Wirex::PktManager::instance().bufferSizeIs(1000);
  EXPECT_THAT(receivedOf({{frameOf(1001)}, {frameOf(1000)}}), ElementsAre(frameOf(1000)));
  EXPECT_EQ(pam->counters().receiveTruncated, 1u);
}

TEST_F(SocketEthDevPamTest, FrameThatTheFilterCutIsCounted) {
  EXPECT_THAT(receivedOf({{frameOf(100), std::nullopt, std::nullopt, 99}, {frameOf(60)}}),
              ElementsAre(frameOf(60)));
  EXPECT_EQ(pam->counters().receiveTruncated, 1u);
}

TEST_F(SocketEthDevPamTest, LongFrameThatFoundTheQueueFullIsCounted) {
  EXPECT_THAT(receivedOf({{frameOf(longFrame), std::nullopt, std::nullopt, std::nullopt, true},
                          {frameOf(longFrame, 2)}}),
              ElementsAre(frameOf(longFrame, 2)));
  EXPECT_EQ(pam->counters().receiveDropped, 1u);
  EXPECT_EQ(pam->counters().receiveTruncated, 0u);
}

TEST_F(SocketEthDevPamTest, LongFrameThatCannotBeReadIsCounted) {
  pam = open();
  socket().receiveErrors = {ENOMEM};
  EXPECT_THAT(receivedOf({{frameOf(longFrame)}, {frameOf(60)}}), ElementsAre(frameOf(60)));
  EXPECT_EQ(pam->counters().receiveDropped, 1u);
}

TEST_F(SocketEthDevPamTest, InterruptedReadIsDoneAgain) {
  pam = open();
  socket().receiveErrors = {EINTR, EINTR};
  EXPECT_THAT(receivedOf({{frameOf(longFrame)}}), ElementsAre(frameOf(longFrame)));
}

TEST_F(SocketEthDevPamTest, ErrorThatAReadIsToldOfDoesNotCostItsFrame) {
  pam = open();
  socket().receiveErrors = {ENETDOWN};
  EXPECT_THAT(receivedOf({{frameOf(longFrame)}}), ElementsAre(frameOf(longFrame)));
  EXPECT_EQ(pam->counters().receiveFailed, 1u);
}

TEST_F(SocketEthDevPamTest, OthersGetTheirTurnWhenItsShareOfTimeIsUsed) {
  pam = open();
  auto const other = open(swp2);
  Receiver const costly(pam, [this](Frame const& frame) {
    received.push_back(frame);
    clock->waitUntil(clock->now() + std::chrono::microseconds(100));
  });
  auto const otherReceiver = recorder(other);
  for (int i = 0; i < 100; ++i) ASSERT_TRUE(socket(swp1).arrive({frameOf(60, 1)}));
  ASSERT_TRUE(socket(swp2).arrive({frameOf(60, 2)}));
  turn();
  EXPECT_THAT(received, testing::Contains(frameOf(60, 2)));
  EXPECT_THAT(received, SizeIs(testing::Lt(50u)));
  for (int i = 0; i < 100; ++i) turn();
  EXPECT_THAT(received, SizeIs(101));
}

TEST_F(SocketEthDevPamTest, FramesThatWaitAreReadBeforeATimerThatHasRunOutMeanwhile) {
  class CountingTimer final : public Horix::Timer {
   public:
    explicit CountingTimer(Frames const& received) : received_(received) {}
    std::size_t before = 0;

   private:
    void onExpiry() override { before = received_.size(); }
    Frames const& received_;
  };
  pam = open();
  Receiver const costly(pam, [this](Frame const& frame) {
    received.push_back(frame);
    clock->waitUntil(clock->now() + std::chrono::microseconds(100));
  });
  CountingTimer timer(received);
  loop.timerWheel()->schedule(timer, std::chrono::seconds(1));
  for (int i = 0; i < 500; ++i) ASSERT_TRUE(socket().arrive({frameOf(60, 1)}));
  clock->waitUntil(std::chrono::hours(1));
  for (int i = 0; i < 1000 && timer.scheduled(); ++i) turn();
  EXPECT_EQ(timer.before, 500u);
}

TEST_F(SocketEthDevPamTest, RingGoesRound) {
  pam = open();
  auto const receiver = recorder(pam);
  for (unsigned round = 0; round < 50; ++round) {
    for (unsigned i = 0; i < 47; ++i)
      ASSERT_TRUE(socket().arrive({frameOf(60, static_cast<std::uint8_t>(i))}));
    received.clear();
    turn();
    ASSERT_THAT(received, ElementsAreArray(sentFrames(0, 46)));
  }
}

TEST_F(SocketEthDevPamTest, FramesThatTheKernelDroppedAddUp) {
  pam = open();
  EXPECT_EQ(pam->counters().receiveDropped, 0u);
  socket().dropped = 5;
  EXPECT_EQ(pam->counters().receiveDropped, 5u);
  socket().dropped = 2;
  EXPECT_EQ(pam->counters().receiveDropped, 7u);
  EXPECT_EQ(pam->counters().receiveDropped, 7u);
}

TEST_F(SocketEthDevPamTest, ErrorIsCountedAndTakenSoThatTheLoopBecomesQuiet) {
  pam = open();
  socket().error = ENETDOWN;
  turn();
  EXPECT_EQ(pam->counters().receiveFailed, 1u);
  system.journal.clear();
  turn();
  EXPECT_THAT(system.journal, IsEmpty());
}

TEST_F(SocketEthDevPamTest, ErrorIsTracedOncePerChange) {
  TracedAt const traced(5);
  pam = open();
  auto const receiver = recorder(pam);
  for (int i = 0; i < 3; ++i) {
    socket().error = ENETDOWN;
    turn();
  }
  EXPECT_EQ(pam->counters().receiveFailed, 3u);
  EXPECT_THAT(traced.texts(), ElementsAre(HasSubstr(std::strerror(ENETDOWN))));
  socket().arrive({frameOf(60)});
  turn();
  EXPECT_THAT(received, SizeIs(1));
  EXPECT_THAT(traced.texts(),
              ElementsAre(HasSubstr(std::strerror(ENETDOWN)), HasSubstr("swp1 receives again")));
}

TEST_F(SocketEthDevPamTest, FramesInTheRingComeBeforeTheError) {
  pam = open();
  auto const receiver = recorder(pam);
  socket().arrive({frameOf(60)});
  socket().error = ENETDOWN;
  turn();
  EXPECT_THAT(received, SizeIs(1));
  turn();
  EXPECT_EQ(pam->counters().receiveFailed, 1u);
}

TEST_F(SocketEthDevPamTest, ErrorThatCannotBeAskedForIsAnError) {
  pam = open();
  socket().error = ENETDOWN;
  system.failNext("SO_ERROR", ENOBUFS);
  turn();
  EXPECT_EQ(pam->counters().receiveFailed, 1u);
}

TEST_F(SocketEthDevPamTest, ReadingEndsWhenAFrameLetsGoOfTheDevice) {
  pam = open();
  Kel::Ptr<Receiver> receiver;
  receiver = Kel::make<Receiver>(pam, [&](Frame const& frame) {
    received.push_back(frame);
    pam = nullptr;
    receiver = nullptr;
  });
  socket().arrive({frameOf(60, 1)});
  socket().arrive({frameOf(60, 2)});
  turn();
  EXPECT_THAT(received, SizeIs(1));
  EXPECT_EQ(system.openSockets(), 0u);
  EXPECT_EQ(system.leftInRing, 1u);
}

TEST_F(SocketEthDevPamTest, FrameMayCloseAnotherDeviceThatIsReadyToo) {
  std::map<int, Kel::Ptr<EthDevPam>> pams;
  std::map<int, Kel::Ptr<Receiver>> receivers;
  for (auto const& [index, other] : {std::pair(swp1, swp2), std::pair(swp2, swp1)}) {
    pams[index] = open(index);
    receivers[index] = Kel::make<Receiver>(pams[index], [&, other = other](Frame const& frame) {
      received.push_back(frame);
      receivers.erase(other);
      pams.erase(other);
    });
    socket(index).arrive({frameOf(60)});
  }
  turn();
  EXPECT_THAT(received, SizeIs(1));
  EXPECT_EQ(system.openSockets(), 1u);
}

TEST_F(SocketEthDevPamTest, FrameMayEndTheServiceThatOpenedTheDevice) {
  pam = open();
  Receiver const receiver(pam, [&](Frame const& frame) {
    received.push_back(frame);
    devices.reset();
  });
  socket().arrive({frameOf(60, 1)});
  socket().arrive({frameOf(60, 2)});
  turn();
  EXPECT_THAT(received, SizeIs(2));
}

TEST_F(SocketEthDevPamTest, FrameWhoseReceiverThrowsIsNotReceivedAgain) {
  pam = open();
  Receiver const receiver(pam, [&](Frame const& frame) {
    received.push_back(frame);
    if (received.size() == 1) throw std::runtime_error("refused");
  });
  socket().arrive({frameOf(60, 1)});
  socket().arrive({frameOf(60, 2)});
  EXPECT_THROW(turn(), std::runtime_error);
  turn();
  EXPECT_THAT(received, ElementsAre(frameOf(60, 1), frameOf(60, 2)));
}

TEST_F(SocketEthDevPamTest, PacketsOfOneBatchShareASystemCall) {
  pam = open();
  send(*pam, 1, 3);
  EXPECT_THAT(socket().sendCalls, IsEmpty());
  loop.endBatch();
  EXPECT_THAT(socket().sendCalls, ElementsAre(3));
  EXPECT_EQ(socket().sent, sentFrames(1, 3));
  EXPECT_EQ(pam->counters().sent, 3u);

  send(*pam, 4);
  loop.endBatch();
  EXPECT_THAT(socket().sendCalls, ElementsAre(3, 1));
}

TEST_F(SocketEthDevPamTest, FullBatchLeavesAtOnce) {
  pam = open();
  send(*pam, 1, 100);
  EXPECT_THAT(socket().sendCalls, ElementsAre(64));
  loop.endBatch();
  EXPECT_THAT(socket().sendCalls, ElementsAre(64, 36));
  EXPECT_EQ(socket().sent, sentFrames(1, 100));
}

TEST_F(SocketEthDevPamTest, PacketsThatACallDoesNotTakeGoIntoTheNext) {
  pam = open();
  socket().sendResults = {1, 3};
  send(*pam, 1, 5);
  loop.endBatch();
  EXPECT_THAT(socket().sendCalls, ElementsAre(5, 4, 1));
  EXPECT_EQ(socket().sent, sentFrames(1, 5));
  EXPECT_EQ(pam->counters().sent, 5u);
}

TEST_F(SocketEthDevPamTest, PacketsWaitForAFullSocketInOrder) {
  pam = open();
  socket().takesOutputIs(false);
  socket().sendResults = {2, -EAGAIN};
  send(*pam, 1, 5);
  loop.endBatch();
  EXPECT_EQ(socket().sent, sentFrames(1, 2));

  send(*pam, 6, 100);
  turn();
  EXPECT_THAT(socket().sendCalls, ElementsAre(5, 3));

  socket().takesOutputIs(true);
  turn();
  EXPECT_EQ(socket().sent, sentFrames(1, 100));
  EXPECT_EQ(pam->counters().sent, 100u);
  EXPECT_EQ(pam->counters().sendDropped, 0u);

  system.journal.clear();
  turn();
  EXPECT_THAT(system.journal, IsEmpty()) << "the loop goes on waiting for output";
  send(*pam, 101);
  loop.endBatch();
  EXPECT_EQ(socket().sent, sentFrames(1, 101));
}

TEST_F(SocketEthDevPamTest, FullSocketIsNotTriedAgainInTheSameBatch) {
  pam = open();
  socket().sendResults = {-EAGAIN};
  send(*pam, 1, 70);
  loop.endBatch();
  EXPECT_THAT(socket().sendCalls, ElementsAre(64));
}

TEST_F(SocketEthDevPamTest, SocketThatIsFullAgainKeepsTheRest) {
  pam = open();
  socket().sendResults = {-EAGAIN, 1, -EAGAIN};
  send(*pam, 1, 3);
  loop.endBatch();
  turn();
  EXPECT_EQ(socket().sent, sentFrames(1, 1));
  turn();
  EXPECT_EQ(socket().sent, sentFrames(1, 3));
}

TEST_F(SocketEthDevPamTest, NewestPacketsAreDroppedWhenTooManyWait) {
  pam = open();
  socket().takesOutputIs(false);
  socket().sendResults = {-EAGAIN};
  for (unsigned i = 0; i < 1030; ++i) send(*pam, static_cast<std::uint8_t>(i / 8));
  loop.endBatch();
  EXPECT_EQ(pam->counters().sendDropped, 6u);
  socket().takesOutputIs(true);
  turn();
  EXPECT_THAT(socket().sent, SizeIs(1024));
  EXPECT_EQ(socket().sent.back(), frameOf(60, 127));
  EXPECT_EQ(pam->counters().sent, 1024u);
}

TEST_F(SocketEthDevPamTest, InterruptedSendingIsDoneAgain) {
  pam = open();
  socket().sendResults = {-EINTR, -EINTR};
  send(*pam, 1, 2);
  loop.endBatch();
  EXPECT_EQ(socket().sent, sentFrames(1, 2));
  EXPECT_EQ(pam->counters().sendDropped, 0u);
}

class SocketEthDevPamRefusedPacket : public SocketEthDevPamTest,
                                     public testing::WithParamInterface<int> {};

TEST_P(SocketEthDevPamRefusedPacket, IsDroppedAlone) {
  TracedAt const traced(8);
  pam = open();
  socket().sendResults = {1, -GetParam()};
  send(*pam, 1, 4);
  loop.endBatch();
  EXPECT_THAT(socket().sent, ElementsAre(frameOf(60, 1), frameOf(60, 3), frameOf(60, 4)));
  EXPECT_EQ(pam->counters().sent, 3u);
  EXPECT_EQ(pam->counters().sendDropped, 1u);
  EXPECT_THAT(traced.texts(), ElementsAre(HasSubstr(std::strerror(GetParam()))));
}

INSTANTIATE_TEST_SUITE_P(EachError, SocketEthDevPamRefusedPacket,
                         testing::Values(ENOBUFS, EMSGSIZE, ENOMEM));

class SocketEthDevPamDownDevice : public SocketEthDevPamTest,
                                  public testing::WithParamInterface<int> {};

TEST_P(SocketEthDevPamDownDevice, DropsWhatIsQueuedAndSendsAgainLater) {
  TracedAt const traced(8);
  pam = open();
  socket().sendResults = {1, -GetParam(), -GetParam()};
  send(*pam, 1, 4);
  loop.endBatch();
  EXPECT_THAT(socket().sent, SizeIs(1));
  EXPECT_EQ(pam->counters().sendDropped, 3u);
  EXPECT_THAT(traced.texts(), ElementsAre(HasSubstr(std::strerror(GetParam()))));

  socket().sendResults.clear();
  send(*pam, 5);
  loop.endBatch();
  EXPECT_THAT(socket().sent, ElementsAre(frameOf(60, 1), frameOf(60, 5)));
}

INSTANTIATE_TEST_SUITE_P(EachError, SocketEthDevPamDownDevice,
                         testing::Values(ENETDOWN, ENXIO, ENODEV));

TEST_F(SocketEthDevPamTest, ErrorOfTheInterfaceThatSendingIsToldOfCostsNoPacket) {
  pam = open();
  socket().sendResults = {-ENETDOWN};
  send(*pam, 1, 2);
  loop.endBatch();
  EXPECT_EQ(socket().sent, sentFrames(1, 2));
  EXPECT_EQ(pam->counters().sendDropped, 0u);
  EXPECT_EQ(pam->counters().receiveFailed, 1u);
}

TEST_F(SocketEthDevPamTest, PacketsOfTheBatchInWhichTheDeviceClosesStillLeave) {
  Frames sent;
  pam = open();
  send(*pam, 1, 2);
  socket().onSend = [&] { sent = socket().sent; };  // which goes with the socket
  pam = nullptr;
  EXPECT_EQ(sent, sentFrames(1, 2));
  loop.endBatch();
}

TEST_F(SocketEthDevPamTest, DeviceWithAFullSocketMayClose) {
  pam = open();
  socket().sendResults = {-EAGAIN, -EAGAIN};
  send(*pam, 1, 2);
  loop.endBatch();
  pam = nullptr;
  EXPECT_EQ(system.openSockets(), 0u);
  turn();
}

TEST_F(SocketEthDevPamTest, DeviceThatRespondsSendsAtTheEndOfTheBatch) {
  pam = open();
  Receiver const receiver(pam, [&](Frame const& frame) {
    received.push_back(frame);
    send(*pam, static_cast<std::uint8_t>(received.size()));
  });
  for (int i = 0; i < 3; ++i) socket().arrive({frameOf(60)});
  turn();
  EXPECT_THAT(socket().sendCalls, ElementsAre(3));
}

TEST_F(SocketEthDevPamTest, NoPacketIsRefused) {
  pam = open();
  EXPECT_THROW(pam->outputPktIs(nullptr), Kel::Exception);
}

}  // namespace
