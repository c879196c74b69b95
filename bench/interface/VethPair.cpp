#include "bench/interface/VethPair.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <linux/filter.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sched.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

#include "proxy/ReceiveFilter.h"

namespace Bench {

VethPair const& VethPair::instance() {
  static VethPair const pair;
  return pair;
}

VethPair::VethPair() {
  if (unshare(CLONE_NEWNET) != 0) {
    why_ = std::string("needs root for a network namespace: ") + std::strerror(errno);
    return;
  }
  char const* const commands =
      "echo 1 >/proc/sys/net/ipv6/conf/default/disable_ipv6; "
      "ip link add near0 type veth peer name far0 && ip link set near0 up && ip link set far0 up";
  if (std::system(commands) != 0) {
    why_ = "ip (iproute2) cannot make a veth pair";
    return;
  }
  nearIndex_ = if_nametoindex(nearName());
  farIndex_ = if_nametoindex("far0");
}

int checked(int result, char const* call) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), call);
  return result;
}

Interface::EthDevSettings receiveSettings() {
  using Bridging::IgmpSnooping::Proxy::receiveFilter;
  Interface::EthDevSettings settings;
  settings.protocol = ETH_P_ALL;
  settings.filter.assign(receiveFilter.begin(), receiveFilter.end());
  return settings;
}

int newSocket() {
  int const created = checked(socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK, 0), "socket");
  auto settings = receiveSettings();
  sock_fprog const filter{static_cast<unsigned short>(settings.filter.size()),
                          reinterpret_cast<sock_filter*>(settings.filter.data())};
  checked(setsockopt(created, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter), "setsockopt");
  return created;
}

void bindSocket(int socket, unsigned index, std::uint16_t protocol) {
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(protocol);
  address.sll_ifindex = static_cast<int>(index);
  checked(bind(socket, reinterpret_cast<sockaddr const*>(&address), sizeof address), "bind");
}

Frame frameOf(std::size_t size) {
  Frame frame(size);
  constexpr std::uint8_t igmp = 2;
  constexpr std::size_t ipProtocol = Wirex::ethernetHeaderSize + 9;
  Frame const header{0x01, 0, 0x5e, 1, 2, 3, 0x02, 0, 0, 0, 0, 1, 0x08, 0x00};
  std::copy(header.begin(), header.end(), frame.begin());
  frame[ipProtocol] = igmp;
  return frame;
}

Sender::Sender() : socket_(newSocket()) {
  bindSocket(socket_, VethPair::instance().farIndex(), 0);
}

Sender::~Sender() {
  close(socket_);
}

void Sender::send(Frame& frame, std::size_t count) const {
  iovec content{frame.data(), frame.size()};
  std::array<mmsghdr, atOnce> messages{};
  for (mmsghdr& message : messages) {
    message.msg_hdr.msg_iov = &content;
    message.msg_hdr.msg_iovlen = 1;
  }
  while (count > 0) {
    int const sent =
        sendmmsg(socket_, messages.data(), static_cast<unsigned>(std::min(count, atOnce)), 0);
    if (sent < 0 && errno != EAGAIN && errno != ENOBUFS) checked(sent, "sendmmsg");
    if (sent > 0) count -= static_cast<std::size_t>(sent);
  }
}

}  // namespace Bench
