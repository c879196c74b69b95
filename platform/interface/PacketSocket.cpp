#include "platform/interface/PacketSocket.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <atomic>
#include <cerrno>
#include <linux/filter.h>
#include <linux/if_packet.h>
#include <sys/mman.h>

#include "platform/wirex/PktManager.h"

namespace Interface {

using Wirex::etherTypeOffset;
using Wirex::vlanTagSize;

namespace {

static_assert(sizeof(BpfInstruction) == sizeof(sock_filter));
static_assert(offsetof(BpfInstruction, code) == offsetof(sock_filter, code));
static_assert(offsetof(BpfInstruction, jumpIfTrue) == offsetof(sock_filter, jt));
static_assert(offsetof(BpfInstruction, jumpIfFalse) == offsetof(sock_filter, jf));
static_assert(offsetof(BpfInstruction, k) == offsetof(sock_filter, k));

// A slot holds a frame of the usual MTU. Version 2 of the ring hands over each frame as it comes;
// version 3 hands over blocks, and the frames of one that is not full wait for a jiffy or more.
constexpr std::size_t slotSize = 2048;
constexpr std::size_t slotsPerBlock = 32;
constexpr std::size_t blocks = 16;
constexpr std::size_t slots = blocks * slotsPerBlock;
static_assert(slots == PacketSocket::mostWaiting);
constexpr std::size_t ringSize = slots * slotSize;

// For as many long frames as the ring has slots. The administrator's limit (net.core.rmem_max) may
// allow for less.
constexpr int queueSize = 8 << 20;  // bytes

[[noreturn]] void fail(char const* call) {
  throw FailedCall(call, errno);
}

unsigned indexOf(IntfStatusAndDeviceName const& device, SystemCalls& system) {
  if (device.deviceIndex != 0) return device.deviceIndex;
  unsigned const index = system.if_nametoindex(device.deviceName.c_str());
  if (index == 0) fail("if_nametoindex");
  return index;
}

std::optional<sockaddr_ll> boundTo(SystemCalls& system, int socket) {
  sockaddr_ll address{};
  socklen_t size = sizeof address;
  if (system.getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) < 0 ||
      address.sll_family != AF_PACKET)
    return std::nullopt;
  return address;
}

template <class Value>
void setOption(SystemCalls& system, int socket, int level, int option, Value const& value,
               char const* name) {
  if (system.setsockopt(socket, level, option, &value, sizeof value) < 0) fail(name);
}

}  // namespace

/// What the kernel says of a frame, in front of it in the ring.
struct PacketSocket::Slot {
  std::uint8_t* begin;
  tpacket2_hdr& header;

  // Release and acquire order the accesses to the frame, which the kernel writes meanwhile.
  std::uint32_t status() const noexcept {
    return std::atomic_ref(header.tp_status).load(std::memory_order_acquire);
  }
  void giveBack() const noexcept {
    std::atomic_ref(header.tp_status).store(TP_STATUS_KERNEL, std::memory_order_release);
  }
};

PacketSocket::PacketSocket(SystemCalls& system, PassedOn const& passed) noexcept
    : system_(system),
      descriptor_(passed.descriptor),
      nextSlot_(passed.nextSlot),
      interfaceIndex_(passed.interfaceIndex),
      manner_(passed.manner) {}

void PacketSocket::open(IntfStatusAndDeviceName const& device, EthDevSettings const& settings) try {
  tryToOpen(device, settings);
} catch (...) {
  close();
  throw;
}

// The socket has no protocol until the end, and so receives nothing before it is set up: no frame
// can get past the filter.
void PacketSocket::tryToOpen(IntfStatusAndDeviceName const& device,
                             EthDevSettings const& settings) {
  bufferSize_ = settings.bufferSize;
  unsigned const index = indexOf(device, system_);
  descriptor_ = system_.socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (descriptor_ < 0) fail("socket");
  if (!settings.filter.empty()) attachFilter(settings.filter);
  // Spares the kernel to run the filter for every frame that we send.
  setOption(system_, descriptor_, SOL_PACKET, PACKET_IGNORE_OUTGOING, int{1},
            "PACKET_IGNORE_OUTGOING");
  makeRing();
  bind(static_cast<int>(index), settings.protocol);
}

void PacketSocket::attachFilter(SocketFilter const& filter) {
  // The kernel does not write to the program.
  auto* const program = reinterpret_cast<sock_filter*>(const_cast<BpfInstruction*>(filter.data()));
  sock_fprog const option{static_cast<unsigned short>(filter.size()), program};
  setOption(system_, descriptor_, SOL_SOCKET, SO_ATTACH_FILTER, option, "SO_ATTACH_FILTER");
}

