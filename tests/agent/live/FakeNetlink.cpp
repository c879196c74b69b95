#include "tests/agent/live/FakeNetlink.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <libmnl/libmnl.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>

namespace Agent {

namespace {

int takeFirst(std::deque<int>& errors) {
  if (errors.empty()) return 0;
  int const error = errors.front();
  errors.pop_front();
  return error;
}

/// As the kernel's messages have an error. The least number stays what it is.
int negated(int error) {
  return static_cast<int>(0u - static_cast<unsigned>(error));
}

/// As a system call tells it.
ssize_t failure(int error) {
  errno = error;
  return -1;
}

}  // namespace

class FakeNetlink::Socket final : public NetlinkSocket {
 public:
  explicit Socket(FakeNetlink& kernel) : kernel_(kernel) {}

  void open() override {
    if (int const error = takeFirst(kernel_.openErrors); error != 0)
      throw std::system_error(error, std::generic_category(), "socket");
    kernel_.begin();
  }
  int descriptor() const override { return kernel_.readiness_; }
  ssize_t receive(std::span<std::byte> buffer) override {
    return kernel_.receive(buffer.data(), buffer.size());
  }
  ssize_t send(std::span<std::byte const> message) override { return kernel_.send(message.data()); }

 private:
  FakeNetlink& kernel_;
};

FakeNetlink::FakeNetlink() : readiness_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {}

FakeNetlink::~FakeNetlink() {
  close(readiness_);
}

std::unique_ptr<NetlinkSocket> FakeNetlink::socket() {
  return std::make_unique<Socket>(*this);
}

void FakeNetlink::begin() {
  ++opened;
  queue_.clear();
  congested_ = false;
  error_ = 0;
  answering_ = false;
  updateReadiness();
}

void FakeNetlink::add(std::uint32_t index, std::string const& name, bool up) {
  links_[index] = {name, up};
  notify(RTM_NEWLINK, index, links_[index]);
}

void FakeNetlink::del(std::uint32_t index) {
  Link const link = links_.at(index);
  links_.erase(index);
  notify(RTM_DELLINK, index, link);
}

void FakeNetlink::append(Datagram& datagram, std::uint16_t type, unsigned flags,
                         std::uint32_t sequence, std::uint32_t index, Link const& link) {
  alignas(nlmsghdr) std::array<char, 256> message{};
  nlmsghdr* const header = mnl_nlmsg_put_header(message.data());
  header->nlmsg_type = type;
  header->nlmsg_flags = static_cast<std::uint16_t>(flags);
  header->nlmsg_seq = sequence;
  auto* const info = static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(header, sizeof(ifinfomsg)));
  info->ifi_index = static_cast<int>(index);
  if (link.up) info->ifi_flags = IFF_UP | IFF_RUNNING;
  mnl_attr_put_strz(header, IFLA_IFNAME, link.name.c_str());
  mnl_attr_put_u32(header, IFLA_MTU, 1500);
  auto const* const bytes = reinterpret_cast<std::byte const*>(message.data());
  datagram.insert(datagram.end(), bytes, bytes + NLMSG_ALIGN(header->nlmsg_len));
}

void FakeNetlink::appendDone(Datagram& datagram, std::uint32_t sequence, int result) {
  alignas(nlmsghdr) std::array<char, 64> message{};
  nlmsghdr* const header = mnl_nlmsg_put_header(message.data());
  header->nlmsg_type = NLMSG_DONE;
  header->nlmsg_seq = sequence;
  std::memcpy(mnl_nlmsg_put_extra_header(header, sizeof result), &result, sizeof result);
  auto const* const bytes = reinterpret_cast<std::byte const*>(message.data());
  datagram.insert(datagram.end(), bytes, bytes + NLMSG_ALIGN(header->nlmsg_len));
}

