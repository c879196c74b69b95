#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <utility>

#include "platform/interface/EthDevPam.h"
#include "platform/interface/SystemCalls.h"

namespace Interface {

/// A packet socket (packet(7)) on one interface. Frames come through a ring that is shared with
/// the kernel, one at a time and without a system call; those too long for the ring's slots come
/// through the socket's queue. Nothing in it blocks. The system calls outlive it.
class KEL_EXPORT PacketSocket {
 public:
  /// How many packets one call of send() takes.
  static constexpr std::size_t sentAtOnce = 64;

  /// So many frames at most wait to be received: each has a slot of the ring, also one that comes
  /// through the queue.
  static constexpr std::size_t mostWaiting = 512;

  /// Throws std::system_error, with the call that failed.
  /// @param interfaceIndex the kernel's number of the interface.
  PacketSocket(SystemCalls& system, unsigned interfaceIndex, EthDevSettings const& settings);
  PacketSocket(PacketSocket const&) = delete;
  PacketSocket& operator=(PacketSocket const&) = delete;
  ~PacketSocket();

  int descriptor() const noexcept { return descriptor_; }

  /// The next frame that came in, as it was on the wire; null in the place of one that is not
  /// there as a whole. Nothing if none came.
  std::optional<Wirex::Pkt::PtrConst> receive();

  /// How many frames the kernel has dropped since the last call.
  std::uint32_t takeDropped();

  /// The error that the interface reported, 0 if it did not; with that it is forgotten.
  int takeError();
  /// The same, as far as another call met it, without asking the kernel.
  int takeMetError() noexcept { return std::exchange(metError_, 0); }

  /// Sends up to `sentAtOnce` packets. Returns how many of them, at least one, were sent, or -1
  /// with errno set for the first.
  int send(std::span<Wirex::Pkt::Ptr const> packets);

 private:
  struct Slot;

  void open(unsigned interfaceIndex, EthDevSettings const& settings);
  void close() noexcept;

  Slot slot() const noexcept;
  Wirex::Pkt::PtrConst receiveFrom(Slot const& slot);
  bool receiveQueued(Wirex::WritableBytes beforeTag, Wirex::WritableBytes afterTag);
  template <class Call>
  auto beyondReportedError(Call call);

  SystemCalls& system_;
  int descriptor_ = -1;
  std::uint8_t* ring_ = nullptr;
  std::size_t nextSlot_ = 0;
  std::size_t bufferSize_;
  int metError_ = 0;
};

}  // namespace Interface
