#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <linux/filter.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <optional>
#include <ostream>
#include <poll.h>
#include <sched.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/interface/FilterInterpreter.h"
#include "proxy/ReceiveFilter.h"
#include "tests/platform/igmp/FrameBuilder.h"

namespace Bridging::IgmpSnooping::Proxy::Testing {
namespace {

using IgmpTest::ByteVector;
using IgmpTest::ByteWriter;
using IgmpTest::FrameBuilder;
using Interface::FilterInterpreter;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Wirex::IpAddr;

// ---- The program

TEST(ReceiveFilterProgram, IsThisOne) {
  // code, instructions to skip if true, if false, k
  std::vector<Interface::BpfInstruction> const program{
      {0x30, 0, 0, 0xfffff004},    // 0: packet type
      {0x15, 26, 0, 4},            // 1: outgoing? drop
      {0x28, 0, 0, 12},            // 2: Ethernet type
      {0x15, 17, 0, 0x0801},       // 3
      {0x15, 0, 6, 0x0800},        // 4: IPv4?
      {0x30, 0, 0, 23},            // 5: protocol
      {0x15, 14, 0, 2},            // 6: IGMP
      {0x15, 13, 0, 0x67},         // 7: PIM
      {0x20, 0, 0, 30},            // 8: destination
      {0x54, 0, 0, 0xffffff00},    // 9
      {0x15, 10, 17, 0xe0000000},  // 10: 224.0.0.0/24
      {0x15, 0, 16, 0x8100},       // 11: tagged?
      {0x28, 0, 0, 16},            // 12: the same behind the tag
      {0x15, 7, 0, 0x0801},        // 13
      {0x15, 0, 13, 0x0800},       // 14
      {0x30, 0, 0, 27},            // 15
      {0x15, 4, 0, 2},             // 16
      {0x15, 3, 0, 0x67},          // 17
      {0x20, 0, 0, 34},            // 18
      {0x54, 0, 0, 0xffffff00},    // 19
      {0x15, 0, 7, 0xe0000000},    // 20
      {0x30, 0, 0, 0},             // 21: destination MAC address
      {0x15, 0, 5, 0x01},          // 22
      {0x30, 0, 0, 1},             // 23
      {0x15, 0, 3, 0x00},          // 24
      {0x30, 0, 0, 2},             // 25
      {0x15, 0, 1, 0x5e},          // 26
      {0x06, 0, 0, 0xffff},        // 27: accept
      {0x06, 0, 0, 0},             // 28: drop
  };
  ASSERT_EQ(receiveFilter.size(), 29u);
  for (std::size_t i = 0; i < program.size(); ++i) {
    EXPECT_EQ(receiveFilter[i].code, program[i].code) << "instruction " << i;
    EXPECT_EQ(receiveFilter[i].jumpIfTrue, program[i].jumpIfTrue) << "instruction " << i;
    EXPECT_EQ(receiveFilter[i].jumpIfFalse, program[i].jumpIfFalse) << "instruction " << i;
    EXPECT_EQ(receiveFilter[i].k, program[i].k) << "instruction " << i;
  }
}

// ---- The frames

struct Sample {
  std::string name;
  ByteVector frame;
  bool accepted;

