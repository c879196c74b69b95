#include "tests/platform/interface/FakeSystemCalls.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <linux/filter.h>
#include <span>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

namespace InterfaceTest {

namespace {

constexpr std::uint16_t contentOffset = 80;

int failWith(int error) {
  errno = error;
  return -1;
}

template <class Value>
Value valueOf(void const* option, socklen_t size) {
  if (size != sizeof(Value)) throw std::logic_error("an option has the wrong size");
  Value value;
  std::memcpy(&value, option, sizeof value);
  return value;
}

template <class Value>
void answer(Value const& value, void* option, socklen_t const* size) {
  if (*size != sizeof(Value)) throw std::logic_error("an option has the wrong size");
  std::memcpy(option, &value, sizeof value);
}

std::string nameOfOption(int level, int option) {
  if (level == SOL_SOCKET && option == SO_ATTACH_FILTER) return "SO_ATTACH_FILTER";
  if (level == SOL_SOCKET && option == SO_RCVBUF) return "SO_RCVBUF";
  if (level == SOL_PACKET) {
    switch (option) {
      case PACKET_IGNORE_OUTGOING:
        return "PACKET_IGNORE_OUTGOING";
      case PACKET_VERSION:
        return "PACKET_VERSION";
      case PACKET_COPY_THRESH:
        return "PACKET_COPY_THRESH";
      case PACKET_RX_RING:
        return "PACKET_RX_RING";
      case PACKET_ADD_MEMBERSHIP:
        return "PACKET_ADD_MEMBERSHIP";
    }
  }
  throw std::logic_error("an option that packet sockets here do not need");
}

}  // namespace

tpacket2_hdr& FakeSocket::header(std::size_t slot) const {
  auto* const begin = const_cast<std::uint8_t*>(slots_.data()) + slot * ring->tp_frame_size;
  return *reinterpret_cast<tpacket2_hdr*>(begin);
}

bool FakeSocket::arrive(Arrival const& arrival) {
  auto const size = static_cast<std::uint32_t>(arrival.frame.size());
  std::uint32_t const room = ring->tp_frame_size - contentOffset;
  tpacket2_hdr& slot = header(head_);
  if (slot.tp_status != TP_STATUS_KERNEL) return false;
  head_ = (head_ + 1) % ring->tp_frame_nr;

  std::uint32_t status = TP_STATUS_USER;
  std::uint32_t accepted = std::min(size, arrival.acceptedSize.value_or(size));
  if (accepted > room) {
    if (!arrival.queueIsFull) {
      status |= TP_STATUS_COPY;
      queue_.push_back(arrival.frame);
    }
    accepted = room;
  }
  slot = {};
  slot.tp_len = size;
  slot.tp_snaplen = accepted;
  slot.tp_mac = contentOffset;
  std::copy_n(arrival.frame.begin(), accepted,
              reinterpret_cast<std::uint8_t*>(&slot) + contentOffset);
  if (arrival.tag) {
    status |= TP_STATUS_VLAN_VALID;
    slot.tp_vlan_tci = *arrival.tag;
  }
  if (arrival.tagType) {
    status |= TP_STATUS_VLAN_TPID_VALID;
    slot.tp_vlan_tpid = *arrival.tagType;
  }
  slot.tp_status = status;
  return true;
}

void FakeSocket::loseInterface() {
  address.sll_ifindex = -1;
  error = ENETDOWN;
}

bool FakeSocket::hasInput() const {
  if (error != 0 || !queue_.empty()) return true;
  if (!ring || slots_.empty()) return false;
  return header((head_ + ring->tp_frame_nr - 1) % ring->tp_frame_nr).tp_status != TP_STATUS_KERNEL;
}

std::size_t FakeSocket::unread() const {
  std::size_t count = 0;
  for (std::size_t slot = 0; slot < ring->tp_frame_nr; ++slot)
    if (header(slot).tp_status != TP_STATUS_KERNEL) ++count;
  return count;
}

void FakeSocket::readableIs(bool readable) {
  if (readable == readable_) return;
  readable_ = readable;
  char byte = 0;
  ssize_t const done = readable ? write(peer_, &byte, 1) : read(descriptor_, &byte, 1);
  if (done != 1) throw std::logic_error("a fake socket's readiness is lost");
}

void FakeSocket::takesOutputIs(bool takes) {
  std::array<char, 4096> bytes{};
  if (takes)
    while (read(peer_, bytes.data(), bytes.size()) > 0) continue;
  else
    while (write(descriptor_, bytes.data(), bytes.size()) > 0) continue;
}

FakeSystemCalls::~FakeSystemCalls() {
  while (!sockets_.empty()) FakeSystemCalls::close(sockets_.begin()->first);
}

bool FakeSystemCalls::fails(std::string const& name) {
  journal.push_back(name);
  if (int const error = lastingFailures_[name]; error != 0) {
    errno = error;
    return true;
  }
  auto const failure = failures_.find(name);
  if (failure == failures_.end()) return false;
  errno = failure->second;
  failures_.erase(failure);
  return true;
}

FakeSocket& FakeSystemCalls::socketOn(int interfaceIndex) {
  for (auto& [descriptor, socket] : sockets_)
    if (socket.address.sll_ifindex == interfaceIndex) return socket;
  throw std::logic_error("no socket is bound to this interface");
}

void FakeSystemCalls::updateReadiness() {
  for (auto& [descriptor, socket] : sockets_) socket.readableIs(socket.hasInput());
}

unsigned FakeSystemCalls::if_nametoindex(char const* name) {
  return fails(std::string("if_nametoindex ") + name) ? 0 : 77;
}

int FakeSystemCalls::socket(int domain, int type, int protocol) {
  if (fails("socket")) return -1;
  if (domain != AF_PACKET || (type & ~(SOCK_NONBLOCK | SOCK_CLOEXEC)) != SOCK_RAW || protocol != 0)
    return failWith(EPROTONOSUPPORT);
  std::array<int, 2> ends{};
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, ends.data()) < 0) return -1;
  sockets_.emplace(ends[0], FakeSocket(ends[0], ends[1]));
  return ends[0];
}

