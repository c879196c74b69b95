#include "agent/live/KernelInterfaces.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <libmnl/libmnl.h>
#include <limits>
#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <poll.h>
#include <system_error>
#include <utility>

namespace Agent {

namespace {

[[noreturn]] void fail(char const* call, int error = errno) {
  throw std::system_error(error, std::generic_category(), call);
}

template <class Handle>
void eachAttribute(nlattr const* first, std::size_t size, Handle handle) {
  auto const* const begin = reinterpret_cast<char const*>(first);
  for (nlattr const* attribute = first; mnl_attr_ok(
           attribute, static_cast<int>(begin + size - reinterpret_cast<char const*>(attribute)));
       attribute = mnl_attr_next(attribute))
    handle(*attribute);
}

template <class Handle>
void eachNested(nlattr const& parent, Handle handle) {
  eachAttribute(static_cast<nlattr const*>(mnl_attr_get_payload(&parent)),
                mnl_attr_get_payload_len(&parent), handle);
}

/// Takes over whether a port forwards from a nest of the bridge's attributes of it.
void readBridgePort(nlattr const& nest, bool& forwarding) {
  eachNested(nest, [&](nlattr const& attribute) {
    if (mnl_attr_get_type(&attribute) == IFLA_BRPORT_STATE)
      forwarding = mnl_attr_get_u8(&attribute) == BR_STATE_FORWARDING;
  });
}

/// The same of a link's information, where that is of the port of a bridge.
void readLinkInfo(nlattr const& nest, bool& forwarding) {
  std::string_view kind;
  nlattr const* data = nullptr;
  eachNested(nest, [&](nlattr const& attribute) {
    switch (mnl_attr_get_type(&attribute)) {
      case IFLA_INFO_SLAVE_KIND:
        kind = mnl_attr_get_str(&attribute);
        break;
      case IFLA_INFO_SLAVE_DATA:
        data = &attribute;
        break;
    }
  });
  if (kind == "bridge" && data) readBridgePort(*data, forwarding);
}

void readMacAddress(nlattr const& attribute, Wirex::MacAddress& address) {
  if (mnl_attr_get_payload_len(&attribute) == address.size())
    std::memcpy(address.data(), mnl_attr_get_payload(&attribute), address.size());
}

}  // namespace

void KernelInterfaces::Closer::operator()(mnl_socket* socket) const noexcept {
  mnl_socket_close(socket);
}

class KernelInterfaces::Input final : public Horix::EventLoop::Watch {
 public:
  Input(Horix::EventLoop& loop, KernelInterfaces& interfaces)
      : Watch(loop, mnl_socket_get_fd(interfaces.socket_.get())), interfaces_(interfaces) {}

 private:
  void onReady() override { interfaces_.handleReady(); }

  KernelInterfaces& interfaces_;
};

KernelInterfaces::KernelInterfaces(Horix::EventLoop& loop, Changed changed)
    : socket_(mnl_socket_open2(NETLINK_ROUTE, SOCK_NONBLOCK | SOCK_CLOEXEC)),
      changed_(std::move(changed)) {
  if (!socket_) fail("socket(AF_NETLINK)");
  if (mnl_socket_bind(socket_.get(), RTMGRP_LINK, MNL_SOCKET_AUTOPID) < 0) fail("bind(AF_NETLINK)");
  askForAll();
  awaitDump();
  input_ = std::make_unique<Input>(loop, *this);
}

KernelInterfaces::~KernelInterfaces() = default;

void KernelInterfaces::handleReady() {
  constexpr int mostAtOnce = 64;  // frames and timers get their turn in between
  for (int turn = 0; turn < mostAtOnce && receive();) ++turn;
}

/// The kernel takes no such request while it still answers another one.
void KernelInterfaces::askForAll() {
  dumpAgain_ = dumping_;
  if (!dumping_) requestDump();
}

void KernelInterfaces::requestDump() {
  alignas(nlmsghdr) std::array<char, NLMSG_SPACE(sizeof(ifinfomsg))> message{};
  nlmsghdr* const header = mnl_nlmsg_put_header(message.data());
  header->nlmsg_type = RTM_GETLINK;
  header->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  header->nlmsg_seq = ++generation_;
  auto* const request =
      static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(header, sizeof(ifinfomsg)));
  request->ifi_family = AF_UNSPEC;
  if (mnl_socket_sendto(socket_.get(), header, header->nlmsg_len) < 0) fail("send(AF_NETLINK)");
  dumping_ = true;
}

void KernelInterfaces::awaitDump() {
  constexpr int longest = 5000;  // milliseconds
  while (dumping_) {
    pollfd ready{mnl_socket_get_fd(socket_.get()), POLLIN, 0};
    int const count = poll(&ready, 1, longest);
    if (count < 0 && errno != EINTR) fail("poll");
    if (count == 0) fail("poll", ETIMEDOUT);
    receive();
  }
}

