#include <arpa/inet.h>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <malloc.h>
#include <net/if.h>
#include <netinet/in.h>
#include <optional>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/interface/EthDevPamManager.h"
#include "platform/interface/SocketEthDevPams.h"
#include "tests/platform/interface/PamTesting.h"
#include "tests/platform/interface/VethCable.h"

namespace {

using namespace InterfaceTest;
using namespace std::chrono_literals;
using Interface::EthDevPam;
using Interface::EthDevSettings;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Frames = std::vector<Frame>;

constexpr std::size_t jumboFrame = 9000 + Wirex::ethernetHeaderSize;

EthDevSettings settings() {
  EthDevSettings settings;
  settings.bufferSize = LongPackets::bufferSize;
  settings.protocol = 3;
  // Everything but what this host sends itself.
  constexpr std::uint32_t packetType = 0xfffff004;
  constexpr std::uint32_t outgoing = 4;
  settings.filter = {{0x30, 0, 0, packetType}, {0x15, 1, 0, outgoing}, {6, 0, 0, 0xffff}, {6}};
  return settings;
}

std::size_t openDescriptors() {
  namespace fs = std::filesystem;
  return static_cast<std::size_t>(
      std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

/// On the near end of a cable, a device; on its far end, whatever the test puts there.
class SocketEthDevPamNetnsTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { impossible = VethCable::impossible(); }

  void SetUp() override {
    if (impossible) GTEST_SKIP() << *impossible;
    cable.emplace();
    inside.emplace(cable->nearSpace());
    devices.emplace(loop);
  }

  Kel::Ptr<EthDevPam> open() {
    return devices->pam(intf, {VethCable::nearName(), cable->nearIndex()}, settings());
  }

  Receiver recorder(Kel::Ptr<EthDevPam> const& of) {
    return Receiver(of, [this](Frame const& frame) { received.push_back(frame); });
  }

  /// Runs the loop until a condition holds. Returns false if it takes too long.
  template <class Condition>
  bool await(Condition condition) {
    auto const end = loop.now() + 2s;
    while (!condition()) {
      if (loop.now() >= end) return false;
      loop.turn(loop.now() + 10ms);
    }
    return true;
  }
  bool awaitFrames(std::size_t count) {
    return await([&] { return received.size() >= count; });
  }

  /// Whether nothing wakes the loop.
  bool loopIsQuiet() {
    auto const end = loop.now() + 50ms;
    loop.turn(end);
    return loop.now() >= end;
  }

  static Wirex::Pkt::Ptr packet(Frame const& frame) { return Wirex::Pkt::PktIs(frame); }

  static std::optional<std::string> impossible;

  Wirex::IntfId const intf{"swp1"};
  LongPackets longPackets;
  std::optional<VethCable> cable;
  std::optional<NetworkNamespace::Inside> inside;
  Horix::EventLoop loop{Kel::make<Horix::TimerWheel>(Kel::make<Horix::MonotonicClock>())};
  std::optional<Interface::SocketEthDevPams> devices;
  Frames received;
};

std::optional<std::string> SocketEthDevPamNetnsTest::impossible;

TEST_F(SocketEthDevPamNetnsTest, FrameArrives) {
  auto const pam = open();
  auto const receiver = recorder(pam);
  FarEnd(*cable).send(frameOf(60));
  ASSERT_TRUE(awaitFrames(1));
  EXPECT_THAT(received, ElementsAre(frameOf(60)));
}

TEST_F(SocketEthDevPamNetnsTest, TaggedFrameArrivesWithItsTag) {
  auto const pam = open();
  auto const receiver = recorder(pam);
  FarEnd const far(*cable);
  Frames const frames{tagged(frameOf(60), 0x600a), tagged(frameOf(60), 20, 0x88a8),
                      tagged(tagged(frameOf(60), 30), 40), tagged(frameOf(60), 0)};
  for (Frame const& frame : frames) far.send(frame);
  ASSERT_TRUE(awaitFrames(frames.size()));
  EXPECT_EQ(received, frames);
}

TEST_F(SocketEthDevPamNetnsTest, FramesOfEverySizeAroundTheRingsSlotsArriveWhole) {
  cable->mtuIs(9000);
  auto const pam = open();
  auto const receiver = recorder(pam);
  FarEnd const far(*cable);
  Frames frames;
  for (std::size_t size = 1960; size < 2060; ++size)
    frames.push_back(frameOf(size, static_cast<std::uint8_t>(size)));
  for (std::size_t sent = 0; sent < frames.size(); ++sent) {
    far.send(frames[sent]);
    ASSERT_TRUE(awaitFrames(sent + 1)) << frames[sent].size();
  }
  EXPECT_EQ(received, frames);
  EXPECT_EQ(pam->counters().receiveTruncated, 0u);
}

TEST_F(SocketEthDevPamNetnsTest, JumboFramesArriveWholeAndInOrder) {
  cable->mtuIs(9000);
  auto const pam = open();
  auto const receiver = recorder(pam);
  FarEnd const far(*cable);
  Frames const frames{frameOf(60, 1), frameOf(jumboFrame, 2), frameOf(60, 3),
                      tagged(frameOf(jumboFrame, 4), 10), frameOf(jumboFrame - 1, 5)};
  for (Frame const& frame : frames) far.send(frame);
  ASSERT_TRUE(awaitFrames(frames.size()));
  EXPECT_EQ(received, frames);
}

TEST_F(SocketEthDevPamNetnsTest, FrameLongerThanTheBufferIsCounted) {
  cable->mtuIs(12000);
  auto const pam = open();
  auto const receiver = recorder(pam);
  FarEnd const far(*cable);
  far.send(frameOf(LongPackets::bufferSize + 1));
  far.send(frameOf(LongPackets::bufferSize));
  ASSERT_TRUE(awaitFrames(1));
  EXPECT_THAT(received, ElementsAre(frameOf(LongPackets::bufferSize)));
  EXPECT_EQ(pam->counters().receiveTruncated, 1u);
}

TEST_F(SocketEthDevPamNetnsTest, OwnFramesDoNotComeBack) {
  auto const pam = open();
  auto const receiver = recorder(pam);
  FarEnd const far(*cable);
  pam->outputPktIs(packet(frameOf(60, 1)));
  loop.endBatch();
  EXPECT_EQ(far.receive(), frameOf(60, 1));
  far.send(frameOf(60, 2));
  ASSERT_TRUE(awaitFrames(1));
  EXPECT_THAT(received, ElementsAre(frameOf(60, 2)));
}

TEST_F(SocketEthDevPamNetnsTest, HostThatJoinsAGroupIsHeard) {
  ip(cable->farSpace(), "address add 10.0.0.2/24 dev far0");
  auto const pam = open();
  Frame report;
  Receiver const receiver(pam, [&](Frame const& frame) {
    constexpr std::size_t protocolOffset = Wirex::ethernetHeaderSize + 9;
    if (frame.size() > protocolOffset && frame[protocolOffset] == IPPROTO_IGMP) report = frame;
  });
  int host = -1;
  {
    NetworkNamespace::Inside const far(cable->farSpace());
    host = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ip_mreqn membership{};
    membership.imr_multiaddr.s_addr = inet_addr("239.1.2.3");
    membership.imr_ifindex = static_cast<int>(if_nametoindex(VethCable::farName()));
    ASSERT_EQ(setsockopt(host, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership), 0);
  }
  EXPECT_TRUE(await([&] { return !report.empty(); }));
  Frame const group{239, 1, 2, 3};
  EXPECT_NE(std::search(report.begin(), report.end(), group.begin(), group.end()), report.end());
  close(host);
}

TEST_F(SocketEthDevPamNetnsTest, PacketsOfABatchAreSeenByTheFarEndInOrder) {
  cable->mtuIs(9000);
  auto const pam = open();
  FarEnd const far(*cable);
  Frames const frames{frameOf(60, 1), tagged(frameOf(60, 2), 10), frameOf(jumboFrame, 3),
                      tagged(frameOf(jumboFrame, 4), 20)};
  for (Frame const& frame : frames) pam->outputPktIs(packet(frame));
  loop.endBatch();
  for (Frame const& frame : frames) EXPECT_EQ(far.receive(), frame);
  EXPECT_EQ(pam->counters().sent, frames.size());
}

TEST_F(SocketEthDevPamNetnsTest, PacketLongerThanTheLinkTakesIsDroppedAlone) {
  auto const pam = open();
  FarEnd const far(*cable);
  for (std::size_t const size : {60U, 2000U, 61U}) pam->outputPktIs(packet(frameOf(size)));
  loop.endBatch();
  EXPECT_EQ(far.receive(), frameOf(60));
  EXPECT_EQ(far.receive(), frameOf(61));
  EXPECT_EQ(pam->counters().sendDropped, 1u);
}

TEST_F(SocketEthDevPamNetnsTest, FramesThatTheRingCouldNotHoldAreCounted) {
  auto const pam = open();
  auto const receiver = recorder(pam);
  FarEnd const far(*cable);
  constexpr std::size_t sent = 700;
  for (std::size_t i = 0; i < sent; ++i) far.send(frameOf(60));
  EXPECT_TRUE(await([&] { return received.size() + pam->counters().receiveDropped == sent; }));
  EXPECT_GT(pam->counters().receiveDropped, 0u);
}

TEST_F(SocketEthDevPamNetnsTest, LinkThatGoesDownAndUpWorksAgain) {
  auto const pam = open();
  auto const receiver = recorder(pam);
  FarEnd const far(*cable);
  for (std::size_t round = 1; round <= 3; ++round) {
    cable->nearIsUp(false);
    ASSERT_TRUE(await([&] { return pam->counters().receiveFailed == round; }));
    EXPECT_TRUE(loopIsQuiet());
    pam->outputPktIs(packet(frameOf(60, 1)));
    loop.endBatch();
    EXPECT_EQ(pam->counters().sendDropped, round);

    cable->nearIsUp(true);
    far.send(frameOf(60, 2));
    ASSERT_TRUE(awaitFrames(round));
    pam->outputPktIs(packet(frameOf(60, 3)));
    loop.endBatch();
    EXPECT_EQ(far.receive(), frameOf(60, 3));
  }
}

TEST_F(SocketEthDevPamNetnsTest, FirstPacketAfterAShortBreakIsSent) {
  auto const pam = open();
  FarEnd const far(*cable);
  cable->nearIsUp(false);
  cable->nearIsUp(true);
  pam->outputPktIs(packet(frameOf(60)));
  loop.endBatch();
  EXPECT_EQ(far.receive(), frameOf(60));
  EXPECT_EQ(pam->counters().receiveFailed, 1u);
  EXPECT_EQ(pam->counters().sendDropped, 0u);
}

TEST_F(SocketEthDevPamNetnsTest, DeviceThatIsDownIsOpenedAndWorksOnceItIsUp) {
  cable->nearIsUp(false);
  auto const pam = open();
  ASSERT_TRUE(pam);
  auto const receiver = recorder(pam);
  loop.turn(loop.now());
  EXPECT_TRUE(loopIsQuiet());
  cable->nearIsUp(true);
  FarEnd(*cable).send(frameOf(60));
  EXPECT_TRUE(awaitFrames(1));
}

TEST_F(SocketEthDevPamNetnsTest, DeviceThatIsDeletedLeavesTheLoopQuiet) {
  auto const pam = open();
  cable->unplug();
  ASSERT_TRUE(await([&] { return pam->counters().receiveFailed == 1; }));
  EXPECT_TRUE(loopIsQuiet());
  pam->outputPktIs(packet(frameOf(60)));
  loop.endBatch();
  EXPECT_TRUE(loopIsQuiet());
}

TEST_F(SocketEthDevPamNetnsTest, DeviceThatTheKernelDoesNotHaveIsDeaf) {
  auto const unknown = devices->pam(intf, {"none0", 0}, settings());
  EXPECT_THAT(unknown->deafness(), testing::HasSubstr("none0"));
  auto const gone = devices->pam(intf, {"none0", 4711}, settings());
  EXPECT_THAT(gone->deafness(), testing::HasSubstr("none0"));
}

TEST_F(SocketEthDevPamNetnsTest, InterfaceThatReturnsUnderItsNumberIsHeardAgain) {
  auto const pam = open();
  auto const receiver = recorder(pam);
  auto const index = cable->nearIndex();
  cable->unplug();
  cable->plug(index);
  ASSERT_EQ(cable->nearIndex(), index);
  ASSERT_TRUE(await([&] { return !pam->deafness().empty(); }));
  ASSERT_TRUE(await([&] { return pam->deafness().empty(); }));
  FarEnd const far(*cable);
  far.send(frameOf(60, 1));
  EXPECT_TRUE(awaitFrames(1));
  pam->outputPktIs(packet(frameOf(60, 2)));
  loop.endBatch();
  EXPECT_EQ(far.receive(), frameOf(60, 2));
}

TEST_F(SocketEthDevPamNetnsTest, BurstOfLongFramesIsHeardOrCounted) {
  cable->mtuIs(9000);
  auto const pam = open();
  auto const receiver = recorder(pam);
  FarEnd const far(*cable);
  constexpr std::size_t sent = 500;
  for (std::size_t i = 0; i < sent; ++i) far.send(frameOf(1994));
  EXPECT_TRUE(await([&] { return received.size() + pam->counters().receiveDropped == sent; }));
  EXPECT_EQ(pam->counters().receiveTruncated, 0u);
  std::ifstream limit("/proc/sys/net/core/rmem_max");
  std::size_t granted = 0;
  if (limit >> granted && granted >= 4 << 20) {
    EXPECT_EQ(pam->counters().receiveDropped, 0u);
  }
}

/// With what opens the devices of the interfaces that the kernel has.
class SocketEthDevPamManagedTest : public SocketEthDevPamNetnsTest {
 protected:
  void SetUp() override {
    SocketEthDevPamNetnsTest::SetUp();
    if (IsSkipped()) return;
    desired->intfDesiredIs(intf, true);
    manager = Kel::make<Interface::EthDevPamManager>(desired, opened, kernelIntfs);
    auto const with = settings();
    manager->bufferSizeIs(with.bufferSize);
    manager->protocolIs(with.protocol);
    manager->filterIs(with.filter.size(), with.filter.data());
    manager->enabledIs(true);
  }

  void kernelHasTheIntf() {
    kernelIntfs->intfStatusAndDeviceNameIs(intf, {VethCable::nearName(), cable->nearIndex()});
  }

  void expectToWorkBothWays() {
    auto const pam = opened->intfPam(intf);
    ASSERT_TRUE(pam);
    received.clear();
    auto const receiver = recorder(pam);
    FarEnd const far(*cable);
    far.send(frameOf(60, 1));
    EXPECT_TRUE(awaitFrames(1));
    pam->outputPktIs(packet(frameOf(60, 2)));
    loop.endBatch();
    EXPECT_EQ(far.receive(), frameOf(60, 2));
  }

  Kel::Ptr<Interface::PamDesiredIntfDir> desired = Kel::make<Interface::PamDesiredIntfDir>("test");
  Kel::Ptr<Interface::EthDevPamCollection> opened =
      Kel::make<Interface::EthDevPamCollection>("test");
  Kel::Ptr<Interface::DeviceIntfStatusDir> kernelIntfs =
      Kel::make<Interface::DeviceIntfStatusDir>();
  Kel::Ptr<Interface::EthDevPamManager> manager;
};

TEST_F(SocketEthDevPamManagedTest, InterfaceThatIsMadeAgainUnderItsNameWorksAgain) {
  kernelHasTheIntf();
  expectToWorkBothWays();
  for (int round = 0; round < 5; ++round) {
    cable->unplug();
    cable->plug();
    kernelHasTheIntf();
    expectToWorkBothWays();
  }
}

TEST_F(SocketEthDevPamManagedTest, InterfaceThatGoesIsClosedAndOpenedWhenItComesBack) {
  kernelHasTheIntf();
  auto const descriptors = openDescriptors();
  cable->unplug();
  kernelIntfs->intfStatusAndDeviceNameDel(intf);
  EXPECT_FALSE(opened->intfPam(intf));
  EXPECT_EQ(openDescriptors(), descriptors - 1);
  cable->plug();
  kernelHasTheIntf();
  expectToWorkBothWays();
}

/// What a process that opens and closes a device again and again has found amiss.
enum Amiss { nothing, notOpened, leakedDescriptors, leakedMemory };

/// Most of the time of closing a packet socket is spent waiting for the kernel, in which other
/// processes can wait too.
TEST_F(SocketEthDevPamNetnsTest, TenThousandRoundsOfOpeningAndClosingLeakNothing) {
  constexpr int processes = 100;
  constexpr int roundsOfEach = 100;
  auto const rounds = [&](Horix::EventLoop& own, int count) -> Amiss {
    for (int round = 0; round < count; ++round) {
      auto const pam = open();
      if (!pam) return notOpened;
      auto const receiver = recorder(pam);
      pam->outputPktIs(packet(frameOf(60)));
      own.turn(own.now());
    }
    return nothing;
  };
  auto const process = [&]() -> Amiss {
    Horix::EventLoop own{Kel::make<Horix::TimerWheel>(Kel::make<Horix::MonotonicClock>())};
    devices.emplace(own);
    if (Amiss const amiss = rounds(own, 5); amiss != nothing) return amiss;
    auto const descriptors = openDescriptors();
    auto const memory = mallinfo2().uordblks;
    if (Amiss const amiss = rounds(own, roundsOfEach); amiss != nothing) return amiss;
    if (openDescriptors() != descriptors) return leakedDescriptors;
    if (mallinfo2().uordblks != memory) return leakedMemory;
    return nothing;
  };
  std::vector<pid_t> running;
  for (int i = 0; i < processes; ++i) {
    pid_t const child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) _exit(process());
    running.push_back(child);
  }
  for (pid_t const child : running) {
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), nothing);
  }
}

}  // namespace