  friend std::ostream& operator<<(std::ostream& out, Sample const& sample) {
    return out << sample.name;
  }
};

constexpr IpAddr group{232, 1, 1, 1};

/// A datagram of a protocol to an address; its MAC address is the one of that group.
FrameBuilder datagram(unsigned protocol, IpAddr destination) {
  return FrameBuilder::message(ByteVector(30), destination).protocol(protocol).options({});
}
constexpr unsigned udp = 17;
constexpr unsigned pim = 103;

FrameBuilder igmp() {
  return FrameBuilder::reportV2(group);
}

ByteVector to(ByteVector const& mac, ByteVector frame) {
  std::copy(mac.begin(), mac.end(), frame.begin());
  return frame;
}

ByteVector cutTo(std::size_t size, ByteVector frame) {
  frame.resize(size);
  return frame;
}

/// What is accepted and what is not, whatever tags it has: `tag` adds them.
std::vector<Sample> samplesWith(std::string const& tags, FrameBuilder (*tag)(FrameBuilder)) {
  auto const with = [&](FrameBuilder const& builder) { return tag(builder).bytes(); };
  ByteVector const membership = with(igmp());
  ByteVector const local = with(datagram(udp, IpAddr(224, 0, 0, 251)));
  ByteVector const type0801 = with(igmp().etherType(0x0801));
  std::vector<Sample> samples{
      {"IgmpReport", membership, true},
      {"IgmpGeneralQuery", with(FrameBuilder::queryV3({})), true},
      {"IgmpLeave", with(FrameBuilder::leave(group)), true},
      {"IgmpWithoutOptions", with(igmp().options({})), true},
      {"IgmpToAUnicastAddress", with(igmp().to(IpAddr(10, 0, 0, 1))), true},
      {"PimHello", with(datagram(pim, IpAddr(224, 0, 0, 13))), true},
      {"PimToAnotherGroup", with(datagram(pim, group)), true},
      {"PimToAUnicastAddress", with(datagram(pim, IpAddr(10, 0, 0, 1))), true},
      {"UdpToTheFirstLocalAddress", with(datagram(udp, IpAddr(224, 0, 0, 0))), true},
      {"UdpToALocalGroup", local, true},
      {"UdpToTheLastLocalGroup", with(datagram(udp, IpAddr(224, 0, 0, 255))), true},
      {"OspfToALocalGroup", with(datagram(89, IpAddr(224, 0, 0, 5))), true},
      {"Type0801", type0801, true},
      {"Type0801ToAnyGroup", with(datagram(udp, group).etherType(0x0801)), true},

      {"UdpToTheNextGroup", with(datagram(udp, IpAddr(224, 0, 1, 0))), false},
      {"UdpToAnotherGroup", with(datagram(udp, group)), false},
      {"UdpToTheAddressBefore", with(datagram(udp, IpAddr(223, 255, 255, 255))), false},
      {"UdpToAUnicastAddress", with(datagram(udp, IpAddr(10, 0, 0, 1))), false},
      {"UdpToTheOtherEnd", with(datagram(udp, IpAddr(225, 0, 0, 1))), false},
      {"IpInIp", with(datagram(4, group)), false},
      {"Type0802", with(igmp().etherType(0x0802)), false},
      {"Type07ff", with(igmp().etherType(0x07ff)), false},
      {"Arp", with(igmp().etherType(0x0806)), false},
      {"Ipv6", with(igmp().etherType(0x86dd)), false},
      {"Ipv6ToItsMulticastMac", to({0x33, 0x33, 0, 0, 0, 1}, with(igmp().etherType(0x86dd))),
       false},
      {"ProviderTag", with(igmp().etherType(0x88a8)), false},
      {"Lldp", to({0x01, 0x80, 0xc2, 0, 0, 0x0e}, with(igmp().etherType(0x88cc))), false},
  };

  std::vector<std::pair<std::string, ByteVector>> const otherMacs{
      {"AUnicastMac", {0x02, 0x00, 0x00, 0, 0, 9}},
      {"AUnicastMacOfTheGroupsVendor", {0x00, 0x00, 0x5e, 0, 1, 1}},
      {"Broadcast", {0xff, 0xff, 0xff, 0xff, 0xff, 0xff}},
      {"AnIpv6GroupsMac", {0x33, 0x33, 0x5e, 0, 0, 1}},
      {"AMacWithAnotherSecondByte", {0x01, 0x01, 0x5e, 0, 0, 1}},
      {"AMacWithAnotherThirdByte", {0x01, 0x00, 0x5f, 0, 0, 1}},
      {"TheBridgeGroup", {0x01, 0x80, 0xc2, 0, 0, 1}},
      {"NoMac", {0, 0, 0, 0, 0, 0}},
  };
  for (auto const& [name, mac] : otherMacs) {
    samples.push_back({"IgmpTo" + name, to(mac, membership), false});
    samples.push_back({"UdpLocalTo" + name, to(mac, local), false});
    samples.push_back({"Type0801To" + name, to(mac, type0801), false});
  }
  ByteVector const lastGroupMac{0x01, 0x00, 0x5e, 0xff, 0xff, 0xff};
  samples.push_back({"IgmpToTheLastMacOfThatKind", to(lastGroupMac, membership), true});

  for (Sample& sample : samples) sample.name = tags + sample.name;
  return samples;
}

std::vector<Sample> samples() {
  std::vector<Sample> all = samplesWith("Untagged", [](FrameBuilder builder) { return builder; });
  auto const add = [&](std::vector<Sample> more) {
    std::move(more.begin(), more.end(), std::back_inserter(all));
  };
  add(samplesWith("Tagged", [](FrameBuilder builder) { return builder.vlan(10, 5); }));
  add(samplesWith("PriorityTagged", [](FrameBuilder builder) { return builder.vlan(0, 7); }));
  for (Sample sample :
       samplesWith("TwiceTagged", [](FrameBuilder builder) { return builder.vlan(10).vlan(20); })) {
    sample.accepted = false;
    all.push_back(std::move(sample));
  }

  all.push_back({"JumboIgmp", cutTo(9018, igmp().bytes()), true});
  all.push_back({"JumboUdp", cutTo(9018, datagram(udp, group).bytes()), false});
  return all;
}

/// Runs the program in the kernel, on a socket that needs no privilege.
class KernelFilter {
 public:
  KernelFilter() {
    if (socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends_) < 0 ||
        !attach(ends_[1]))
      impossible_ = std::strerror(errno);
  }
  KernelFilter(KernelFilter const&) = delete;
  KernelFilter& operator=(KernelFilter const&) = delete;
  ~KernelFilter() {
    for (int const end : ends_)
      if (end >= 0) close(end);
  }