void FakeNetlink::notify(std::uint16_t type, std::uint32_t index, Link const& link) {
  if (queue_.size() >= queueSize && !congested_) overrun();
  if (congested_) {
    ++dropped;
  } else if (opened > 0) {
    append(queue_.emplace_back(), type, 0, 0, index, link);
  }
  updateReadiness();
}

void FakeNetlink::overrun() {
  congested_ = true;
  error_ = ENOBUFS;
  updateReadiness();
}

void FakeNetlink::refuse(int error) {
  alignas(nlmsghdr) std::array<char, 64> message{};
  nlmsghdr* const header = mnl_nlmsg_put_header(message.data());
  header->nlmsg_type = NLMSG_ERROR;
  header->nlmsg_seq = sequence_;
  static_cast<nlmsgerr*>(mnl_nlmsg_put_extra_header(header, sizeof(nlmsgerr)))->error =
      negated(error);
  auto const* const bytes = reinterpret_cast<std::byte const*>(message.data());
  queue_.emplace_back(bytes, bytes + header->nlmsg_len);
  updateReadiness();
}

void FakeNetlink::claim(std::uint32_t bytes) {
  nlmsghdr header{};
  header.nlmsg_type = RTM_NEWLINK;
  header.nlmsg_len = bytes;
  auto const* const begin = reinterpret_cast<std::byte const*>(&header);
  queue_.emplace_back(begin, begin + sizeof header);
  updateReadiness();
}

// An answer is not dropped, however full the queue is.
void FakeNetlink::answerMore() {
  if (!answering_) return;
  if (onAnswer) onAnswer(datagramsOfAnswer_++);
  unsigned const flags = NLM_F_MULTI | (interrupted_ ? NLM_F_DUMP_INTR : 0u);
  Datagram datagram;
  auto link = links_.upper_bound(answeredUpTo_);
  for (std::size_t i = 0; i < entriesAtOnce && link != links_.end(); ++i, ++link) {
    append(datagram, RTM_NEWLINK, flags, sequence_, link->first, link->second);
    answeredUpTo_ = link->first;
  }
  if (datagram.empty()) {
    appendDone(datagram, sequence_, negated(std::exchange(nextAnswerEndsWith, 0)));
    answering_ = false;
  }
  queue_.push_back(std::move(datagram));
}

ssize_t FakeNetlink::receive(std::byte* buffer, std::size_t size) {
  if (onReceive) onReceive();
  if (int const error = takeFirst(receiveErrors); error != 0) return failure(error);
  if (int const error = std::exchange(error_, 0); error != 0) {
    updateReadiness();
    return failure(error);
  }
  if (queue_.empty()) {
    congested_ = false;
    return failure(EAGAIN);
  }
  Datagram const datagram = std::move(queue_.front());
  queue_.pop_front();
  answerMore();
  if (queue_.empty()) congested_ = false;
  updateReadiness();
  std::copy_n(datagram.begin(), std::min(datagram.size(), size), buffer);
  return static_cast<ssize_t>(datagram.size());
}

ssize_t FakeNetlink::send(std::byte const* message) {
  ++requests;
  if (int const error = takeFirst(sendErrors); error != 0) return failure(error);
  auto const& header = *reinterpret_cast<nlmsghdr const*>(message);
  if (!answers) return static_cast<ssize_t>(header.nlmsg_len);
  if (answering_) {
    refuse(EBUSY);
    return static_cast<ssize_t>(header.nlmsg_len);
  }
  sequence_ = header.nlmsg_seq;
  answering_ = true;
  answeredUpTo_ = 0;
  datagramsOfAnswer_ = 0;
  interrupted_ = interruptedAnswers > 0;
  if (interrupted_) --interruptedAnswers;
  answerMore();
  updateReadiness();
  return static_cast<ssize_t>(header.nlmsg_len);
}

void FakeNetlink::updateReadiness() const {
  eventfd_t value = 0;
  eventfd_read(readiness_, &value);
  if (!queue_.empty() || error_ != 0 || !receiveErrors.empty()) eventfd_write(readiness_, 1);
}

}  // namespace Agent
