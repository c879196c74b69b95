#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <linux/rtnetlink.h>
#include <memory>
#include <span>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>
#include <vector>

#include "agent/live/KernelAddresses.h"
#include "agent/live/KernelInterfaces.h"
#include "agent/live/NetlinkSocket.h"
#include "fuzz/FuzzInput.h"

/// The kernel says anything of its interfaces and addresses: messages with a right length and
/// sequence number, which no mutation would find, or none of that; and its calls fail.
namespace {

using namespace std::chrono_literals;
using Fuzz::FuzzInput;

/// A kernel's side of a socket: each call takes what comes of it from the input. When that has come
/// to its end there is nothing more to read.
class ScriptedSocket final : public Agent::NetlinkSocket {
 public:
  explicit ScriptedSocket(FuzzInput& input) : input_(input) {}
  ScriptedSocket(ScriptedSocket const&) = delete;
  ScriptedSocket& operator=(ScriptedSocket const&) = delete;
  ~ScriptedSocket() override { close(readiness_); }

  void open() override {
    if (isOpen_ && input_.below(16) == 1) throw failure();
    isOpen_ = true;
  }
  int descriptor() const override { return readiness_; }

  ssize_t receive(std::span<std::byte> buffer) override {
    unsigned const what = input_.empty() ? 1 : input_.below(8);
    if (what == 1) return failed(EAGAIN);
    if (what == 2) return failed(failure().code().value());
    std::vector<std::byte> const datagram = what == 3 ? raw() : messages();
    std::copy(datagram.begin(), datagram.end(), buffer.begin());
    return static_cast<ssize_t>(datagram.size());
  }

  ssize_t send(std::span<std::byte const> message) override {
    if (input_.below(16) == 1) return failed(failure().code().value());
    nlmsghdr request{};
    std::memcpy(&request, message.data(), sizeof request);
    sequence_ = request.nlmsg_seq;
    return static_cast<ssize_t>(message.size());
  }

 private:
  static ssize_t failed(int error) {
    errno = error;
    return -1;
  }
  std::system_error failure() {
    constexpr std::array<int, 5> errors{ENOBUFS, ENOMEM, EINTR, EBUSY, EMFILE};
    return {errors.at(input_.below(errors.size())), std::generic_category(), "script"};
  }

  std::vector<std::byte> raw() {
    auto const taken = std::as_bytes(input_.bytes(input_.byte()));
    return {taken.begin(), taken.end()};
  }

  /// Up to four, whose payload is the fuzzer's.
  std::vector<std::byte> messages() {
    std::vector<std::byte> datagram;
    for (unsigned left = 1 + input_.below(4); left > 0; --left) append(datagram);
    return datagram;
  }

  void append(std::vector<std::byte>& datagram) {
    constexpr std::array<std::uint16_t, 8> types{RTM_NEWLINK, RTM_NEWLINK, RTM_DELLINK, RTM_NEWADDR,
                                                 RTM_DELADDR, NLMSG_DONE,  NLMSG_ERROR, NLMSG_NOOP};
    nlmsghdr header{};
    header.nlmsg_type = types.at(input_.below(types.size()));
    unsigned const flags = input_.byte();
    header.nlmsg_flags =
        static_cast<std::uint16_t>(NLM_F_MULTI | ((flags & 1) != 0 ? NLM_F_DUMP_INTR : 0));
    header.nlmsg_seq = (flags & 2) != 0 ? 0 : sequence_;
    auto const payload = std::as_bytes(input_.bytes(input_.byte()));
    header.nlmsg_len = static_cast<std::uint32_t>(NLMSG_LENGTH(payload.size()));
    auto const bytes = std::as_bytes(std::span(&header, 1));
    datagram.insert(datagram.end(), bytes.begin(), bytes.end());
    datagram.insert(datagram.end(), payload.begin(), payload.end());
    datagram.resize(NLMSG_ALIGN(datagram.size()));
  }

  FuzzInput& input_;
  int readiness_ = eventfd(1, EFD_NONBLOCK | EFD_CLOEXEC);  // there is always something to ask for
  bool isOpen_ = false;
  std::uint32_t sequence_ = 0;
};

void advance(Horix::EventLoop& loop, FuzzInput const& input) {
  for (unsigned turns = 0; turns < 64 && !input.empty(); ++turns) {
    loop.turn(loop.now());
    loop.advanceTo(loop.now() + 1s);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
  FuzzInput input(bytes, size);
  Horix::EventLoop loop(Kel::make<Horix::TimerWheel>(Kel::make<Horix::VirtualClock>()));
  bool const ofAddresses = input.below(2) != 0;
  if (ofAddresses) {
    Wirex::IntfId const port("swp1");
    Agent::KernelAddresses const addresses(
        loop, [&](Agent::AddressBook const& book) { book.addressFor(Bridging::VlanId(10), port); },
        {std::make_unique<ScriptedSocket>(input), std::make_unique<ScriptedSocket>(input)});
    advance(loop, input);
  } else {
    Agent::KernelInterfaces const interfaces(
        loop, [](Wirex::IntfId const&, Agent::InterfaceState const&) {},
        std::make_unique<ScriptedSocket>(input));
    advance(loop, input);
  }
  return 0;
}