  static bool attach(int socket) {
    static_assert(sizeof(sock_filter) == sizeof(Interface::BpfInstruction));
    auto program = receiveFilter;
    sock_fprog const option{static_cast<unsigned short>(program.size()),
                            reinterpret_cast<sock_filter*>(program.data())};
    return setsockopt(socket, SOL_SOCKET, SO_ATTACH_FILTER, &option, sizeof option) == 0;
  }

  std::optional<std::string> const& impossible() const { return impossible_; }

  /// What is received of a frame; nothing if it is dropped.
  std::optional<ByteVector> pass(ByteVector const& frame) const {
    EXPECT_EQ(send(ends_[0], frame.data(), frame.size(), 0), static_cast<ssize_t>(frame.size()));
    ByteVector received(frame.size() + 1);
    ssize_t const size = recv(ends_[1], received.data(), received.size(), 0);
    if (size < 0) {
      EXPECT_EQ(errno, EAGAIN);
      return std::nullopt;
    }
    received.resize(static_cast<std::size_t>(size));
    return received;
  }

 private:
  int ends_[2] = {-1, -1};
  std::optional<std::string> impossible_;
};

/// Incoming, the frame meets with this verdict wherever the program runs; outgoing it is dropped.
void expectVerdict(ByteVector const& frame, bool accepted, KernelFilter const& kernel) {
  Interface::SocketFilter const program(receiveFilter.begin(), receiveFilter.end());
  EXPECT_EQ(FilterInterpreter(program).accepts(frame), accepted) << "interpreted";
  EXPECT_FALSE(FilterInterpreter(program, FilterInterpreter::PacketType::outgoing).accepts(frame));
  if (kernel.impossible()) return;
  auto const received = kernel.pass(frame);
  ASSERT_EQ(received.has_value(), accepted) << "by the kernel";
  if (received) {
    EXPECT_EQ(*received, frame) << "it is not whole";
  }
}

class ReceiveFilter : public ::testing::TestWithParam<Sample> {};

TEST_P(ReceiveFilter, IsOfOneMindInterpretedAndInTheKernel) {
  KernelFilter const kernel;
  expectVerdict(GetParam().frame, GetParam().accepted, kernel);
  if (kernel.impossible()) GTEST_SKIP() << "no filter on a socket: " << *kernel.impossible();
}

INSTANTIATE_TEST_SUITE_P(Frames, ReceiveFilter, ::testing::ValuesIn(samples()),
                         [](auto const& sample) { return sample.param.name; });

struct CutSample {
  std::string name;
  ByteVector frame;
  std::size_t enough;  // bytes, for the filter to see that it accepts