void PacketSocket::makeRing() {
  setOption(system_, descriptor_, SOL_PACKET, PACKET_VERSION, int{TPACKET_V2}, "PACKET_VERSION");
  setOption(system_, descriptor_, SOL_PACKET, PACKET_COPY_THRESH, int{1}, "PACKET_COPY_THRESH");
  setOption(system_, descriptor_, SOL_SOCKET, SO_RCVBUF, queueSize, "SO_RCVBUF");
  tpacket_req ring{};
  ring.tp_block_size = slotsPerBlock * slotSize;
  ring.tp_block_nr = blocks;
  ring.tp_frame_size = slotSize;
  ring.tp_frame_nr = slots;
  setOption(system_, descriptor_, SOL_PACKET, PACKET_RX_RING, ring, "PACKET_RX_RING");
  mapRing();
}

void PacketSocket::mapRing() {
  void* const mapped =
      system_.mmap(nullptr, ringSize, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor_, 0);
  if (mapped == MAP_FAILED) fail("mmap");
  ring_ = static_cast<std::uint8_t*>(mapped);
}

void PacketSocket::bind(int interfaceIndex, std::uint16_t protocol) {
  packet_mreq everyGroup{};
  everyGroup.mr_ifindex = interfaceIndex;
  everyGroup.mr_type = PACKET_MR_ALLMULTI;
  setOption(system_, descriptor_, SOL_PACKET, PACKET_ADD_MEMBERSHIP, everyGroup,
            "PACKET_ADD_MEMBERSHIP");

  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(protocol);
  address.sll_ifindex = interfaceIndex;
  if (system_.bind(descriptor_, reinterpret_cast<sockaddr const*>(&address), sizeof address) < 0)
    fail("bind");
  interfaceIndex_ = interfaceIndex;
}

bool PacketSocket::continueWith(IntfStatusAndDeviceName const& device,
                                EthDevSettings const& settings) noexcept try {
  bufferSize_ = settings.bufferSize;
  bool const fits = manner_ == ownManner && nextSlot_ < slots &&
                    static_cast<int>(indexOf(device, system_)) == interfaceIndex_ &&
                    isBoundWith(settings.protocol) && hasFilter(settings.filter);
  if (fits) mapRing();
  return fits;
} catch (FailedCall const&) {
  return false;
}

void PacketSocket::close() noexcept {
  if (ring_) system_.munmap(std::exchange(ring_, nullptr), ringSize);
  if (descriptor_ >= 0) system_.close(std::exchange(descriptor_, -1));
}

bool PacketSocket::isBound() const {
  auto const address = boundTo(system_, descriptor_);
  return address && address->sll_ifindex == interfaceIndex_;
}

bool PacketSocket::isBoundWith(std::uint16_t protocol) const {
  auto const address = boundTo(system_, descriptor_);
  return address && address->sll_ifindex == interfaceIndex_ &&
         address->sll_protocol == htons(protocol);
}

// The size of this option counts instructions. Where there is room for none, the kernel tells how
// many there are.
bool PacketSocket::hasFilter(SocketFilter const& filter) const {
  socklen_t size = 0;
  if (system_.getsockopt(descriptor_, SOL_SOCKET, SO_GET_FILTER, nullptr, &size) < 0 ||
      size != filter.size())
    return false;
  SocketFilter present(size);
  if (size > 0 &&
      system_.getsockopt(descriptor_, SOL_SOCKET, SO_GET_FILTER, present.data(), &size) < 0)
    return false;
  return present == filter;
}

PacketSocket::Slot PacketSocket::slot() const noexcept {
  std::uint8_t* const begin = ring_ + nextSlot_ * slotSize;
  return {begin, *reinterpret_cast<tpacket2_hdr*>(begin)};
}

std::optional<Wirex::Pkt::PtrConst> PacketSocket::receive() {
  while (true) {
    Slot const next = slot();
    if ((next.status() & TP_STATUS_USER) == 0) return std::nullopt;
    auto pkt = receiveFrom(next);
    next.giveBack();
    nextSlot_ = (nextSlot_ + 1) % slots;
    if (pkt) return pkt;
    ++lost_;
  }
}

