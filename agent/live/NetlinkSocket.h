#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <sys/types.h>

namespace Agent {

/// The system calls of a socket to rtnetlink(7) that never blocks. Tests put a script in their
/// place.
class NetlinkSocket {
 public:
  NetlinkSocket(NetlinkSocket const&) = delete;
  NetlinkSocket& operator=(NetlinkSocket const&) = delete;
  virtual ~NetlinkSocket();

  /// The kernel's own, not open yet.
  /// @param groups those that are heard, as in linux/rtnetlink.h.
  static std::unique_ptr<NetlinkSocket> ofKernel(unsigned groups);

  /// Opens it, anew if it is open: what has not been read is lost. Throws std::system_error.
  virtual void open() = 0;

  virtual int descriptor() const = 0;

  /// One datagram, as recv(2).
  virtual ssize_t receive(std::span<std::byte> buffer) = 0;
  /// As send(2), to the kernel.
  virtual ssize_t send(std::span<std::byte const> message) = 0;

 protected:
  NetlinkSocket() = default;
};

}  // namespace Agent
