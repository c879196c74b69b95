#include "tests/platform/interface/VethCable.h"

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sched.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/time.h>
#include <system_error>
#include <unistd.h>

namespace InterfaceTest {

namespace {

int checked(int result, char const* call) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), call);
  return result;
}

int currentSpace() {
  return checked(open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC), "open");
}

}  // namespace

NetworkNamespace::NetworkNamespace() {
  int const former = currentSpace();
  int const result = unshare(CLONE_NEWNET);
  int const error = errno;
  if (result == 0) {
    descriptor_ = currentSpace();
    // The hosts' own chatter would be in the tests' way.
    for (char const* const scope : {"all", "default"})
      std::ofstream("/proc/sys/net/ipv6/conf/" + std::string(scope) + "/disable_ipv6") << 1;
    checked(setns(former, CLONE_NEWNET), "setns");
  }
  close(former);
  if (result != 0) throw std::system_error(error, std::generic_category(), "unshare");
}

NetworkNamespace::~NetworkNamespace() {
  close(descriptor_);
}

NetworkNamespace::Inside::Inside(NetworkNamespace const& space) : former_(currentSpace()) {
  checked(setns(space.descriptor_, CLONE_NEWNET), "setns");
}

NetworkNamespace::Inside::~Inside() {
  setns(former_, CLONE_NEWNET);
  close(former_);
}

std::string NetworkNamespace::path() const {
  return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(descriptor_);
}

namespace {

void run(NetworkNamespace const& space, std::string const& command) {
  NetworkNamespace::Inside const inside(space);
  if (std::system(command.c_str()) != 0) throw std::runtime_error(command + " failed");
}

/// Until then the kernel drops what is sent into this end, a while after its other end came up.
void awaitUp(NetworkNamespace const& space, std::string const& end) {
  run(space, "for try in $(seq 1000); do ip -o link show " + end +
                 " | grep -q 'state UP' && exit; sleep 0.002; done; exit 1");
}

}  // namespace

void ip(NetworkNamespace const& space, std::string const& arguments) {
  run(space, "ip " + arguments);
}

std::optional<std::string> VethCable::impossible() {
  if (std::system("ip -V >/dev/null 2>&1") != 0) return "ip, of iproute2, is not installed";
  try {
    VethCable const cable;
  } catch (std::exception const& failed) {
    return std::string("no network namespace with a veth pair is to be had: ") + failed.what();
  }
  return std::nullopt;
}

VethCable::VethCable() {
  plug();
}

unsigned VethCable::nearIndex() const {
  NetworkNamespace::Inside const inside(near_);
  return if_nametoindex(nearName());
}

void VethCable::plug(std::optional<unsigned> nearIndex) {
  ip(near_, std::string("link add ") + nearName() +
                (nearIndex ? " index " + std::to_string(*nearIndex) : "") +
                " type veth peer name " + farName() + " netns " + far_.path());
  ip(near_, std::string("link set ") + nearName() + " up");
  ip(far_, std::string("link set ") + farName() + " up");
  awaitLink();
}

void VethCable::unplug() {
  ip(near_, std::string("link del ") + nearName());
}

void VethCable::nearIsUp(bool up) {
  ip(near_, std::string("link set ") + nearName() + (up ? " up" : " down"));
  if (up) awaitLink();
}

void VethCable::awaitLink() {
  awaitUp(near_, nearName());
  awaitUp(far_, farName());
}

void VethCable::mtuIs(unsigned mtu) {
  ip(near_, std::string("link set ") + nearName() + " mtu " + std::to_string(mtu));
  ip(far_, std::string("link set ") + farName() + " mtu " + std::to_string(mtu));
}

FarEnd::FarEnd(VethCable const& cable) {
  NetworkNamespace::Inside const inside(cable.farSpace());
  descriptor_ = checked(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0), "socket");
  int const yes = 1;
  checked(setsockopt(descriptor_, SOL_PACKET, PACKET_AUXDATA, &yes, sizeof yes), "setsockopt");
  checked(setsockopt(descriptor_, SOL_PACKET, PACKET_IGNORE_OUTGOING, &yes, sizeof yes),
          "setsockopt");
  timeval const second{1, 0};
  checked(setsockopt(descriptor_, SOL_SOCKET, SO_RCVTIMEO, &second, sizeof second), "setsockopt");
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_ALL);
  address.sll_ifindex = static_cast<int>(if_nametoindex(VethCable::farName()));
  checked(bind(descriptor_, reinterpret_cast<sockaddr const*>(&address), sizeof address), "bind");
}

FarEnd::~FarEnd() {
  close(descriptor_);
}

void FarEnd::send(Frame const& frame) const {
  if (::send(descriptor_, frame.data(), frame.size(), 0) != static_cast<ssize_t>(frame.size()))
    throw std::system_error(errno, std::generic_category(), "send");
}

std::optional<Frame> FarEnd::receive() const {
  Frame frame(1U << 16);
  alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(tpacket_auxdata))> control{};
  iovec content{frame.data(), frame.size()};
  msghdr message{};
  message.msg_iov = &content;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  ssize_t const size = recvmsg(descriptor_, &message, 0);
  if (size < 0) return std::nullopt;
  frame.resize(static_cast<std::size_t>(size));
  tpacket_auxdata beside{};
  std::memcpy(&beside, CMSG_DATA(CMSG_FIRSTHDR(&message)), sizeof beside);
  if ((beside.tp_status & TP_STATUS_VLAN_VALID) == 0) return frame;
  return tagged(frame, beside.tp_vlan_tci, beside.tp_vlan_tpid);
}

}  // namespace InterfaceTest
