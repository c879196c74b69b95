#pragma once

#include <chrono>
#include <span>
#include <string>

#include "bench/live/Reports.h"

namespace Bench {

/// A packet socket on an interface. All throws std::system_error.
class PacketPort {
 public:
  using Time = std::chrono::nanoseconds;  ///< of the kernel's wall clock

  /// @param receives IGMP frames that come in; else only sends.
  PacketPort(std::string const& interface, bool receives);
  PacketPort(PacketPort&& other) noexcept;
  PacketPort(PacketPort const&) = delete;
  PacketPort& operator=(PacketPort const&) = delete;
  ~PacketPort();

  static Time now();

  /// For poll(2) and its like.
  int descriptor() const { return socket_; }

  /// Sends all, with as few system calls as sendmmsg(2) allows.
  void send(std::span<Frame const> frames) const;

  struct Received {
    Igmp::Bytes frame;  ///< valid until the next call
    Time time{};        ///< when the kernel had it
  };

  /// An empty frame if none waits.
  Received receive();

 private:
  static constexpr std::size_t atOnce = 64;

  int socket_;
  Frame buffer_;
};

}  // namespace Bench
