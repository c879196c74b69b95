#include "agent/live/NetlinkTable.h"

#include <algorithm>
#include <cerrno>
#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>
#include <system_error>
#include <utility>

#include "agent/Log.h"
#include "agent/netlink/Messages.h"

namespace Agent {

namespace {

using namespace std::chrono_literals;

constexpr auto longestTurn = 2ms;
constexpr auto patience = 5s;
constexpr auto firstPause = 10ms;
constexpr auto longestPause = 5s;

}  // namespace

class NetlinkTable::Input final : public Horix::EventLoop::Watch {
 public:
  explicit Input(NetlinkTable& table)
      : Watch(table.loop_, table.socket_->descriptor()), table_(table) {}

 private:
  void onReady() override { table_.handleReady(); }

  NetlinkTable& table_;
};

class NetlinkTable::Retry final : public Horix::Timer {
 public:
  explicit Retry(NetlinkTable& table) : table_(table) {}

 private:
  void onExpiry() override { table_.handleRetry(); }

  NetlinkTable& table_;
};

NetlinkTable::NetlinkTable(Horix::EventLoop& loop, std::unique_ptr<NetlinkSocket> socket,
                           std::uint16_t request, Reader& reader)
    : loop_(loop),
      socket_(std::move(socket)),
      request_(request),
      reader_(reader),
      retry_(std::make_unique<Retry>(*this)) {
  open();
  ask();
}

NetlinkTable::~NetlinkTable() = default;

void NetlinkTable::open() {
  socket_->open();
  input_ = std::make_unique<Input>(*this);
}

bool NetlinkTable::awaitComplete(std::chrono::milliseconds longest) {
  auto const end = loop_.now() + longest;
  for (handleReady(); !complete_ && loop_.now() < end; handleReady())
    loop_.timerWheel()->advanceTo(loop_.now() + firstPause);
  return complete_;
}

void NetlinkTable::handleReady() {
  auto const end = loop_.now() + longestTurn;
  bool more = true;
  while (input_ && more && loop_.now() < end) more = receive();
  // Nobody else says whether anything is left to be read before the request.
  if (input_ && more && lost_ && !retry_->scheduled()) loop_.timerWheel()->schedule(*retry_, 0ms);
  reader_.onPause();
}

bool NetlinkTable::receive() {
  ssize_t const size = socket_->receive(buffer_);
  if (size < 0) {
    switch (int const error = errno) {
      case EINTR:
        return true;
      case ENOBUFS:
        lost_ = true;
        return true;
      case EAGAIN:
        if (lost_ && !retry_->scheduled()) ask();
        return false;
      default:
        startOver("recv", error);
        return false;
    }
  }
  if (answering_) loop_.timerWheel()->schedule(*retry_, patience);
  eachMessage(buffer_.data(), static_cast<std::size_t>(size), [this](nlmsghdr const& header) {
    handle(header);
    return input_ != nullptr;
  });
  return true;
}

void NetlinkTable::handle(nlmsghdr const& header) {
  if ((header.nlmsg_flags & NLM_F_DUMP_INTR) != 0) interrupted_ = true;
  switch (header.nlmsg_type) {
    case NLMSG_DONE:
      handleDone(header);
      break;
    case NLMSG_ERROR:
      if (mnl_nlmsg_get_payload_len(&header) >= sizeof(nlmsgerr))
        startOver("request", errorOf(header));
      break;
    default:
      if (header.nlmsg_type >= RTM_BASE) reader_.onEntry(header);
  }
}

void NetlinkTable::handleDone(nlmsghdr const& header) {
  answering_ = false;
  retry_->cancel();
  if (int const error = errorOf(header)) {
    startOver("answer", error);
  } else if (lost_ || interrupted_) {
    lost_ = true;
    if (pause_ == 0ms)
      pause_ = firstPause;  // at once, the first time
    else
      wait();
  } else {
    pause_ = 0ms;
    told_ = false;
    complete_ = true;
    reader_.onComplete();
  }
}

void NetlinkTable::ask() {
  alignas(nlmsghdr) std::array<std::byte, NLMSG_SPACE(sizeof(rtgenmsg))> message{};
  nlmsghdr* const header = mnl_nlmsg_put_header(message.data());
  header->nlmsg_type = request_;
  header->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  header->nlmsg_seq = ++generation_;
  mnl_nlmsg_put_extra_header(header, sizeof(rtgenmsg));  // of every family
  lost_ = false;
  interrupted_ = false;
  if (socket_->send({message.data(), header->nlmsg_len}) < 0) {
    startOver("send", errno);
    return;
  }
  answering_ = true;
  loop_.timerWheel()->schedule(*retry_, patience);
}

void NetlinkTable::startOver(char const* call, int error) {
  input_.reset();
  answering_ = false;
  if (!std::exchange(told_, true))
    log(Severity::warning, "cannot follow the kernel's interfaces: ", call,
        "(AF_NETLINK): ", std::generic_category().message(error),
        "; tried again with growing pauses");
  wait();
}

void NetlinkTable::wait() {
  pause_ = std::clamp<Horix::Time>(pause_ * 2, firstPause, longestPause);
  loop_.timerWheel()->schedule(*retry_, pause_);
}

void NetlinkTable::handleRetry() {
  if (answering_) {
    startOver("answer", ETIMEDOUT);
  } else if (input_) {
    handleReady();
  } else {
    reopen();
  }
}

void NetlinkTable::reopen() {
  try {
    open();
  } catch (std::system_error const& failed) {
    startOver("open", failed.code().value());
    return;
  }
  ask();
}

}  // namespace Agent