int FakeSystemCalls::setsockopt(int socket, int level, int option, void const* value,
                                socklen_t size) {
  std::string const name = nameOfOption(level, option);
  if (fails(name)) return -1;
  FakeSocket& given = sockets_.at(socket);
  if (name == "SO_ATTACH_FILTER") {
    auto const program = valueOf<sock_fprog>(value, size);
    auto const bytes = std::as_bytes(std::span(program.filter, program.len));
    for (std::byte const byte : bytes) given.filter.push_back(static_cast<std::uint8_t>(byte));
  } else if (name == "PACKET_VERSION") {
    if (valueOf<int>(value, size) != TPACKET_V2) return failWith(EINVAL);
  } else if (name == "PACKET_RX_RING") {
    given.ring = valueOf<tpacket_req>(value, size);
  } else if (name == "PACKET_ADD_MEMBERSHIP") {
    given.membership = valueOf<packet_mreq>(value, size);
  }
  return 0;
}

int FakeSystemCalls::getsockopt(int socket, int level, int option, void* value, socklen_t* size) {
  FakeSocket& asked = sockets_.at(socket);
  if (level == SOL_SOCKET && option == SO_ERROR) {
    if (fails("SO_ERROR")) return -1;
    answer(std::exchange(asked.error, 0), value, size);
  } else if (level == SOL_PACKET && option == PACKET_STATISTICS) {
    if (fails("PACKET_STATISTICS")) return -1;
    answer(tpacket_stats{0, std::exchange(asked.dropped, 0)}, value, size);
  } else if (level == SOL_SOCKET && option == SO_GET_FILTER) {
    if (fails("SO_GET_FILTER")) return -1;
    // Counts instructions, and copies them only where there is room for all.
    auto const instructions = static_cast<socklen_t>(asked.filter.size() / sizeof(sock_filter));
    if (*size != 0 && *size < instructions) return failWith(EINVAL);
    if (*size != 0) std::memcpy(value, asked.filter.data(), asked.filter.size());
    *size = instructions;
  } else {
    return failWith(ENOPROTOOPT);
  }
  return 0;
}