// The kernel takes the first VLAN tag out of every frame and tells it beside the frame.
std::optional<Wirex::Pkt::PtrConst> PacketSocket::receiveFrom(Slot const& slot) {
  tpacket2_hdr const& header = slot.header;
  std::uint32_t const status = slot.status();
  bool const queued = (status & TP_STATUS_COPY) != 0;
  bool const tagged = (status & TP_STATUS_VLAN_VALID) != 0 && header.tp_len >= etherTypeOffset;
  std::size_t const untaggedSize = header.tp_len;
  std::size_t const tagSize = tagged ? vlanTagSize : 0;

  std::size_t const longest = std::min(bufferSize_, Wirex::PktManager::instance().bufferSize());
  if (untaggedSize + tagSize > longest) {
    if (queued) receiveQueued({}, {});
    return nullptr;
  }
  if (!queued && header.tp_mac + untaggedSize > slotSize) return std::nullopt;
  if (!queued && header.tp_snaplen < untaggedSize) return nullptr;
  auto const pkt = Wirex::Pkt::PktIs(untaggedSize + tagSize);
  auto const frame = pkt->bytes();
  auto const beforeTag = frame.first(tagged ? etherTypeOffset : 0);
  auto const afterTag = frame.subspan(beforeTag.size() + tagSize);
  if (!queued) {
    std::uint8_t const* const content = slot.begin + header.tp_mac;
    std::copy_n(content, beforeTag.size(), beforeTag.begin());
    std::copy_n(content + beforeTag.size(), afterTag.size(), afterTag.begin());
  } else if (!receiveQueued(beforeTag, afterTag)) {
    return std::nullopt;
  }
  if (tagged) {
    bool const typeIsKnown = (status & TP_STATUS_VLAN_TPID_VALID) != 0;
    Wirex::putBigEndian16(frame.data() + etherTypeOffset,
                          typeIsKnown ? header.tp_vlan_tpid : Wirex::etherTypeVlan);
    Wirex::putBigEndian16(frame.data() + etherTypeOffset + 2, header.tp_vlan_tci);
  }
  return pkt;
}

// What an interface reported when it went down is told, once, by whatever call comes next, even if
// that has nothing to complain of itself.
template <class Call>
auto PacketSocket::beyondReportedError(Call call) {
  auto const uninterrupted = [&] {
    auto result = call();
    while (result < 0 && errno == EINTR) result = call();
    return result;
  };
  auto const result = uninterrupted();
  if (result >= 0 || errno != ENETDOWN) return result;
  auto const again = uninterrupted();
  if (again >= 0 || errno != ENETDOWN) metError_ = ENETDOWN;
  return again;
}

// Takes the oldest frame out of the queue. Returns whether it had this size.
bool PacketSocket::receiveQueued(Wirex::WritableBytes beforeTag, Wirex::WritableBytes afterTag) {
  std::array<iovec, 2> parts{
      {{beforeTag.data(), beforeTag.size()}, {afterTag.data(), afterTag.size()}}};
  msghdr message{};
  message.msg_iov = parts.data();
  message.msg_iovlen = parts.size();
  ssize_t const size =
      beyondReportedError([&] { return system_.recvmsg(descriptor_, &message, MSG_TRUNC); });
  return size == static_cast<ssize_t>(beforeTag.size() + afterTag.size());
}

std::uint32_t PacketSocket::takeDropped() {
  tpacket_stats statistics{};
  socklen_t size = sizeof statistics;
  system_.getsockopt(descriptor_, SOL_PACKET, PACKET_STATISTICS, &statistics, &size);
  return statistics.tp_drops + std::exchange(lost_, 0);
}

int PacketSocket::takeError() {
  if (int const error = takeMetError(); error != 0) return error;
  int error = 0;
  socklen_t size = sizeof error;
  if (system_.getsockopt(descriptor_, SOL_SOCKET, SO_ERROR, &error, &size) < 0) return errno;
  return error;
}

int PacketSocket::send(std::span<Wirex::Pkt::Ptr const> packets) {
  std::array<iovec, sentAtOnce> contents;
  std::array<mmsghdr, sentAtOnce> messages;
  std::size_t const count = std::min(packets.size(), sentAtOnce);
  for (std::size_t i = 0; i < count; ++i) {
    auto const bytes = packets[i]->bytes();
    contents[i] = {bytes.data(), bytes.size()};
    messages[i] = {};
    messages[i].msg_hdr.msg_iov = &contents[i];
    messages[i].msg_hdr.msg_iovlen = 1;
  }
  return beyondReportedError([&] {
    return system_.sendmmsg(descriptor_, messages.data(), static_cast<unsigned>(count), 0);
  });
}

}  // namespace Interface
