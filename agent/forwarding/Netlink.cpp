#include "agent/forwarding/Netlink.h"

#include <cerrno>
#include <poll.h>
#include <sys/socket.h>
#include <system_error>

#include "agent/netlink/Messages.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

[[noreturn]] void fail(char const* call, int error = errno) {
  throw std::system_error(error, std::generic_category(), call);
}

/// The kernel's own words about an error, which follow it where they were asked for.
std::string ownWords(nlmsghdr const& header) {
  if ((header.nlmsg_flags & NLM_F_ACK_TLVS) == 0) return {};
  auto const& error = *static_cast<nlmsgerr const*>(mnl_nlmsg_get_payload(&header));
  std::size_t offset = sizeof error;
  // Without NLM_F_CAPPED the whole request stands before the attributes.
  if ((header.nlmsg_flags & NLM_F_CAPPED) == 0) offset += mnl_nlmsg_get_payload_len(&error.msg);
  std::string words;
  eachAttributeBehind(header, offset, [&](nlattr const& attribute) {
    if (mnl_attr_get_type(&attribute) == NLMSGERR_ATTR_MSG) words = mnl_attr_get_str(&attribute);
  });
  return words;
}

}  // namespace

// ---- NetlinkBatch

NetlinkBatch::NetlinkBatch() : buffer_(full + largest) {}

void NetlinkBatch::clear() {
  size_ = 0;
  count_ = 0;
}

nlmsghdr& NetlinkBatch::begin(std::uint16_t type, std::uint16_t flags) {
  if (size_ + largest > buffer_.size()) buffer_.resize(2 * buffer_.size());
  nlmsghdr& header = *mnl_nlmsg_put_header(buffer_.data() + size_);
  header.nlmsg_type = type;
  header.nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | flags);
  header.nlmsg_seq = static_cast<std::uint32_t>(count_++);
  return header;
}

void NetlinkBatch::end(nlmsghdr const& header) {
  size_ += MNL_ALIGN(header.nlmsg_len);
}

// ---- RequestSocket

RequestSocket::RequestSocket(int protocol, unsigned groups)
    : socket_(mnl_socket_open2(protocol, SOCK_NONBLOCK | SOCK_CLOEXEC)) {
  if (!socket_) fail("socket(AF_NETLINK)");
  int on = 1;
  // Short acknowledgements, and what the kernel has to say about errors; older ones have neither.
  mnl_socket_setsockopt(socket_.get(), NETLINK_CAP_ACK, &on, sizeof on);
  mnl_socket_setsockopt(socket_.get(), NETLINK_EXT_ACK, &on, sizeof on);
  constexpr int room = 1 << 20;
  setsockopt(descriptor(), SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room);
  setsockopt(descriptor(), SOL_SOCKET, SO_SNDBUFFORCE, &room, sizeof room);
  if (mnl_socket_bind(socket_.get(), groups, MNL_SOCKET_AUTOPID) < 0) fail("bind(AF_NETLINK)");
}

int RequestSocket::descriptor() const {
  return mnl_socket_get_fd(socket_.get());
}

void RequestSocket::transmit(NetlinkBatch& batch) {
  first_ = sequence_ + 1;
  auto* header = reinterpret_cast<nlmsghdr*>(batch.buffer_.data());
  for (std::size_t i = 0; i < batch.count_; ++i) {
    header->nlmsg_seq = ++sequence_;
    header =
        reinterpret_cast<nlmsghdr*>(reinterpret_cast<char*>(header) + MNL_ALIGN(header->nlmsg_len));
  }
  auto const requests = batch.requests();
  if (mnl_socket_sendto(socket_.get(), requests.data(), requests.size()) < 0)
    fail("send(AF_NETLINK)");
}

/// Returns 0 if there is nothing, or if something was lost.
std::size_t RequestSocket::receive(bool wait) {
  constexpr int longest = 5000;  // milliseconds
  for (;;) {
    ssize_t const size = mnl_socket_recvfrom(socket_.get(), buffer_.data(), buffer_.size());
    if (size >= 0) return static_cast<std::size_t>(size);
    if (errno == EINTR) continue;
    if (errno != EAGAIN) fail("recv(AF_NETLINK)");
    if (!wait) return 0;
    pollfd ready{descriptor(), POLLIN, 0};
    if (poll(&ready, 1, longest) == 0) fail("recv(AF_NETLINK)", ETIMEDOUT);
  }
}

std::vector<NetlinkFailure> RequestSocket::send(NetlinkBatch& batch, std::size_t frame) {
  std::vector<NetlinkFailure> failures;
  if (batch.empty()) return failures;
  // The last acknowledgement tells that all others went well that were not complained of.
  auto* last = reinterpret_cast<nlmsghdr*>(batch.buffer_.data());
  for (std::size_t i = 1; i + frame < batch.count_; ++i)
    last = reinterpret_cast<nlmsghdr*>(reinterpret_cast<char*>(last) + MNL_ALIGN(last->nlmsg_len));
  last->nlmsg_flags |= NLM_F_ACK;
  transmit(batch);
  bool acknowledged = false;
  while (std::size_t const size = receive(false))
    eachMessage(buffer_.data(), size, [&](nlmsghdr const& header) {
      if (header.nlmsg_type != NLMSG_ERROR || header.nlmsg_seq - first_ >= batch.count_)
        return true;
      acknowledged = true;
      int const error = errorOf(header);
      if (error == 0) return true;
      std::string text = std::generic_category().message(error);
      if (std::string const words = ownWords(header); !words.empty())
        text += message(" (", words, ')');
      failures.push_back({header.nlmsg_seq - first_, error, std::move(text)});
      return true;
    });
  batch.clear();
  if (!acknowledged) fail("netlink acknowledgement", EPROTO);
  return failures;
}

void RequestSocket::begin(NetlinkBatch& batch) {
  transmit(batch);
  batch.clear();
}

bool RequestSocket::next(std::function<void(nlmsghdr const&)> const& each) {
  std::size_t const size = receive(true);
  bool more = true;
  eachMessage(buffer_.data(), size, [&](nlmsghdr const& header) {
    if (header.nlmsg_seq != sequence_) return true;
    if (header.nlmsg_type == NLMSG_ERROR) {
      int const error = errorOf(header);
      if (error != 0) fail("netlink request", error);
      more = false;
    } else if (header.nlmsg_type == NLMSG_DONE) {
      more = false;
    } else {
      each(header);
    }
    return true;
  });
  return more;
}

std::vector<NetlinkFailure> RequestSocket::ask(NetlinkBatch& batch,
                                               std::function<void(nlmsghdr const&)> const& each) {
  begin(batch);
  try {
    while (next(each)) continue;
  } catch (std::system_error const& error) {
    return {{0, error.code().value(), error.code().message()}};
  }
  return {};
}

bool RequestSocket::hear(std::function<void(nlmsghdr const&)> const& each) {
  try {
    while (std::size_t const size = receive(false))
      eachMessage(buffer_.data(), size, [&](nlmsghdr const& header) {
        each(header);
        return true;
      });
    return true;
  } catch (std::system_error const& error) {
    if (error.code().value() != ENOBUFS) throw;
    return false;
  }
}

}  // namespace Agent
