#include "agent/live/NetlinkSocket.h"

#include <cerrno>
#include <libmnl/libmnl.h>
#include <sys/socket.h>
#include <system_error>

namespace Agent {

namespace {

// Some ten thousand messages. What is beyond the administrator's limit (net.core.rmem_max) is
// granted to privileged processes only.
constexpr int bufferSize = 8 << 20;  // bytes

[[noreturn]] void fail(char const* call) {
  throw std::system_error(errno, std::generic_category(), call);
}

void enlargeBuffer(int descriptor) {
  if (setsockopt(descriptor, SOL_SOCKET, SO_RCVBUFFORCE, &bufferSize, sizeof bufferSize) != 0)
    setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &bufferSize, sizeof bufferSize);
}

class KernelNetlinkSocket final : public NetlinkSocket {
 public:
  explicit KernelNetlinkSocket(unsigned groups) : groups_(groups) {}

  void open() override {
    socket_.reset(mnl_socket_open2(NETLINK_ROUTE, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!socket_) fail("socket(AF_NETLINK)");
    enlargeBuffer(descriptor());
    if (mnl_socket_bind(socket_.get(), groups_, MNL_SOCKET_AUTOPID) < 0) fail("bind(AF_NETLINK)");
  }

  int descriptor() const override { return mnl_socket_get_fd(socket_.get()); }

  ssize_t receive(std::span<std::byte> buffer) override {
    return mnl_socket_recvfrom(socket_.get(), buffer.data(), buffer.size());
  }

  ssize_t send(std::span<std::byte const> message) override {
    return mnl_socket_sendto(socket_.get(), message.data(), message.size());
  }

 private:
  struct Closer {
    void operator()(mnl_socket* socket) const noexcept { mnl_socket_close(socket); }
  };

  unsigned groups_;
  std::unique_ptr<mnl_socket, Closer> socket_;
};

}  // namespace

NetlinkSocket::~NetlinkSocket() = default;

std::unique_ptr<NetlinkSocket> NetlinkSocket::ofKernel(unsigned groups) {
  return std::make_unique<KernelNetlinkSocket>(groups);
}

}  // namespace Agent
