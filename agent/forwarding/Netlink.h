#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <libmnl/libmnl.h>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "agent/netlink/Attributes.h"

/// Requests to the kernel through netlink(7), several in one system call.
namespace Agent {

/// Requests that wait to be sent together.
class NetlinkBatch {
 public:
  NetlinkBatch();

  bool empty() const { return count_ == 0; }
  std::size_t count() const { return count_; }
  /// Whether it is time to send: the kernel does all that is sent before it returns.
  bool isFull() const { return size_ >= full || count_ >= most; }
  void clear();

  /// One after the other, as they are sent.
  std::span<char const> requests() const { return {buffer_.data(), size_}; }

  /// Begins the next request. Attributes are put into the header that it gives.
  /// @param flags beside NLM_F_REQUEST.
  template <class Fixed>
  nlmsghdr& add(std::uint16_t type, std::uint16_t flags, Fixed const& fixed) {
    nlmsghdr& header = begin(type, flags);
    *static_cast<Fixed*>(mnl_nlmsg_put_extra_header(&header, sizeof fixed)) = fixed;
    return header;
  }

  /// To be called when a request has all its attributes.
  void end(nlmsghdr const& header);

 private:
  friend class RequestSocket;

  nlmsghdr& begin(std::uint16_t type, std::uint16_t flags);

  static constexpr std::size_t largest = 4096;  // bytes of a request
  // Requests take the kernel some tens of microseconds each, and more with the sources they list.
  static constexpr std::size_t full = 4096;
  static constexpr std::size_t most = 32;

  std::vector<char> buffer_;
  std::size_t size_ = 0;
  std::size_t count_ = 0;
};

/// A request that the kernel refused.
struct NetlinkFailure {
  std::size_t request;  ///< its number in the batch, from 0
  int error;            ///< errno
  std::string text;     ///< the error, and the kernel's own words if it has any
};

class RequestSocket {
 public:
  /// @param protocol NETLINK_ROUTE or NETLINK_NETFILTER.
  /// @param groups the multicast groups to hear. Throws std::system_error.
  explicit RequestSocket(int protocol, unsigned groups = 0);

  int descriptor() const;

  /// Sends all and reads what became of them, which the kernel tells before it returns from
  /// sending. Throws std::system_error if the kernel cannot be reached at all.
  /// @param frame so many requests at the end are never acknowledged.
  std::vector<NetlinkFailure> send(NetlinkBatch& batch, std::size_t frame = 0);

  /// Sends one request whose answer is a list, and gives each message of the answer.
  std::vector<NetlinkFailure> ask(NetlinkBatch& batch,
                                  std::function<void(nlmsghdr const&)> const& each);

  /// Begins such an answer, to be taken in pieces: `next` returns false at its end.
  void begin(NetlinkBatch& batch);
  bool next(std::function<void(nlmsghdr const&)> const& each);

  /// Takes what was heard of the multicast groups. Returns false if some of it was lost.
  bool hear(std::function<void(nlmsghdr const&)> const& each);

 private:
  struct Closer {
    void operator()(mnl_socket* socket) const noexcept { mnl_socket_close(socket); }
  };

  void transmit(NetlinkBatch& batch);
  std::size_t receive(bool wait);

  std::unique_ptr<mnl_socket, Closer> socket_;
  std::uint32_t sequence_ = 0;
  std::uint32_t first_ = 0;  // the sequence number of the first request of the latest batch
  alignas(nlmsghdr) std::array<char, 65536> buffer_;
};

}  // namespace Agent
