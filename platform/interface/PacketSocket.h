#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <optional>
#include <span>
#include <utility>

#include "platform/interface/EthDevPam.h"
#include "platform/interface/SystemCalls.h"

namespace Interface {

/// A system call that failed. Takes no memory, which may be what has run out.
class KEL_EXPORT FailedCall final : public std::exception {
 public:
  /// @param call its name, which outlives this.
  FailedCall(char const* call, int error) noexcept : call_(call), error_(error) {}

  /// The name of the call.
  char const* what() const noexcept override { return call_; }
  /// As in errno(3).
  int error() const noexcept { return error_; }

 private:
  char const* call_;
  int error_;
};

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

  /// What a program leaves of an open socket to the one that takes its place in the same process.
  struct PassedOn {
    int descriptor = -1;               ///< of the socket; -1 if there is none
    int interfaceIndex = 0;            ///< the kernel's number of the interface
    std::uint32_t nextSlot = 0;        ///< of the ring, in which the next frame comes
    std::uint32_t manner = ownManner;  ///< in which the socket was set up

    friend bool operator==(PassedOn const&, PassedOn const&) noexcept = default;
  };
  /// To be raised with each change of options or of the ring.
  static constexpr std::uint32_t ownManner = 1;

  explicit PacketSocket(SystemCalls& system) noexcept : system_(system) {}
  /// One that was passed on, and is to be continued with or to be closed.
  PacketSocket(SystemCalls& system, PassedOn const& passed) noexcept;
  PacketSocket(PacketSocket const&) = delete;
  PacketSocket& operator=(PacketSocket const&) = delete;
  ~PacketSocket() { close(); }

  /// These two wait in the kernel, and allocate nothing: any thread may call them while no other
  /// one uses the socket. Throws FailedCall, and then nothing is open.
  void open(IntfStatusAndDeviceName const& device, EthDevSettings const& settings);
  /// Does nothing to a socket that is closed.
  void close() noexcept;

  /// Goes on with a socket that was passed on: the frames that have waited in it come next. Returns
  /// whether it is as `open()` would make it now; if not, it is only to be closed.
  bool continueWith(IntfStatusAndDeviceName const& device, EthDevSettings const& settings) noexcept;

  /// Of a socket that is open. It stays so.
  PassedOn passedOn() const noexcept {
    return {descriptor_, interfaceIndex_, static_cast<std::uint32_t>(nextSlot_), manner_};
  }

  /// Of the socket, for waiting until frames come; -1 while it is closed.
  int descriptor() const noexcept { return descriptor_; }

  /// Whether the interface is still the one on which it was opened. One that was deleted lets go
  /// of its sockets, and one that is made again under its number does not take them up.
  bool isBound() const;

  /// The next frame that came in, as it was on the wire; null in the place of one that is longer
  /// than packets may be, or cut by the filter. Nothing if none came.
  std::optional<Wirex::Pkt::PtrConst> receive();

  /// How many frames were lost since the last call, because the ring or the queue was full.
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

  void tryToOpen(IntfStatusAndDeviceName const& device, EthDevSettings const& settings);
  void attachFilter(SocketFilter const& filter);
  void makeRing();
  void mapRing();
  void bind(int interfaceIndex, std::uint16_t protocol);

  bool isBoundWith(std::uint16_t protocol) const;
  bool hasFilter(SocketFilter const& filter) const;

  Slot slot() const noexcept;
  /// Nothing if the frame was lost, null if it is too long.
  std::optional<Wirex::Pkt::PtrConst> receiveFrom(Slot const& slot);
  bool receiveQueued(Wirex::WritableBytes beforeTag, Wirex::WritableBytes afterTag);
  template <class Call>
  auto beyondReportedError(Call call);

  SystemCalls& system_;
  int descriptor_ = -1;
  std::uint8_t* ring_ = nullptr;
  std::size_t nextSlot_ = 0;
  std::size_t bufferSize_ = 0;
  std::uint32_t lost_ = 0;
  int interfaceIndex_ = 0;
  int metError_ = 0;
  std::uint32_t manner_ = ownManner;
};

}  // namespace Interface
