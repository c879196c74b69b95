#include "bench/live/PacketPort.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sys/socket.h>
#include <system_error>
#include <time.h>
#include <unistd.h>
#include <utility>

namespace Bench {

namespace {

int checked(int result, std::string const& call) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), call);
  return result;
}

PacketPort::Time timeOf(timespec const& time) {
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

}  // namespace

PacketPort::PacketPort(std::string const& interface, bool receives)
    : socket_(checked(socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK, 0), "socket")),
      buffer_(receives ? 65536 : 0) {
  int const on = 1;
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
  if (address.sll_ifindex == 0) checked(-1, interface);
  if (receives) {
    address.sll_protocol = htons(ETH_P_IP);
    checked(setsockopt(socket_, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on), "SO_TIMESTAMPNS");
    checked(setsockopt(socket_, SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on),
            "PACKET_IGNORE_OUTGOING");
  }
  checked(bind(socket_, reinterpret_cast<sockaddr const*>(&address), sizeof address), "bind");
}

PacketPort::PacketPort(PacketPort&& other) noexcept
    : socket_(std::exchange(other.socket_, -1)), buffer_(std::move(other.buffer_)) {}

PacketPort::~PacketPort() {
  if (socket_ >= 0) close(socket_);
}

PacketPort::Time PacketPort::now() {
  timespec time{};
  clock_gettime(CLOCK_REALTIME, &time);
  return timeOf(time);
}

void PacketPort::send(std::span<Frame const> frames) const {
  std::array<iovec, atOnce> contents{};
  std::array<mmsghdr, atOnce> messages{};
  while (!frames.empty()) {
    std::size_t const count = std::min(frames.size(), atOnce);
    for (std::size_t i = 0; i < count; ++i) {
      contents[i] = {const_cast<std::uint8_t*>(frames[i].data()), frames[i].size()};
      messages[i].msg_hdr.msg_iov = &contents[i];
      messages[i].msg_hdr.msg_iovlen = 1;
    }
    int const sent = sendmmsg(socket_, messages.data(), static_cast<unsigned>(count), 0);
    if (sent < 0 && errno != EAGAIN && errno != ENOBUFS) checked(sent, "sendmmsg");
    if (sent > 0) frames = frames.subspan(static_cast<std::size_t>(sent));
  }
}

PacketPort::Received PacketPort::receive() {
  alignas(cmsghdr) std::array<char, 256> control{};
  iovec content{buffer_.data(), buffer_.size()};
  msghdr message{};
  message.msg_iov = &content;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  ssize_t const size = recvmsg(socket_, &message, 0);
  if (size < 0) {
    if (errno != EAGAIN) checked(-1, "recvmsg");
    return {};
  }
  Received received{Igmp::Bytes(buffer_).first(static_cast<std::size_t>(size)), {}};
  for (cmsghdr* header = CMSG_FIRSTHDR(&message); header != nullptr;
       header = CMSG_NXTHDR(&message, header))
    if (header->cmsg_level == SOL_SOCKET && header->cmsg_type == SO_TIMESTAMPNS) {
      timespec time{};
      std::memcpy(&time, CMSG_DATA(header), sizeof time);
      received.time = timeOf(time);
    }
  return received;
}

}  // namespace Bench
