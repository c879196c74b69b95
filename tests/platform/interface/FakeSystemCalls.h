#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <linux/if_packet.h>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/interface/SystemCalls.h"
#include "tests/platform/interface/PamTesting.h"

namespace InterfaceTest {

/// A frame that arrives, as the kernel has it: without its first VLAN tag.
struct Arrival {
  Frame frame;
  std::optional<std::uint16_t> tag = std::nullopt;           ///< its tag control information
  std::optional<std::uint16_t> tagType = std::nullopt;       ///< if the kernel tells it
  std::optional<std::uint32_t> acceptedSize = std::nullopt;  ///< by the filter, if not all of it
  bool queueIsFull = false;  ///< matters where the ring is too small
};

/// A packet socket without a kernel.
class FakeSocket {
 public:
  explicit FakeSocket(int descriptor, int peer) : descriptor_(descriptor), peer_(peer) {}

  // What it was given.
  std::vector<std::uint8_t> filter;
  std::optional<tpacket_req> ring;
  packet_mreq membership{};
  sockaddr_ll address{};
  std::vector<Frame> sent;
  std::vector<unsigned> sendCalls;  ///< how many packets each call was given

  // What will happen to it.
  std::deque<int> sendResults;    ///< how many packets a call takes at most, or -errno; then all
  std::deque<int> receiveErrors;  ///< of the next calls of recvmsg
  int error = 0;                  ///< SO_ERROR
  unsigned dropped = 0;           ///< PACKET_STATISTICS
  std::function<void()> onSend;   ///< called after each call that takes packets

  /// Puts a frame into the ring, and into the queue if it is too long, as the kernel would.
  /// Returns false if the ring is full.
  bool arrive(Arrival const& arrival);

  /// Its interface is deleted, and may be made again: it is not bound to any.
  void loseInterface();

  /// Whether an event loop sees that it takes output.
  void takesOutputIs(bool takes);

 private:
  friend class FakeSystemCalls;

  bool hasInput() const;
  std::size_t unread() const;
  void readableIs(bool readable);

  tpacket2_hdr& header(std::size_t slot) const;

  int descriptor_;
  int peer_;
  bool readable_ = false;
  std::vector<std::uint8_t> slots_;
  std::size_t head_ = 0;
  std::deque<Frame> queue_;
};

/// Packet sockets of a kernel that fails as the test pleases.
class FakeSystemCalls final : public Interface::SystemCalls {
 public:
  ~FakeSystemCalls() override;

  /// Lets the next call of this name fail, or the next setting of the option of this name.
  void failNext(std::string const& name, int error) { failures_[name] = error; }
  /// The same with all that come, until it is told 0.
  void failAll(std::string const& name, int error) { lastingFailures_[name] = error; }

  /// The calls, and the names of the options that were set, in order.
  std::vector<std::string> journal;

  /// How many frames the ring unmapped last still had.
  std::size_t leftInRing = 0;

  std::size_t openSockets() const { return sockets_.size(); }
  FakeSocket& socketOn(int interfaceIndex);

  /// Lets event loops see which sockets have input. To be called before each turn.
  void updateReadiness();

 private:
  unsigned if_nametoindex(char const* name) override;
  int socket(int domain, int type, int protocol) override;
  int setsockopt(int socket, int level, int option, void const* value, socklen_t size) override;
  int getsockopt(int socket, int level, int option, void* value, socklen_t* size) override;
  int bind(int socket, sockaddr const* address, socklen_t size) override;
  int getsockname(int socket, sockaddr* address, socklen_t* size) override;
  ssize_t recvmsg(int socket, msghdr* message, int flags) override;
  int sendmmsg(int socket, mmsghdr* messages, unsigned count, int flags) override;
  void* mmap(void* address, std::size_t size, int protection, int flags, int descriptor,
             off_t offset) override;
  int munmap(void* address, std::size_t size) override;
  int close(int descriptor) override;

  bool fails(std::string const& name);

  std::map<std::string, int> failures_;
  std::map<std::string, int> lastingFailures_;
  std::map<int, FakeSocket> sockets_;
};

}  // namespace InterfaceTest