bool KernelInterfaces::receive() {
  ssize_t const size = mnl_socket_recvfrom(socket_.get(), buffer_.data(), buffer_.size());
  if (size < 0) {
    if (errno == EAGAIN || errno == EINTR) return false;
    if (errno != ENOBUFS) fail("recv(AF_NETLINK)");
    askForAll();
    return true;
  }
  auto const* header = reinterpret_cast<nlmsghdr const*>(buffer_.data());
  for (int left = static_cast<int>(size); mnl_nlmsg_ok(header, left);
       header = mnl_nlmsg_next(header, &left))
    handle(*header);
  return true;
}

void KernelInterfaces::handle(nlmsghdr const& header) {
  // Interfaces came or went meanwhile, so that the answer may lack one.
  if ((header.nlmsg_flags & NLM_F_DUMP_INTR) != 0) askForAll();
  switch (header.nlmsg_type) {
    case RTM_NEWLINK:
    case RTM_DELLINK:
      handleLink(header);
      break;
    case NLMSG_DONE:
      handleDumped();
      break;
    case NLMSG_ERROR:
      fail("RTM_GETLINK", -static_cast<nlmsgerr const*>(mnl_nlmsg_get_payload(&header))->error);
    default:
      break;
  }
}

void KernelInterfaces::handleLink(nlmsghdr const& header) {
  if (mnl_nlmsg_get_payload_len(&header) < sizeof(ifinfomsg)) return;
  auto const& info = *static_cast<ifinfomsg const*>(mnl_nlmsg_get_payload(&header));
  auto const index = static_cast<std::uint32_t>(info.ifi_index);
  auto const known = links_.find(index);
  bool const deleted = header.nlmsg_type == RTM_DELLINK;
  // A bridge speaks of its port, which comes and goes as such and not as an interface.
  bool const ofBridge = info.ifi_family == AF_BRIDGE;
  if (deleted && !ofBridge) {
    linkDel(index);
    return;
  }
  if (ofBridge && known == links_.end()) return;

  Link link;
  if (ofBridge) link = known->second;
  link.generation = generation_;
  link.state.forwarding = true;
  if (!ofBridge) {
    link.state.present = true;
    link.state.kernelIndex = index;
    constexpr unsigned operational = IFF_UP | IFF_RUNNING;
    link.state.carrier = (info.ifi_flags & operational) == operational;
  }
  auto const* const first =
      static_cast<nlattr const*>(mnl_nlmsg_get_payload_offset(&header, sizeof(ifinfomsg)));
  std::size_t const size = mnl_nlmsg_get_payload_len(&header) - MNL_ALIGN(sizeof(ifinfomsg));
  eachAttribute(first, size, [&](nlattr const& attribute) {
    int const type = mnl_attr_get_type(&attribute);
    if (ofBridge) {
      if (type == IFLA_PROTINFO && !deleted) readBridgePort(attribute, link.state.forwarding);
      return;
    }
    switch (type) {
      case IFLA_IFNAME:
        link.name = mnl_attr_get_str(&attribute);
        break;
      case IFLA_ADDRESS:
        readMacAddress(attribute, link.state.macAddress);
        break;
      case IFLA_MTU:
        link.state.mtu = static_cast<std::uint16_t>(std::min<std::uint32_t>(
            mnl_attr_get_u32(&attribute), std::numeric_limits<std::uint16_t>::max()));
        break;
      case IFLA_LINKINFO:
        readLinkInfo(attribute, link.state.forwarding);
        break;
      default:
        break;
    }
  });
  linkIs(index, std::move(link));
}

void KernelInterfaces::handleDumped() {
  dumping_ = false;
  if (dumpAgain_) {
    askForAll();
    return;
  }
  std::vector<std::uint32_t> gone;
  for (auto const& [index, link] : links_)
    if (link.generation != generation_) gone.push_back(index);
  for (std::uint32_t const index : gone) linkDel(index);
}

void KernelInterfaces::linkIs(std::uint32_t index, Link link) {
  Link& known = links_[index];
  std::string const formerName = std::exchange(known, std::move(link)).name;
  if (formerName != known.name) giveUpName(formerName, index);
  named_[known.name] = index;
  changed_(Wirex::IntfId(known.name.c_str()), known.state);
}

void KernelInterfaces::linkDel(std::uint32_t index) {
  auto const known = links_.find(index);
  if (known == links_.end()) return;
  std::string const name = known->second.name;
  links_.erase(known);
  giveUpName(name, index);
}

/// Another interface may have the name already: what was lost in an overrun comes in any order.
void KernelInterfaces::giveUpName(std::string const& name, std::uint32_t index) {
  auto const owner = named_.find(name);
  if (owner == named_.end() || owner->second != index) return;
  named_.erase(owner);
  changed_(Wirex::IntfId(name.c_str()), InterfaceState());
}

}  // namespace Agent