  friend std::ostream& operator<<(std::ostream& out, CutSample const& sample) {
    return out << sample.name;
  }
};

std::vector<CutSample> cutSamples() {
  auto const local = datagram(udp, IpAddr(224, 0, 0, 1));
  auto const type0801 = igmp().etherType(0x0801);
  return {
      {"Igmp", igmp().bytes(), 24},
      {"UdpLocal", local.bytes(), 34},
      {"Type0801", type0801.bytes(), 14},
      {"TaggedIgmp", igmp().vlan(10).bytes(), 28},
      {"TaggedUdpLocal", FrameBuilder(local).vlan(10).bytes(), 38},
      {"TaggedType0801", FrameBuilder(type0801).vlan(10).bytes(), 18},
  };
}

class ReceiveFilterOfCutFrames : public ::testing::TestWithParam<CutSample> {};

TEST_P(ReceiveFilterOfCutFrames, AcceptsFromTheLengthOnAtWhichItHasSeenEnough) {
  KernelFilter const kernel;
  for (std::size_t size = 0; size <= GetParam().frame.size(); ++size) {
    SCOPED_TRACE(size);
    expectVerdict(cutTo(size, GetParam().frame), size >= GetParam().enough, kernel);
  }
  if (kernel.impossible()) GTEST_SKIP() << "no filter on a socket: " << *kernel.impossible();
}

INSTANTIATE_TEST_SUITE_P(Frames, ReceiveFilterOfCutFrames, ::testing::ValuesIn(cutSamples()),
                         [](auto const& sample) { return sample.param.name; });

// ---- On a wire

/// The loopback of a network namespace of the calling thread's own. What is sent on it is heard
/// there twice: on its way out, and as it comes in.
class Loopback {
 public:
  Loopback() {
    if (unshare(CLONE_NEWNET) < 0)
      fail("no network namespace");
    else if (!switchOn())
      fail("loopback stays down");
    else
      open();
  }
  Loopback(Loopback const&) = delete;
  Loopback& operator=(Loopback const&) = delete;
  ~Loopback() {
    for (int const each : {sender_, filtered_})
      if (each >= 0) close(each);
  }

  std::string const& impossible() const { return impossible_; }

  void send(ByteVector const& frame) const {
    sockaddr_ll const to = address(0);
    EXPECT_EQ(sendto(sender_, frame.data(), frame.size(), 0, reinterpret_cast<sockaddr const*>(&to),
                     sizeof to),
              static_cast<ssize_t>(frame.size()));
  }

  struct Heard {
    unsigned packetType;
    ByteVector frame;

    friend bool operator==(Heard const&, Heard const&) = default;
  };

  /// The next frame that passes the filter; nothing if none does within two seconds.
  std::optional<Heard> hear() const {
    pollfd waiting{filtered_, POLLIN, 0};
    if (poll(&waiting, 1, 2000) <= 0) return std::nullopt;
    sockaddr_ll from{};
    socklen_t size = sizeof from;
    ByteVector frame(2048);
    ssize_t const length = recvfrom(filtered_, frame.data(), frame.size(), 0,
                                    reinterpret_cast<sockaddr*>(&from), &size);
    if (length < 0) return std::nullopt;
    frame.resize(static_cast<std::size_t>(length));
    return Heard{from.sll_pkttype, frame};
  }