int FakeSystemCalls::bind(int socket, sockaddr const* address, socklen_t size) {
  if (fails("bind")) return -1;
  sockets_.at(socket).address = valueOf<sockaddr_ll>(address, size);
  return 0;
}

int FakeSystemCalls::getsockname(int socket, sockaddr* address, socklen_t* size) {
  auto const asked = sockets_.find(socket);
  if (asked == sockets_.end()) return failWith(EBADF);
  answer(asked->second.address, address, size);
  return 0;
}

ssize_t FakeSystemCalls::recvmsg(int socket, msghdr* message, int flags) {
  journal.emplace_back("recvmsg");
  FakeSocket& from = sockets_.at(socket);
  if (!from.receiveErrors.empty()) {
    int const error = from.receiveErrors.front();
    from.receiveErrors.pop_front();
    return failWith(error);
  }
  if (from.queue_.empty()) return failWith(EAGAIN);
  Frame const frame = from.queue_.front();
  from.queue_.pop_front();
  std::size_t copied = 0;
  for (iovec const& part : std::span(message->msg_iov, message->msg_iovlen)) {
    std::size_t const count = std::min(part.iov_len, frame.size() - copied);
    std::copy_n(frame.begin() + static_cast<std::ptrdiff_t>(copied), count,
                static_cast<std::uint8_t*>(part.iov_base));
    copied += count;
  }
  if (copied < frame.size()) message->msg_flags |= MSG_TRUNC;
  return static_cast<ssize_t>((flags & MSG_TRUNC) != 0 ? frame.size() : copied);
}

int FakeSystemCalls::sendmmsg(int socket, mmsghdr* messages, unsigned count, int /*flags*/) {
  FakeSocket& to = sockets_.at(socket);
  to.sendCalls.push_back(count);
  unsigned taken = count;
  if (!to.sendResults.empty()) {
    int const result = to.sendResults.front();
    to.sendResults.pop_front();
    if (result < 0) return failWith(-result);
    taken = std::min(taken, static_cast<unsigned>(result));
  }
  for (mmsghdr const& message : std::span(messages, taken)) {
    Frame& frame = to.sent.emplace_back();
    for (iovec const& part : std::span(message.msg_hdr.msg_iov, message.msg_hdr.msg_iovlen)) {
      auto const* const begin = static_cast<std::uint8_t const*>(part.iov_base);
      frame.insert(frame.end(), begin, begin + part.iov_len);
    }
  }
  if (to.onSend) to.onSend();
  return static_cast<int>(taken);
}

void* FakeSystemCalls::mmap(void* /*address*/, std::size_t size, int /*protection*/, int /*flags*/,
                            int descriptor, off_t /*offset*/) {
  if (fails("mmap")) return MAP_FAILED;
  FakeSocket& socket = sockets_.at(descriptor);
  if (size != std::size_t{socket.ring->tp_block_size} * socket.ring->tp_block_nr)
    throw std::logic_error("not the ring's size is mapped");
  socket.slots_.resize(size);
  return socket.slots_.data();
}

int FakeSystemCalls::munmap(void* address, std::size_t /*size*/) {
  journal.emplace_back("munmap");
  for (auto const& [descriptor, socket] : sockets_)
    if (socket.slots_.data() == address) leftInRing = socket.unread();
  return 0;
}

int FakeSystemCalls::close(int descriptor) {
  journal.emplace_back("close");
  auto const closed = sockets_.find(descriptor);
  if (closed == sockets_.end()) return failWith(EBADF);
  ::close(closed->second.peer_);
  ::close(descriptor);
  sockets_.erase(closed);
  return 0;
}

}  // namespace InterfaceTest