 private:
  static constexpr int index = 1;  // the loopback is the first interface of its namespace

  void fail(char const* what) { impossible_ = std::string(what) + ": " + std::strerror(errno); }

  static bool switchOn() {
    int const control = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    std::strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP | IFF_RUNNING;
    bool const up = ioctl(control, SIOCSIFFLAGS, &request) == 0;
    if (control >= 0) close(control);
    return up;
  }

  static sockaddr_ll address(std::uint16_t protocol) {
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(protocol);
    address.sll_ifindex = index;
    return address;
  }

  void open() {
    sender_ = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    filtered_ = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    if (sender_ < 0 || filtered_ < 0) return fail("no packet sockets");
    if (!KernelFilter::attach(filtered_)) return fail("no filter");
    sockaddr_ll const from = address(ETH_P_ALL);
    if (bind(filtered_, reinterpret_cast<sockaddr const*>(&from), sizeof from) < 0) fail("no bind");
  }

  std::string impossible_;
  int sender_ = -1;
  int filtered_ = -1;
};

/// What of these frames passes the filter on a loopback. The last one must be accepted.
struct OnLoopback {
  explicit OnLoopback(std::vector<ByteVector> const& frames) {
    // A namespace belongs to a thread: this one ends with it.
    std::thread([&] {
      Loopback const loopback;
      impossible = loopback.impossible();
      if (!impossible.empty()) return;
      for (ByteVector const& frame : frames) loopback.send(frame);
      while (auto const next = loopback.hear()) {
        heard.push_back(*next);
        if (next->frame == frames.back() && next->packetType != PACKET_OUTGOING) break;
      }
    }).join();
  }

  std::string impossible;
  std::vector<Loopback::Heard> heard;
};

ByteVector const lastFrame = FrameBuilder::reportV2(IpAddr(239, 9, 9, 9)).bytes();

TEST(ReceiveFilterOnAWire, TakesFramesAsTheyComeInAndNotAsTheyGoOut) {
  ByteVector const query = FrameBuilder::queryV3({}).bytes();
  ByteVector const local = datagram(udp, IpAddr(224, 0, 0, 1)).bytes();
  OnLoopback const wire({query, local, lastFrame});
  if (!wire.impossible.empty()) GTEST_SKIP() << wire.impossible;
  EXPECT_THAT(wire.heard, ElementsAre(Loopback::Heard{PACKET_MULTICAST, query},
                                      Loopback::Heard{PACKET_MULTICAST, local},
                                      Loopback::Heard{PACKET_MULTICAST, lastFrame}));
}

TEST(ReceiveFilterOnAWire, DropsWhatIsNotForIt) {
  ByteVector const unicast = to({0, 0, 0, 0, 0, 0}, igmp().bytes());
  ByteVector const broadcast = to(ByteVector(6, 0xff), igmp().bytes());
  ByteVector const stream = datagram(udp, group).bytes();
  ByteVector const arp = igmp().etherType(0x0806).bytes();
  OnLoopback const wire({unicast, broadcast, stream, arp, lastFrame});
  if (!wire.impossible.empty()) GTEST_SKIP() << wire.impossible;
  EXPECT_THAT(wire.heard, ElementsAre(Loopback::Heard{PACKET_MULTICAST, lastFrame}));
}

/// The kernel takes the tag off before it runs the filter.
TEST(ReceiveFilterOnAWire, TakesTaggedFrames) {
  OnLoopback const wire(
      {igmp().vlan(10).bytes(), datagram(udp, group).vlan(10).bytes(), lastFrame});
  if (!wire.impossible.empty()) GTEST_SKIP() << wire.impossible;
  EXPECT_THAT(wire.heard, ElementsAre(Loopback::Heard{PACKET_MULTICAST, igmp().bytes()},
                                      Loopback::Heard{PACKET_MULTICAST, lastFrame}));
}

}  // namespace
}  // namespace Bridging::IgmpSnooping::Proxy::Testing
